#include "RecordTypes.h"

#include <cstring>

namespace KESTREL::dicomdir {

namespace {

// PS3.3 Table F.3-3 (record types of the current edition and retired ones still met on media).
constexpr const char* kRecordTypes[] = {
    "PATIENT",
    "STUDY",
    "SERIES",
    "IMAGE",
    "RT DOSE",
    "RT STRUCTURE SET",
    "RT PLAN",
    "RT TREAT RECORD",
    "PRESENTATION",
    "WAVEFORM",
    "SR DOCUMENT",
    "KEY OBJECT DOC",
    "SPECTROSCOPY",
    "RAW DATA",
    "REGISTRATION",
    "FIDUCIAL",
    "HANGING PROTOCOL",
    "ENCAP DOC",
    "HL7 STRUC DOC",
    "VALUE MAP",
    "STEREOMETRIC",
    "PALETTE",
    "IMPLANT",
    "IMPLANT ASSY",
    "IMPLANT GROUP",
    "PLAN",
    "MEASUREMENT",
    "SURFACE",
    "SURFACE SCAN",
    "TRACT",
    "ASSESSMENT",
    "RADIOTHERAPY",
    "ANNOTATION",
    "INVENTORY",
    "PRIVATE",
    "MRDR",
    "TOPIC",
    "VISIT",
    "RESULTS",
    "INTERPRETATION",
    "STUDY COMPONENT",
    "STORED PRINT",
    "OVERLAY",
    "MODALITY LUT",
    "VOI LUT",
    "CURVE",
    "FILM SESSION",
    "FILM BOX",
    "IMAGE BOX",
    "PRINT QUEUE",
};

// PS3.3 F.5: the keys of each record type this library writes.
constexpr KeyAttribute kPatient[] = {
    {0x0010, 0x0010, "PN"}, {0x0010, 0x0020, "LO"}, {0x0010, 0x0030, "DA"}, {0x0010, 0x0040, "CS"}};
constexpr KeyAttribute kStudy[] = {
    {0x0008, 0x0020, "DA"}, {0x0008, 0x0030, "TM"}, {0x0008, 0x0050, "SH"}, {0x0008, 0x0090, "PN"},
    {0x0008, 0x1030, "LO"}, {0x0020, 0x000D, "UI"}, {0x0020, 0x0010, "SH"}};
constexpr KeyAttribute kSeries[] = {
    {0x0008, 0x0060, "CS"}, {0x0020, 0x000E, "UI"}, {0x0020, 0x0011, "IS"}};
constexpr KeyAttribute kImage[] = {{0x0020, 0x0013, "IS"}};
constexpr KeyAttribute kContent[] = {
    {0x0008, 0x0023, "DA"}, {0x0008, 0x0033, "TM"}, {0x0020, 0x0013, "IS"}};
constexpr KeyAttribute kReport[] = {{0x0008, 0x0023, "DA"},
                                    {0x0008, 0x0033, "TM"},
                                    {0x0020, 0x0013, "IS"},
                                    {0x0040, 0xA491, "CS"},
                                    {0x0040, 0xA493, "CS"}};
constexpr KeyAttribute kPresentation[] = {{0x0020, 0x0013, "IS"}, {0x0070, 0x0080, "CS"},
                                          {0x0070, 0x0081, "LO"}, {0x0070, 0x0082, "DA"},
                                          {0x0070, 0x0083, "TM"}, {0x0070, 0x0084, "PN"}};
constexpr KeyAttribute kDose[] = {{0x0020, 0x0013, "IS"}, {0x3004, 0x000A, "CS"}};
constexpr KeyAttribute kStructureSet[] = {
    {0x0020, 0x0013, "IS"}, {0x3006, 0x0002, "SH"}, {0x3006, 0x0008, "DA"}, {0x3006, 0x0009, "TM"}};
constexpr KeyAttribute kPlan[] = {
    {0x0020, 0x0013, "IS"}, {0x300A, 0x0002, "SH"}, {0x300A, 0x0006, "DA"}, {0x300A, 0x0007, "TM"}};
constexpr KeyAttribute kTreatment[] = {
    {0x0020, 0x0013, "IS"}, {0x3008, 0x0250, "DA"}, {0x3008, 0x0251, "TM"}};
constexpr KeyAttribute kDocument[] = {{0x0008, 0x0023, "DA"},
                                      {0x0008, 0x0033, "TM"},
                                      {0x0020, 0x0013, "IS"},
                                      {0x0042, 0x0010, "ST"},
                                      {0x0042, 0x0012, "LO"}};

template <size_t N>
constexpr RecordKeys Keys(const char* type, const KeyAttribute (&keys)[N], bool code = false) {
  return {type, keys, static_cast<int>(N), code};
}

constexpr RecordKeys kPatientRecord = Keys("PATIENT", kPatient);
constexpr RecordKeys kStudyRecord = Keys("STUDY", kStudy);
constexpr RecordKeys kSeriesRecord = Keys("SERIES", kSeries);
constexpr RecordKeys kImageRecord = Keys("IMAGE", kImage);

struct ClassRecord {
  const char* prefix;  // a SOP class UID, or a family of them when it ends with '.'
  RecordKeys record;
};

// PS3.4 Annex B SOP classes and the record type PS3.3 F.5 gives their objects; first match.
constexpr ClassRecord kClassRecords[] = {
    {"1.2.840.10008.5.1.4.1.1.88.59", Keys("KEY OBJECT DOC", kContent, true)},
    {"1.2.840.10008.5.1.4.1.1.88.", Keys("SR DOCUMENT", kReport, true)},
    {"1.2.840.10008.5.1.4.1.1.11.", Keys("PRESENTATION", kPresentation)},
    {"1.2.840.10008.5.1.4.1.1.9.", Keys("WAVEFORM", kContent)},
    {"1.2.840.10008.5.1.4.1.1.481.2", Keys("RT DOSE", kDose)},
    {"1.2.840.10008.5.1.4.1.1.481.3", Keys("RT STRUCTURE SET", kStructureSet)},
    {"1.2.840.10008.5.1.4.1.1.481.5", Keys("RT PLAN", kPlan)},
    {"1.2.840.10008.5.1.4.1.1.481.4", Keys("RT TREAT RECORD", kTreatment)},
    {"1.2.840.10008.5.1.4.1.1.481.6", Keys("RT TREAT RECORD", kTreatment)},
    {"1.2.840.10008.5.1.4.1.1.481.7", Keys("RT TREAT RECORD", kTreatment)},
    {"1.2.840.10008.5.1.4.1.1.104.", Keys("ENCAP DOC", kDocument)},
};

bool ClassMatches(const char* prefix, const std::string& uid) {
  size_t length = std::strlen(prefix);
  if (prefix[length - 1] == '.') return uid.compare(0, length, prefix) == 0;
  return uid == prefix;
}

}  // namespace

bool IsKnownRecordType(const std::string& type) {
  for (const char* known : kRecordTypes)
    if (type == known) return true;
  return false;
}

const RecordKeys& PatientKeys() { return kPatientRecord; }
const RecordKeys& StudyKeys() { return kStudyRecord; }
const RecordKeys& SeriesKeys() { return kSeriesRecord; }

const RecordKeys* ObjectKeys(const std::string& sopClassUID, bool hasPixelData) {
  for (const ClassRecord& row : kClassRecords)
    if (ClassMatches(row.prefix, sopClassUID)) return &row.record;
  return hasPixelData ? &kImageRecord : nullptr;
}

}  // namespace KESTREL::dicomdir
