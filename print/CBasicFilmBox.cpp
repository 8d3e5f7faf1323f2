#include "kestrel/CBasicFilmBox.h"

#include <cstdlib>

#include "PrintExchange.h"
#include "kestrel/CBasicFilmSession.h"
#include "kestrel/CDICOMPrintException.h"
#include "kestrel/DIMSEN.h"
#include "kestrel/PDU_Service.h"

namespace {

using namespace KESTREL::print;

constexpr int kKind = KESTREL::PRINT_BASIC_FILM_BOX;

// Basic Film Box Presentation and Relationship Modules, PS3.3 C.13.3 and C.13.4.
constexpr uint16_t kBoxGroup = 0x2010;
constexpr uint16_t kImageDisplayFormat = 0x0010;
constexpr uint16_t kFilmOrientation = 0x0040;
constexpr uint16_t kFilmSizeID = 0x0050;
constexpr uint16_t kMagnificationType = 0x0060;
constexpr uint16_t kSmoothingType = 0x0080;
constexpr uint16_t kBorderDensity = 0x0100;
constexpr uint16_t kEmptyImageDensity = 0x0110;
constexpr uint16_t kMinDensity = 0x0120;
constexpr uint16_t kMaxDensity = 0x0130;
constexpr uint16_t kTrim = 0x0140;
constexpr uint16_t kConfigurationInformation = 0x0150;
constexpr uint16_t kReferencedFilmSessionSequence = 0x0500;
constexpr uint16_t kReferencedImageBoxSequence = 0x0510;

// Counts of a display format: "2,3" or "1,2,1". Each from 1 to 99; false otherwise.
bool ReadCounts(const std::string& text, std::vector<int>& counts) {
  size_t start = 0;
  while (start <= text.size()) {
    size_t comma = text.find(',', start);
    std::string part = text.substr(start, comma == std::string::npos ? comma : comma - start);
    if (part.empty() || part.size() > 2 || part.find_first_not_of("0123456789") != part.npos)
      return false;
    int count = std::atoi(part.c_str());
    if (count < 1) return false;
    counts.push_back(count);
    if (comma == std::string::npos) return true;
    start = comma + 1;
  }
  return false;
}

bool PushDensity(DICOMObject* object, uint16_t element, int density) {
  if (density < 0) return true;
  return PushUS(object, kBoxGroup, element, static_cast<uint16_t>(density));
}

}  // namespace

CBasicFilmBox::CBasicFilmBox() = default;
CBasicFilmBox::~CBasicFilmBox() = default;

int CBasicFilmBox::GetUID(UID& uid) { return BasicFilmBox::GetUID(uid); }

// PS3.3 C.13.3: STANDARD\C,R is C columns by R rows; ROW\ and COL\ list the boxes of each row
// or column.
int CBasicFilmBox::ImageBoxCount(const std::string& format) {
  size_t separator = format.find('\\');
  if (separator == std::string::npos) return 0;
  std::string kind = format.substr(0, separator);
  std::vector<int> counts;
  if (!ReadCounts(format.substr(separator + 1), counts)) return 0;
  if (kind == "STANDARD") return counts.size() == 2 ? counts[0] * counts[1] : 0;
  if (kind != "ROW" && kind != "COL") return 0;
  if (counts.size() > 99) return 0;
  int total = 0;
  for (int count : counts) total += count;
  return total;
}

UID CBasicFilmBox::GetImageBoxUID(uint32_t index) const {
  return index < imageBoxes_.size() ? imageBoxes_[index] : UID();
}

int CBasicFilmBox::Create(PDU_Service* pdu, const CBasicFilmSession& session) {
  if (session.GetSOPInstanceUID().IsEmpty())
    return ExchangeFailed(kKind, KESTREL::PRINT_N_CREATE, "the film session was not created");
  DICOMDataObject attributes;
  if (!PushText<VR_ST>(&attributes, kBoxGroup, kImageDisplayFormat, ImageDisplayFormat) ||
      !PushText<VR_CS>(&attributes, kBoxGroup, kFilmOrientation, FilmOrientation) ||
      !PushText<VR_CS>(&attributes, kBoxGroup, kFilmSizeID, FilmSizeID) ||
      !PushText<VR_CS>(&attributes, kBoxGroup, kMagnificationType, MagnificationType) ||
      !PushText<VR_CS>(&attributes, kBoxGroup, kSmoothingType, SmoothingType) ||
      !PushText<VR_CS>(&attributes, kBoxGroup, kBorderDensity, BorderDensity) ||
      !PushText<VR_CS>(&attributes, kBoxGroup, kEmptyImageDensity, EmptyImageDensity) ||
      !PushDensity(&attributes, kMinDensity, MinDensity) ||
      !PushDensity(&attributes, kMaxDensity, MaxDensity) ||
      !PushText<VR_CS>(&attributes, kBoxGroup, kTrim, Trim) ||
      !PushText<VR_ST>(&attributes, kBoxGroup, kConfigurationInformation,
                       ConfigurationInformation) ||
      !PushReference(&attributes, kBoxGroup, kReferencedFilmSessionSequence,
                     PrintSOPClass::kBasicFilmSession, session.GetSOPInstanceUID()))
    return ExchangeFailed(kKind, KESTREL::PRINT_N_CREATE, "out of memory");
  UID sopClass;
  GetUID(sopClass);
  UID syntax = PrintSyntax(pdu, sopClass);
  Response response;
  auto send = [&](uint16_t* id) {
    return NCreateRQ::Write(pdu, syntax, sopClass, UID(), &attributes, id);
  };
  if (!Exchange(pdu, kKind, KESTREL::PRINT_N_CREATE, &NCreateRSP::Read, send, response)) return 0;
  UID created;
  if (created.Set(response.command.Find(0x0000, 0x1000)) && !created.IsEmpty()) {
    instance_ = created;
    imageBoxes_ = ReferencedInstances(&response.dataSet, kBoxGroup, kReferencedImageBoxSequence);
  }
  ThrowOnStatus(response, kKind, KESTREL::PRINT_N_CREATE);
  if (instance_.IsEmpty())
    return ExchangeFailed(kKind, KESTREL::PRINT_N_CREATE, "the printer named no film box");
  return 1;
}

int CBasicFilmBox::Print(PDU_Service* pdu) {
  UID sopClass;
  GetUID(sopClass);
  return PrintInstance(pdu, kKind, sopClass, instance_, "film box");
}

int CBasicFilmBox::Delete(PDU_Service* pdu) {
  UID sopClass;
  GetUID(sopClass);
  // The boxes go with the film once the printer answered, also when the answer is thrown.
  struct Forget {
    const UID& instance;
    std::vector<UID>& boxes;
    ~Forget() {
      if (instance.IsEmpty()) boxes.clear();
    }
  } forget{instance_, imageBoxes_};
  return DeleteInstance(pdu, kKind, sopClass, instance_, "film box");
}
