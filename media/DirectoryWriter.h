#pragma once

// Encoding a DICOMDIR file (PS3.10 7 and 8, PS3.3 F.3): the file meta information, the
// directory's own attributes and one item per record in explicit VR little endian, with every
// record offset computed from the bytes as written.

#include <cstdint>
#include <string>
#include <vector>

namespace KESTREL::dicomdir {

struct OutElement {
  uint32_t tag = 0;
  std::string vr;
  std::string value;             // text, or the bytes of a binary value
  std::vector<OutElement> item;  // for an SQ: the elements of its one item (empty: no item)
};

// One record and the records below it; the links (0004,1400) and (0004,1420) are filled in.
struct OutRecord {
  std::string type;
  std::vector<std::string> fileID;  // empty for records that name no file
  std::string sopClassUID, sopInstanceUID, transferSyntaxUID;
  std::vector<OutElement> keys;  // any order
  std::vector<OutRecord> children;
};

// Writes the directory of `roots` (the root records, in order) to `path`: first to a
// temporary file beside it, renamed over `path` once complete. False with `error` when the
// file could not be written or the directory is too large for 32-bit offsets.
[[nodiscard]] bool WriteDirectory(const std::string& path, const std::string& fileSetID,
                                  const std::vector<OutRecord>& roots, std::string& error);

}  // namespace KESTREL::dicomdir
