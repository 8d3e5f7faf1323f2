// Reads a DICOM image file, changes the patient's name and ID, and writes it again in explicit
// VR little endian. usage: read_and_change IN OUT NAME ID
#include <kestrel/kestrel.h>

#include <cstdio>
#include <memory>

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: %s IN OUT NAME ID\n", argv[0]);
    return 64;
  }
  // Load makes the storage object of the file's SOP class; the caller deletes it. It gives
  // null for a file that is not an image of a class it knows: CUnknownStorage::Open reads any.
  CStandardStorage loader;
  char syntax[65] = {};
  std::unique_ptr<CStorage> image(loader.Load(argv[1], syntax, sizeof syntax - 1));
  if (!image) {
    auto any = std::make_unique<CUnknownStorage>();
    if (!any->Open(argv[1])) {
      std::fprintf(stderr, "%s: not a DICOM file\n", argv[1]);
      return 3;
    }
    image = std::move(any);
  }
  // Null pointers leave an attribute as it is.
  image->SetPatientModule(argv[3], argv[4], nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                          nullptr, nullptr);
  // Get() is the instance itself, owned by the storage object. Writing it empties it; the
  // implicit VR input still goes out with every VR, from the dictionary installed with the
  // library.
  DICOMCodec files;
  if (!files.SaveFile(argv[2], 3, image->Get(), "1.2.840.10008.1.2.1")) {
    std::fprintf(stderr, "%s: cannot write\n", argv[2]);
    return 3;
  }
  std::printf("%s: patient %s, %s\n", argv[2], argv[3], argv[4]);
  return 0;
}
