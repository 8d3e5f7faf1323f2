#pragma once

// The bytes of a DICOMDIR file taken apart without trusting them: the file meta group, the
// directory's own attributes and each record of the Directory Record Sequence (0004,1220)
// with the offset it sits at, so that the offsets in the records can be checked against the
// records that really exist. Every length is checked against what is left; sequences nested
// in records are passed over, at most kMaxDepth deep.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace KESTREL::dicomdir {

constexpr uint32_t Tag(uint16_t group, uint16_t element) {
  return static_cast<uint32_t>(group) << 16 | element;
}

// One item of the Directory Record Sequence: its top-level elements' values as they are in the
// file (nested sequences are not kept).
struct Record {
  uint32_t offset = 0;  // of its item tag, from the first byte of the file
  bool bigEndian = false;
  std::map<uint32_t, std::string> values;

  [[nodiscard]] bool Has(uint32_t tag) const { return values.count(tag) != 0; }
  // The value as text without padding; "" when absent.
  std::string Text(uint32_t tag) const;
  // A UL or US value; `fallback` when absent or of another length.
  uint32_t Number(uint32_t tag, uint32_t fallback = 0) const;
};

struct Directory {
  std::string mediaStorageSOPClass;   // (0002,0002)
  std::string transferSyntax;         // (0002,0010)
  std::string fileSetID;              // (0004,1130)
  uint32_t firstRootOffset = 0;       // (0004,1200); 0 when absent
  uint32_t lastRootOffset = 0;        // (0004,1202)
  std::vector<Record> records;        // in sequence order
  std::vector<std::string> warnings;  // faults read around (see Parse)
};

constexpr int kMaxDepth = 16;

// False with `error` when the bytes are not a DICOMDIR that can be read: no file meta
// information, a transfer syntax other than the three uncompressed ones, no Directory Record
// Sequence, or a length that runs past the end of the file. A record item whose length runs
// past the end of a defined-length sequence (a writer that dropped elements without fixing
// the item length) is read up to the sequence's end, with a warning.
[[nodiscard]] bool Parse(const std::vector<uint8_t>& file, Directory& directory,
                         std::string& error);

}  // namespace KESTREL::dicomdir
