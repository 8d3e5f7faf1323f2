// The requester side of the retrieve classes: identifiers, the C-MOVE exchange and the rows of
// its responses.
#include <cstdio>
#include <memory>
#include <string>

#include "Elements.h"
#include "RetrieveCore.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/ConnectFailure.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/Notifier.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/StandardRetrieve.h"

namespace el = KESTREL::query_elements;

namespace KESTREL::retrieve {

namespace {

using KESTREL::query_layouts::Level;

constexpr char kApplicationContext[] = "1.2.840.10008.3.1.1.1";

struct Element {
  uint16_t group;
  uint16_t element;
  const char* vr;
};

// The keys each level sends empty.
constexpr Element kPatientEmpty[] = {
    {0x0010, 0x0010, "PN"}, {0x0010, 0x0030, "DA"}, {0x0010, 0x0040, "CS"}};
constexpr Element kStudyEmpty[] = {
    {0x0008, 0x0020, "DA"}, {0x0008, 0x0030, "TM"}, {0x0008, 0x0050, "SH"}, {0x0008, 0x0090, "PN"},
    {0x0008, 0x1030, "LO"}, {0x0010, 0x0010, "PN"}, {0x0010, 0x0020, "LO"}, {0x0010, 0x0030, "DA"},
    {0x0010, 0x0040, "CS"}, {0x0020, 0x0010, "SH"}};
constexpr Element kSeriesEmpty[] = {{0x0008, 0x0060, "CS"}, {0x0020, 0x0011, "IS"}};
constexpr Element kImageEmpty[] = {{0x0020, 0x0013, "IS"}};

template <size_t N>
bool PushEmpty(DICOMDataObject* identifier, const Element (&elements)[N]) {
  for (const Element& element : elements)
    if (!el::PushText(identifier, element.group, element.element, "", element.vr)) return false;
  return true;
}

bool PushValues(DICOMDataObject* identifier, Level level, const std::string& patientID,
                const std::string& studyUID, const std::string& seriesUID,
                const std::string& sopInstanceUID) {
  switch (level) {
    case Level::kPatient:
      return el::PushText(identifier, 0x0010, 0x0020, patientID, "LO") &&
             PushEmpty(identifier, kPatientEmpty);
    case Level::kStudy:
      return el::PushText(identifier, 0x0020, 0x000D, studyUID, "UI") &&
             PushEmpty(identifier, kStudyEmpty);
    case Level::kSeries:
      return el::PushText(identifier, 0x0020, 0x000D, studyUID, "UI") &&
             el::PushText(identifier, 0x0020, 0x000E, seriesUID, "UI") &&
             PushEmpty(identifier, kSeriesEmpty);
    case Level::kImage:
      return el::PushText(identifier, 0x0008, 0x0018, sopInstanceUID, "UI") &&
             el::PushText(identifier, 0x0020, 0x000D, studyUID, "UI") &&
             el::PushText(identifier, 0x0020, 0x000E, seriesUID, "UI") &&
             PushEmpty(identifier, kImageEmpty);
    default:
      return false;
  }
}

int Fail(KESTREL::KESTREL_STATUS* status, KESTREL::KESTREL_STATUS value, const std::string& text) {
  KESTREL::SetLastErrorText(text);
  KESTREL::Notify(text);
  if (status) *status = value;
  return 0;
}

std::string* NewCount(DICOMCommandObject* response, uint16_t element) {
  if (!response->Find(0x0000, element)) return nullptr;
  return new std::string(std::to_string(response->GetUInt16(0x0000, element)));
}

}  // namespace

DICOMDataObject* NewIdentifier(Level level, const std::string& patientID,
                               const std::string& studyUID, const std::string& seriesUID,
                               const std::string& sopInstanceUID) {
  auto identifier = std::make_unique<DICOMDataObject>();
  // "PATIENT " and "IMAGE " get their blank from the padding to an even length.
  if (!el::PushText(identifier.get(), 0x0008, 0x0052, KESTREL::query_layouts::LevelKeyword(level),
                    "CS") ||
      !PushValues(identifier.get(), level, patientID, studyUID, seriesUID, sopInstanceUID))
    return nullptr;
  return identifier.release();
}

int RunClient(StandardRetrieve& retrieve, DICOMDataObject* identifier, const Endpoint& endpoint,
              const std::string& destination, const char* writeFailure,
              KESTREL::KESTREL_STATUS* status) {
  const std::string connectError = "ERROR: Unable to connect to " + endpoint.host + "\r\n";
  if (!identifier) return Fail(status, KESTREL::KESTREL_STATUS_WRITE_FAILED, writeFailure);
  UID sopClass;
  retrieve.GetUID(sopClass);
  PDU_Service association("pdu.txt");
  association.SetApplicationContext(kApplicationContext);
  association.AddAbstractSyntax(sopClass);
  for (const std::string* title : {&endpoint.callingAE, &endpoint.calledAE})
    if (title->size() > 16)
      return Fail(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED,
                  connectError + "The AE title " + *title + " is longer than 16 characters\r\n");
  association.SetLocalAddress(endpoint.callingAE);
  association.SetRemoteAddress(endpoint.calledAE);
  if (!association.Connect(endpoint.host.c_str(), endpoint.port.c_str(), nullptr))
    return Fail(
        status, KESTREL::KESTREL_STATUS_CONNECT_FAILED,
        connectError + KESTREL::BuildConnectFailureText(association, endpoint.host, endpoint.port));
  // The images go to the caller's own AE unless another destination was named.
  const std::string& to = destination.empty() ? endpoint.callingAE : destination;
  if (!retrieve.Write(&association, identifier, to.c_str())) {
    association.Close();
    return Fail(status, KESTREL::KESTREL_STATUS_WRITE_FAILED, writeFailure);
  }
  association.Close();
  if (status) *status = KESTREL::KESTREL_STATUS_OK;
  return 1;
}

void AddResponseRow(CResultsArray* results, DICOMCommandObject* response,
                    DICOMDataObject* identifier) {
  if (!results || !response) return;
  auto row = std::make_unique<CResult>();
  row->SetSize(6);
  char status[8];
  std::snprintf(status, sizeof status, "%04X", response->GetUInt16(0x0000, 0x0900));
  row->SetAt(0, new std::string(status));
  for (int slot = 1; slot <= 4; ++slot)  // (0000,1020) to (0000,1023)
    row->SetAt(slot, NewCount(response, static_cast<uint16_t>(0x1020 + slot - 1)));
  if (VR* failed = identifier ? identifier->Find(0x0008, 0x0058) : nullptr)
    row->SetAt(5, new std::string(el::Text(failed)));
  results->Add(row.release());
}

}  // namespace KESTREL::retrieve
