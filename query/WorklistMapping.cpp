#include "WorklistMapping.h"

#include <cstdio>

#include "kestrel/CModalityWorklistQuery.h"
#include "kestrel/CWorklistOrderSet.h"
#include "kestrel/KeyMatching.h"

namespace KESTREL::worklist {

namespace {

std::string Date(const DBDateTime& value) {
  if (value.status != DBDateTime::valid) return std::string();
  char text[16];
  std::snprintf(text, sizeof text, "%04d%02d%02d", value.Year, value.Month, value.Day);
  return text;
}

std::string Time(const DBDateTime& value) {
  if (value.status != DBDateTime::valid) return std::string();
  char text[16];
  std::snprintf(text, sizeof text, "%02d%02d%02d", value.Hour, value.Minute, value.Second);
  return text;
}

// PS3.5 6.2 person name: family name, then given name, "^" between them only when both exist.
std::string PatientName(const CWorklistOrderSet& o) {
  std::string last = KESTREL::TrimPadding(o.LastName);
  std::string first = KESTREL::TrimPadding(o.FirstName);
  if (first.empty()) return last;
  return last + "^" + first;
}

// Patient's Sex is M, F or O (PS3.3 C.7.1.1); the RIS may spell the word out.
std::string Sex(const CWorklistOrderSet& o) {
  std::string sex = KESTREL::TrimPadding(o.Sex);
  if (sex.empty()) return sex;
  char c = sex[0] >= 'a' && sex[0] <= 'z' ? static_cast<char>(sex[0] - 'a' + 'A') : sex[0];
  return c == 'M' || c == 'F' || c == 'O' ? std::string(1, c) : std::string();
}

std::string PatientID(const CWorklistOrderSet& o) {
  return o.PatientTablePatientID.empty() ? o.OrderTablePatientID : o.PatientTablePatientID;
}

// The filler's number is the one the imaging department gave the order; the placer's (the
// ordering system's) stands in when the department has not numbered it yet.
std::string Accession(const CWorklistOrderSet& o) {
  return KESTREL::TrimPadding(o.FillerOrderNumber).empty() ? o.PlacerOrderNumber
                                                           : o.FillerOrderNumber;
}

std::string Modality(const CWorklistOrderSet& o) {
  std::string dicom;
  CModalityWorklistQuery::ConvertRIS2DICOMModality(dicom, KESTREL::TrimPadding(o.Modality));
  return dicom;
}

std::string StudyUID(const CWorklistOrderSet& o) { return StudyUIDForOrder(o.OrderTableID); }

// PS3.4 Table K.6-1.
constexpr Attribute kAttributes[] = {
    // Scheduled Procedure Step Sequence item.
    {0x0008, 0x0060, true, "CS", &Modality},
    {0x0040, 0x0001, true, "AE", [](const CWorklistOrderSet& o) { return o.StudyLocation; }},
    {0x0040, 0x0002, true, "DA", [](const CWorklistOrderSet& o) { return Date(o.StartDateTime); }},
    {0x0040, 0x0003, true, "TM", [](const CWorklistOrderSet& o) { return Time(o.StartDateTime); }},
    {0x0040, 0x0006, true, "PN", [](const CWorklistOrderSet& o) { return o.Radiologist; }},
    {0x0040, 0x0007, true, "LO", [](const CWorklistOrderSet& o) { return o.StudyDescription; }},
    {0x0040, 0x0009, true, "SH", [](const CWorklistOrderSet& o) { return o.OrderTableID; }},
    {0x0040, 0x0011, true, "SH", [](const CWorklistOrderSet& o) { return o.Site; }},
    // Top level: requested procedure, imaging service request, visit and patient.
    {0x0008, 0x0050, false, "SH", &Accession},
    {0x0008, 0x0090, false, "PN", [](const CWorklistOrderSet& o) { return o.OrderingMD; }},
    {0x0010, 0x0010, false, "PN", &PatientName},
    {0x0010, 0x0020, false, "LO", &PatientID},
    {0x0010, 0x0030, false, "DA", [](const CWorklistOrderSet& o) { return Date(o.DOB); }},
    {0x0010, 0x0040, false, "CS", &Sex},
    {0x0020, 0x000D, false, "UI", &StudyUID},
    {0x0032, 0x1032, false, "PN", [](const CWorklistOrderSet& o) { return o.OrderingMD; }},
    {0x0032, 0x1060, false, "LO", [](const CWorklistOrderSet& o) { return o.StudyDescription; }},
    {0x0038, 0x0010, false, "LO", [](const CWorklistOrderSet& o) { return o.VisitID; }},
    {0x0040, 0x1001, false, "SH", [](const CWorklistOrderSet& o) { return o.OrderTableID; }},
    {0x0040, 0x1003, false, "SH", [](const CWorklistOrderSet& o) { return o.Priority; }},
    {0x0040, 0x2016, false, "LO", [](const CWorklistOrderSet& o) { return o.PlacerOrderNumber; }},
    {0x0040, 0x2017, false, "LO", [](const CWorklistOrderSet& o) { return o.FillerOrderNumber; }},
};
constexpr size_t kStepCount = 8;  // the first rows above

// FNV-1a over the text from a given basis (two bases give the two halves of the hash), with
// a final mix so that keys differing in their last character differ in every digit.
uint64_t Hash(const std::string& text, uint64_t basis) {
  uint64_t hash = basis;
  for (unsigned char c : text) {
    hash ^= c;
    hash *= 0x100000001B3ull;
  }
  hash ^= hash >> 30;
  hash *= 0xBF58476D1CE4E5B9ull;
  hash ^= hash >> 27;
  hash *= 0x94D049BB133111EBull;
  return hash ^ (hash >> 31);
}

}  // namespace

const Attribute* FindAttribute(uint16_t group, uint16_t element, bool inStep) {
  for (const Attribute& attribute : kAttributes)
    if (attribute.group == group && attribute.element == element && attribute.inStep == inStep)
      return &attribute;
  return nullptr;
}

const Attribute* StepAttributes(size_t& count) {
  count = kStepCount;
  return kAttributes;
}

bool ModalityMatches(const std::string& key, const CWorklistOrderSet& order) {
  std::string k = KESTREL::TrimPadding(key);
  if (k.empty()) return true;
  if (k.find_first_of("*?") != std::string::npos) return KESTREL::MatchWildcard(k, Modality(order));
  std::string ris;
  CModalityWorklistQuery::ConvertDICOM2RISModality(ris, k);
  return KESTREL::TrimPadding(order.Modality) == ris;
}

std::string StudyUIDForOrder(const std::string& orderTableID) {
  const std::string text = "kestrel-worklist-order:" + KESTREL::TrimPadding(orderTableID);
  unsigned __int128 value =
      (static_cast<unsigned __int128>(Hash(text, 0xCBF29CE484222325ull)) << 64) |
      Hash(text, 0x84222325CBF29CE4ull);
  std::string digits;
  do {
    digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(value % 10)));
    value /= 10;
  } while (value);
  return "2.25." + digits;
}

}  // namespace KESTREL::worklist
