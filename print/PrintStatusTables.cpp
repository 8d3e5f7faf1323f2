// Status texts of the print management service classes: the statuses of PS3.4 Annex H and
// the general statuses of PS3.7 Annex C as the print side words them.
#include "PrintStatusTables.h"

#include <iterator>

#include "kestrel/CDICOMPrintException.h"

namespace KESTREL {
namespace print {
namespace {

constexpr const char* kObjectKindNames[] = {
    "BasicFilmSession", "BasicFilmBox",    "BasicGrayscaleImageBox", "BasicColorImageBox",
    "Printer",          "PresentationLUT", "PullPrintRequest",       "BasicPrintImageOverlayBox",
    "Unknown",
};
constexpr const char* kOperationNames[] = {
    "NCreate", "NSet", "NAction", "NGet", "NEventReport", "NDelete", "Unknown",
};

struct GenericStatus {
  uint16_t status;
  const char* statusClass;
  const char* meaning;
};

// The generic interpreter's words. Its 0112 row carries the meaning where the class belongs
// and "Processing failure" as the meaning: users and log readers know the line that way.
constexpr GenericStatus kGenericStatuses[] = {
    {0x0000, "Success", ""},
    {0x0106, "Failure", "Invalid attribute value"},
    {0x0107, "Warning", "Attribute list error"},
    {0x0110, "Failure", "Processing failure"},
    {0x0112, "No such object instance", "Processing failure"},
    {0x0115, "Failure", "Invalid argument value"},
    {0x0116, "Warning", "Attribute value out of range"},
    {0x0117, "Failure", "Invalid object instance"},
    {0x0119, "Failure", "Class-instance conflict"},
    {0x0120, "Failure", "Missing attribute"},
    {0x0213, "Failure", "Resource limitation"},
    {0xA700, "Failure", "No resources"},
    {0xB600, "Warning", "Memory allocation not supported."},
    {0xB602, "Warning",
     "Film Session SOP instance hierarchy does not contain Image Box SOP instances (empty "
     "page)."},
};

// Sentences shared by several rows below.
constexpr char kMemoryNotProvided[] = "The requested memory allocation could not be provided";
constexpr char kMemoryNotNow[] =
    "The requested memory allocation can temporarily not be provided right now";
constexpr char kMemoryNotSupported[] = "Memory allocation not supported";
constexpr char kDemagnified[] =
    "Image size is larger than Image Box size, the image has been demagnified";
constexpr char kCropped[] =
    "Image size is larger than the Image Box size, the image has been cropped to fit";
constexpr char kDecimated[] =
    "Image size or Combined Print Image size is larger than the Image Box size.  Image or "
    "combined image has been decimated to fit";
constexpr char kImageTooLarge[] = "Image size is larger than image box size";
constexpr char kCombinedTooLarge[] = "Combined Print Image size is larger than the Image Box size";
constexpr char kDensityOutOfRange[] =
    "Requested Min Density or Max Density outside of printer's operating range.  The printer "
    "will use its respective minimum or maximum density value instead";
constexpr char kQueueFull[] = "Unable to create Print Job SOP Instance; print queue is full";
constexpr char kNoImageMemory[] = "Insufficient memory in printer to store the image";
constexpr char kCollationNotSupported[] = "Film session printing (collation) is not supported";
constexpr char kSessionEmptyPage[] =
    "Film Session SOP Instance hierarchy does not contain Image Box SOP instances (empty page)";
constexpr char kNoFilmBoxes[] =
    "Film Session SOP Instance hierarchy does not contain Film Box SOP Instances";

constexpr char kDefaultSentence[] =
    "Unable to interpret the error, or no additional interpretation applies";

struct Interpretation {
  int objectKind;
  int operation;
  uint16_t status;
  const char* sentence;
};

// The statuses each print SOP class defines for its operations (PS3.4 Annex H, the status
// table of each operation of each SOP class; the Pull Print Request and Print Image Overlay
// Box classes are retired, but printers in the field still answer them). The spellings
// ("heirarchy", "provied") and the doubled blanks are how the texts have always read, and log
// readers search for them as they are.
constexpr Interpretation kInterpretations[] = {
    {PRINT_BASIC_FILM_SESSION, PRINT_N_CREATE, 0x0106, kMemoryNotProvided},
    {PRINT_BASIC_FILM_SESSION, PRINT_N_CREATE, 0x0213, kMemoryNotNow},
    {PRINT_BASIC_FILM_SESSION, PRINT_N_CREATE, 0xB600, kMemoryNotSupported},
    {PRINT_BASIC_FILM_SESSION, PRINT_N_ACTION, 0xB601, kCollationNotSupported},
    {PRINT_BASIC_FILM_SESSION, PRINT_N_ACTION, 0xB602, kSessionEmptyPage},
    {PRINT_BASIC_FILM_SESSION, PRINT_N_ACTION, 0xB604, kDemagnified},
    {PRINT_BASIC_FILM_SESSION, PRINT_N_ACTION, 0xB609, kCropped},
    {PRINT_BASIC_FILM_SESSION, PRINT_N_ACTION, 0xB60A, kDecimated},
    {PRINT_BASIC_FILM_SESSION, PRINT_N_ACTION, 0xC600, kNoFilmBoxes},
    {PRINT_BASIC_FILM_SESSION, PRINT_N_ACTION, 0xC601, kQueueFull},
    {PRINT_BASIC_FILM_SESSION, PRINT_N_ACTION, 0xC603, kImageTooLarge},
    {PRINT_BASIC_FILM_SESSION, PRINT_N_ACTION, 0xC613, kCombinedTooLarge},

    {PRINT_BASIC_FILM_BOX, PRINT_N_CREATE, 0xB605, kDensityOutOfRange},
    {PRINT_BASIC_FILM_BOX, PRINT_N_CREATE, 0xC616,
     "Ambiguous failure.  See interpretation for more information"},
    {PRINT_BASIC_FILM_BOX, PRINT_N_ACTION, 0xB603,
     "Film Box SOP Instance heirarchy does not contain Image Box SOP Instances (empty page)"},
    {PRINT_BASIC_FILM_BOX, PRINT_N_ACTION, 0xB604, kDemagnified},
    {PRINT_BASIC_FILM_BOX, PRINT_N_ACTION, 0xB609, kCropped},
    {PRINT_BASIC_FILM_BOX, PRINT_N_ACTION, 0xB60A, kDecimated},
    {PRINT_BASIC_FILM_BOX, PRINT_N_ACTION, 0xC602, kQueueFull},
    {PRINT_BASIC_FILM_BOX, PRINT_N_ACTION, 0xC603, kImageTooLarge},
    {PRINT_BASIC_FILM_BOX, PRINT_N_ACTION, 0xC613, kCombinedTooLarge},

    {PRINT_BASIC_GRAYSCALE_IMAGE_BOX, PRINT_N_SET, 0xB604, kDemagnified},
    {PRINT_BASIC_GRAYSCALE_IMAGE_BOX, PRINT_N_SET, 0xB605, kDensityOutOfRange},
    {PRINT_BASIC_GRAYSCALE_IMAGE_BOX, PRINT_N_SET, 0xB609, kCropped},
    {PRINT_BASIC_GRAYSCALE_IMAGE_BOX, PRINT_N_SET, 0xB60A, kDecimated},
    {PRINT_BASIC_GRAYSCALE_IMAGE_BOX, PRINT_N_SET, 0xC603, kImageTooLarge},
    {PRINT_BASIC_GRAYSCALE_IMAGE_BOX, PRINT_N_SET, 0xC605, kNoImageMemory},
    {PRINT_BASIC_GRAYSCALE_IMAGE_BOX, PRINT_N_SET, 0xC613, kCombinedTooLarge},

    {PRINT_BASIC_COLOR_IMAGE_BOX, PRINT_N_SET, 0xB604, kDemagnified},
    {PRINT_BASIC_COLOR_IMAGE_BOX, PRINT_N_SET, 0xB609, kCropped},
    {PRINT_BASIC_COLOR_IMAGE_BOX, PRINT_N_SET, 0xB60A, kDecimated},
    {PRINT_BASIC_COLOR_IMAGE_BOX, PRINT_N_SET, 0xC603, kImageTooLarge},
    {PRINT_BASIC_COLOR_IMAGE_BOX, PRINT_N_SET, 0xC605, kNoImageMemory},
    {PRINT_BASIC_COLOR_IMAGE_BOX, PRINT_N_SET, 0xC613, kCombinedTooLarge},

    {PRINT_PRESENTATION_LUT, PRINT_N_CREATE, 0xB605, kDensityOutOfRange},

    {PRINT_PULL_PRINT_REQUEST, PRINT_N_CREATE, 0x0106,
     "The requested memory allocation could not be provied"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_CREATE, 0x0213, kMemoryNotNow},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_CREATE, 0xB600, kMemoryNotSupported},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xB600, kMemoryNotSupported},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xB601, kCollationNotSupported},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xB602, kSessionEmptyPage},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xB603, "Film Box does not contain Image Boxes"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xB604,
     "Annotation Box not supported, image printed without annotation"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xB605,
     "Image Overlay Box not supported, image printed without overlay"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xB606,
     "Presentation LUT not supported, image printed without applying any Presentation LUT"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xB608,
     "Presentation LUT not supported at Image Box level, image printed with Film Box "
     "Presentation LUT"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xB609, kCropped},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xB60A, kDecimated},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC600,
     "Stored Print Storage SOP Instance does not contain Film Boxes"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC601, kQueueFull},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC602, "Print queue is full"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC603,
     "Image Size is larger than image box size (by using the specified magnification value)"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC605, "Insufficient memory to store image"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC607,
     "Stored Print Storage SOP Instance not available from Retrieve AE"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC608,
     "Image SOP Instance not available from Retrieve AE"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC609,
     "Failure in retrieving Stored Print Storage SOP Instance"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC60A, "Failure in retrieving Image SOP Instance"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC60B, "Unknown Retrieve AE title"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC60C,
     "Print request rejected because printer cannot handle color images"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC60D,
     "Stored Print Storage SOP Instance does not contain Image Boxes (empty page)"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC60E, "Annotation Box not supported"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC60F, "Image Overlay Box not supported"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC610, "Presentation LUT not supported"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC613, kCombinedTooLarge},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC614,
     "Presentation LUT not supported at Image Box level"},
    {PRINT_PULL_PRINT_REQUEST, PRINT_N_ACTION, 0xC615,
     "Unable to establish an Association with the Retrieve AE"},

    {PRINT_BASIC_PRINT_IMAGE_OVERLAY_BOX, PRINT_N_CREATE, 0xC616,
     "Combined Print Image requires cropping to fit Image Box.  This is not supported in this "
     "SOP Class"},
};

