#pragma once

// Directory record types (PS3.3 F.5, Table F.3-3 and the retired ones of earlier editions),
// and for writing, the record type and key attributes of an object's SOP class.

#include <cstdint>
#include <string>

namespace KESTREL::dicomdir {

// Whether PS3.3 defines the record type (current or retired).
[[nodiscard]] bool IsKnownRecordType(const std::string& type);

struct KeyAttribute {
  uint16_t group;
  uint16_t element;
  const char* vr;
};

// What a record of one type holds beside the (0004,xxxx) elements (PS3.3 F.5), in tag order.
struct RecordKeys {
  const char* type;
  const KeyAttribute* keys;
  int count;
  bool codeSequence;  // the Concept Name Code Sequence (0040,A043) as well
};

const RecordKeys& PatientKeys();
const RecordKeys& StudyKeys();
const RecordKeys& SeriesKeys();
// The record for an object of `sopClassUID`: its own type for the SOP classes that have one,
// IMAGE for an object with pixel data, null for anything else.
const RecordKeys* ObjectKeys(const std::string& sopClassUID, bool hasPixelData);

}  // namespace KESTREL::dicomdir
