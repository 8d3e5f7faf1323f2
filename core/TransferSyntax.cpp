#include "TransferSyntax.h"

#include <cstring>

#include "kestrel/DICOMObject.h"

namespace {

struct TransferSyntaxEntry {
  const char* uid;
  int mode;
};

// Searched in order. Every compressed syntax is carried as explicit VR little endian: its pixel
// data stays encapsulated and is never decompressed here. The second RLE entry is never
// reached; it is kept so the table reads as it always has.
constexpr TransferSyntaxEntry kTransferSyntaxes[] = {
    {"1.2.840.10008.1.2", 100},      {"1.2.840.10008.1.2.1", 101},
    {"1.2.840.10008.1.2.2", 102},    {"1.2.840.10008.1.2.5", 101},
    {"1.2.840.10008.1.2.4.50", 101}, {"1.2.840.10008.1.2.4.51", 101},
    {"1.2.840.10008.1.2.4.52", 101}, {"1.2.840.10008.1.2.4.53", 101},
    {"1.2.840.10008.1.2.4.54", 101}, {"1.2.840.10008.1.2.4.55", 101},
    {"1.2.840.10008.1.2.4.56", 101}, {"1.2.840.10008.1.2.4.57", 101},
    {"1.2.840.10008.1.2.4.58", 101}, {"1.2.840.10008.1.2.4.59", 101},
    {"1.2.840.10008.1.2.4.60", 101}, {"1.2.840.10008.1.2.4.61", 101},
    {"1.2.840.10008.1.2.4.62", 101}, {"1.2.840.10008.1.2.4.63", 101},
    {"1.2.840.10008.1.2.4.64", 101}, {"1.2.840.10008.1.2.4.65", 101},
    {"1.2.840.10008.1.2.4.66", 101}, {"1.2.840.10008.1.2.4.70", 101},
    {"1.2.840.10008.1.2.5", 101},    {"1.2.840.10008.1.2.4.90", 101},
    {"1.2.840.10008.1.2.4.91", 101}, {"", 0},
};

}  // namespace

int ModeOfTransferSyntax(const char* uid) {
  for (const TransferSyntaxEntry& entry : kTransferSyntaxes) {
    if (!*entry.uid) break;
    if (std::strcmp(entry.uid, uid) == 0) return entry.mode;
  }
  return 0;
}

std::string TransferSyntaxText(const VR* element) {
  char text[128] = {};
  size_t length = element->Length % 64;
  if (element->Data && length) std::memcpy(text, element->Data, length);
  size_t used = std::strlen(text);
  if (used && text[used - 1] == ' ') text[--used] = 0;
  return std::string(text, used);
}