template <size_t N>
const char* NameAt(const char* const (&names)[N], int index) {
  if (index < 0 || static_cast<size_t>(index) >= N) return names[N - 1];
  return names[index];
}

}  // namespace

const char* const kPrintWarningSentence =
    "A DICOM Print-specific warning has been be received.  Consult the interpretation for more "
    "information";
const char* const kPrintFailureSentence =
    "A DICOM Print-specific failure has been be received.  Consult the interpretation for more "
    "information";
const char* const kUndeterminedStatusSentence =
    "Unable to determine status received.  Consult the interpretation for more information";

const char* ObjectKindName(int objectKind) { return NameAt(kObjectKindNames, objectKind); }

const char* OperationName(int operation) { return NameAt(kOperationNames, operation); }

void GenericStatusWords(uint16_t status, const char** statusClass, const char** meaning) {
  for (const GenericStatus& entry : kGenericStatuses) {
    if (entry.status != status) continue;
    *statusClass = entry.statusClass;
    *meaning = entry.meaning;
    return;
  }
  *statusClass = "Unknown";
  *meaning = "Status code not recognized";
}

const char* InterpretationSentence(int objectKind, int operation, uint16_t status) {
  for (const Interpretation& entry : kInterpretations) {
    if (entry.objectKind == objectKind && entry.operation == operation && entry.status == status)
      return entry.sentence;
  }
  return kDefaultSentence;
}

}  // namespace print
}  // namespace KESTREL
