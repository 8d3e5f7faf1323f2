// Feeds arbitrary bytes to the decoder in each mode, then encodes whatever was decoded.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "fuzz/FuzzDictionary.h"
#include "kestrel/DICOMCodec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static DICOMCodec* service = [] {
    auto* s = new DICOMCodec;
    s->AttachRTC(FuzzDictionary(), true);
    return s;
  }();
  if (size < 1) return 0;
  static const int kModes[] = {100, 101, 102};
  int mode = kModes[data[0] % 3];
  ByteBuffer input;
  input.WriteBytes(data + 1, size - 1);
  auto object = std::make_unique<DICOMDataObject>();
  (void)service->Decode(input, object.get(), mode);
  ByteBuffer output;
  (void)service->Encode(object.get(), output, mode, false);
  return 0;
}
