// Writes arbitrary bytes to a file and reads it back as a DICOM file, then saves the result.
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "fuzz/FuzzDictionary.h"
#include "kestrel/DICOMCodec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static DICOMCodec* service = [] {
    auto* s = new DICOMCodec;
    s->AttachRTC(FuzzDictionary(), true);
    return s;
  }();
  static const std::string in = "/tmp/kestrel-fuzz-in-" + std::to_string(getpid()) + ".dcm";
  static const std::string out = "/tmp/kestrel-fuzz-out-" + std::to_string(getpid()) + ".dcm";
  std::FILE* f = std::fopen(in.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  std::unique_ptr<DICOMDataObject> object(service->LoadFile(in.c_str()));
  if (object) (void)service->SaveFile(out.c_str(), 3, object.get(), nullptr);
  return 0;
}
