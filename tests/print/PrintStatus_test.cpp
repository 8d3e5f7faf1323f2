// The print side's status words: the generic interpreter's line, the status class of
// CDICOMPrintException and its interpretation sentences, each table checked whole.
#include <gtest/gtest.h>

#include <string>

#include "kestrel/CDICOMPrintException.h"
#include "kestrel/DICOMObject.h"

using namespace KESTREL;

namespace {

CDICOMPrintException WithStatus(uint16_t status) {
  DICOMCommandObject command;
  auto* vr = new VR(0x0000, 0x0900, 2, true);
  *static_cast<uint16_t*>(vr->Data) = status;
  command.Push(vr);
  return CDICOMPrintException(&command);
}

TEST(PrintStatus, GenericInterpreterLines) {
  const std::pair<uint16_t, const char*> cases[] = {
      {0x0000, "Success:  0x0"},
      {0x0106, "Failure: Invalid attribute value 0x106"},
      {0x0107, "Warning: Attribute list error 0x107"},
      {0x0110, "Failure: Processing failure 0x110"},
      {0x0112, "No such object instance: Processing failure 0x112"},
      {0x0115, "Failure: Invalid argument value 0x115"},
      {0x0116, "Warning: Attribute value out of range 0x116"},
      {0x0117, "Failure: Invalid object instance 0x117"},
      {0x0119, "Failure: Class-instance conflict 0x119"},
      {0x0120, "Failure: Missing attribute 0x120"},
      {0x0213, "Failure: Resource limitation 0x213"},
      {0xA700, "Failure: No resources 0xa700"},
      {0xB600, "Warning: Memory allocation not supported. 0xb600"},
      {0xB602,
       "Warning: Film Session SOP instance hierarchy does not contain Image Box SOP instances "
       "(empty page). 0xb602"},
      {0x0105, "Unknown: Status code not recognized 0x105"},
      {0xC603, "Unknown: Status code not recognized 0xc603"},
  };
  for (const auto& [status, line] : cases) EXPECT_EQ(InterpretDimseStatus(status), line) << status;
}

TEST(PrintStatus, ClassAsksTheGeneralTableFirst) {
  const char* warning =
      "A DICOM Print-specific warning has been be received.  Consult the interpretation for "
      "more information";
  const char* failure =
      "A DICOM Print-specific failure has been be received.  Consult the interpretation for "
      "more information";
  const char* undetermined =
      "Unable to determine status received.  Consult the interpretation for more information";
  struct Case {
    uint16_t status;
    int category;
    const char* text;
  };
  const Case cases[] = {
      {0x0000, 0, "Success"},
      {0x0107, 1, "Attribute list error"},
      {0x0213, 2, "Resource limitation"},
      {0xFE00, 3, "Request cancelled"},
      {0xB60B, 1, warning},
      {0xB000, 1, warning},
      {0xC603, 2, failure},
      {0xCFFF, 2, failure},
      {0xA801, 4, undetermined},
      {0x0001, 4, undetermined},
  };
  for (const Case& c : cases) {
    CDICOMPrintException exception = WithStatus(c.status);
    std::string text;
    EXPECT_EQ(exception.GetStatusText(text), c.category) << std::hex << c.status;
    EXPECT_EQ(text, c.text) << std::hex << c.status;
    EXPECT_STREQ(exception.what(), c.text) << "before interpretation";
  }
}

TEST(PrintStatus, InterpretationBySopClassOperationAndStatus) {
  enum { FS, FB, GB, CB, PR, LUT, PP, OV };
  enum { CREATE, SET, ACTION, GET, EVENT, DELETE };
  const std::string demagnified =
      "Image size is larger than Image Box size, the image has been demagnified";
  const std::string cropped =
      "Image size is larger than the Image Box size, the image has been cropped to fit";
  const std::string decimated =
      "Image size or Combined Print Image size is larger than the Image Box size.  Image or "
      "combined image has been decimated to fit";
  const std::string tooLarge = "Image size is larger than image box size";
  const std::string combined = "Combined Print Image size is larger than the Image Box size";
  const std::string density =
      "Requested Min Density or Max Density outside of printer's operating range.  The "
      "printer will use its respective minimum or maximum density value instead";
  const std::string memory = "Insufficient memory in printer to store the image";
  const std::string notNow =
      "The requested memory allocation can temporarily not be provided right now";
  const std::string noDefault =
      "Unable to interpret the error, or no additional interpretation applies";
  struct Case {
    int kind;
    int operation;
    uint16_t status;
    std::string sentence;
  };
  const Case cases[] = {
      {FS, CREATE, 0x0106, "The requested memory allocation could not be provided"},
      {FS, CREATE, 0x0213, notNow},
      {FS, CREATE, 0xB600, "Memory allocation not supported"},
      {FS, ACTION, 0xB601, "Film session printing (collation) is not supported"},
      {FS, ACTION, 0xB602,
       "Film Session SOP Instance hierarchy does not contain Image Box SOP instances (empty "
       "page)"},
      {FS, ACTION, 0xB604, demagnified},
      {FS, ACTION, 0xB609, cropped},
      {FS, ACTION, 0xB60A, decimated},
      {FS, ACTION, 0xC600,
       "Film Session SOP Instance hierarchy does not contain Film Box SOP Instances"},
      {FS, ACTION, 0xC601, "Unable to create Print Job SOP Instance; print queue is full"},
      {FS, ACTION, 0xC603, tooLarge},
      {FS, ACTION, 0xC613, combined},
      {FS, ACTION, 0xB60B, noDefault},
      {FS, SET, 0xB604, noDefault},
      {FB, CREATE, 0xB605, density},
      {FB, CREATE, 0xC616, "Ambiguous failure.  See interpretation for more information"},
      {FB, ACTION, 0xB603,
       "Film Box SOP Instance heirarchy does not contain Image Box SOP Instances (empty page)"},
      {FB, ACTION, 0xB604, demagnified},
      {FB, ACTION, 0xB609, cropped},
      {FB, ACTION, 0xB60A, decimated},
      {FB, ACTION, 0xC602, "Unable to create Print Job SOP Instance; print queue is full"},
      {FB, ACTION, 0xC603, tooLarge},
      {FB, ACTION, 0xC613, combined},
      {FB, ACTION, 0xC601, noDefault},
      {GB, SET, 0xB604, demagnified},
      {GB, SET, 0xB605, density},
      {GB, SET, 0xB609, cropped},
      {GB, SET, 0xB60A, decimated},
      {GB, SET, 0xC603, tooLarge},
      {GB, SET, 0xC605, memory},
      {GB, SET, 0xC613, combined},
      {CB, SET, 0xB604, demagnified},
      {CB, SET, 0xB609, cropped},
      {CB, SET, 0xB60A, decimated},
      {CB, SET, 0xC603, tooLarge},
      {CB, SET, 0xC605, memory},
      {CB, SET, 0xC613, combined},
      {CB, SET, 0xB605, noDefault},
      {PR, GET, 0x0112, noDefault},
      {PR, EVENT, 0xB600, noDefault},
      {LUT, CREATE, 0xB605, density},
      {PP, CREATE, 0x0106, "The requested memory allocation could not be provied"},
      {PP, CREATE, 0x0213, notNow},
      {PP, CREATE, 0xB600, "Memory allocation not supported"},
      {PP, ACTION, 0xB600, "Memory allocation not supported"},
      {PP, ACTION, 0xB601, "Film session printing (collation) is not supported"},
      {PP, ACTION, 0xB602,
       "Film Session SOP Instance hierarchy does not contain Image Box SOP instances (empty "
       "page)"},
      {PP, ACTION, 0xB603, "Film Box does not contain Image Boxes"},
      {PP, ACTION, 0xB604, "Annotation Box not supported, image printed without annotation"},
      {PP, ACTION, 0xB605, "Image Overlay Box not supported, image printed without overlay"},
      {PP, ACTION, 0xB606,
       "Presentation LUT not supported, image printed without applying any Presentation LUT"},
      {PP, ACTION, 0xB608,
       "Presentation LUT not supported at Image Box level, image printed with Film Box "
       "Presentation LUT"},
      {PP, ACTION, 0xB609, cropped},
      {PP, ACTION, 0xB60A, decimated},
      {PP, ACTION, 0xC600, "Stored Print Storage SOP Instance does not contain Film Boxes"},
      {PP, ACTION, 0xC601, "Unable to create Print Job SOP Instance; print queue is full"},
      {PP, ACTION, 0xC602, "Print queue is full"},
      {PP, ACTION, 0xC603,
       "Image Size is larger than image box size (by using the specified magnification value)"},
      {PP, ACTION, 0xC605, "Insufficient memory to store image"},
      {PP, ACTION, 0xC607, "Stored Print Storage SOP Instance not available from Retrieve AE"},
      {PP, ACTION, 0xC608, "Image SOP Instance not available from Retrieve AE"},
      {PP, ACTION, 0xC609, "Failure in retrieving Stored Print Storage SOP Instance"},
      {PP, ACTION, 0xC60A, "Failure in retrieving Image SOP Instance"},
      {PP, ACTION, 0xC60B, "Unknown Retrieve AE title"},
      {PP, ACTION, 0xC60C, "Print request rejected because printer cannot handle color images"},
      {PP, ACTION, 0xC60D,
       "Stored Print Storage SOP Instance does not contain Image Boxes (empty page)"},
      {PP, ACTION, 0xC60E, "Annotation Box not supported"},
      {PP, ACTION, 0xC60F, "Image Overlay Box not supported"},
      {PP, ACTION, 0xC610, "Presentation LUT not supported"},
      {PP, ACTION, 0xC613, combined},
      {PP, ACTION, 0xC614, "Presentation LUT not supported at Image Box level"},
      {PP, ACTION, 0xC615, "Unable to establish an Association with the Retrieve AE"},
      {OV, CREATE, 0xC616,
       "Combined Print Image requires cropping to fit Image Box.  This is not supported in "
       "this SOP Class"},
      {OV, SET, 0xC616, noDefault},
      {9, EVENT, 0x0106, noDefault},
      {FS, 7, 0x0106, noDefault},
      {8, 6, 0x0106, noDefault},
  };
  const char* kinds[] = {
      "BasicFilmSession", "BasicFilmBox",    "BasicGrayscaleImageBox", "BasicColorImageBox",
      "Printer",          "PresentationLUT", "PullPrintRequest",       "BasicPrintImageOverlayBox",
      "Unknown",          "Unknown"};
  const char* operations[] = {"NCreate",      "NSet",    "NAction", "NGet",
                              "NEventReport", "NDelete", "Unknown", "Unknown"};
  for (const Case& c : cases) {
    CDICOMPrintException exception = WithStatus(c.status);
    std::string sentence;
    EXPECT_EQ(exception.GetStatusInterpretation(c.kind, c.operation, sentence), 1);
    EXPECT_EQ(exception.RequestName, std::string(kinds[c.kind]) + ":" + operations[c.operation]);
    EXPECT_EQ(sentence, c.sentence) << c.kind << "/" << c.operation << " " << std::hex << c.status;
    EXPECT_EQ(exception.Interpretation, c.sentence);
    EXPECT_EQ(exception.what(), c.sentence);
  }
}

}  // namespace
