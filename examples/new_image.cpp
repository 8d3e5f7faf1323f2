// Builds a new secondary capture image (a 64x64 gradient) and saves it.
// usage: new_image OUT
#include <kestrel/kestrel.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUT\n", argv[0]);
    return 64;
  }
  std::unique_ptr<CSCStorage> image(CStandardStorage::CreateSCStorage());  // caller deletes
  const std::string study = GenerateUID().ToString(), series = GenerateUID().ToString();
  const std::string instance = GenerateUID().ToString();
  const uint16_t rows = 64, columns = 64, samples = 1, bits = 8, stored = 8, high = 7, sign = 0;
  std::vector<uint8_t> pixels(rows * columns);
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(i % columns * 4);

  bool ok = image->SetPatientModule("DOE^JANE", "KESTREL-1", "19700101", "F", nullptr, nullptr,
                                    nullptr, nullptr, nullptr, nullptr) &&
            image->SetGeneralStudyModule(study.c_str(), "20260101", "120000", "", "1", "",
                                         "Example", nullptr, nullptr) &&
            image->SetGeneralSeriesModule("OT", series.c_str(), "1", nullptr, nullptr, nullptr,
                                          nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                          nullptr, nullptr, nullptr) &&
            // The copy of the pixels is taken now; Rows, Columns, Samples and Bits Allocated say
            // how many bytes that is.
            image->SetImagePixelModule(&samples, "MONOCHROME2", &rows, &columns, &bits, &stored,
                                       &high, &sign, pixels.data(), nullptr, nullptr, nullptr) &&
            image->SetSOPCommonModule(CSCStorage::kSOPClassUID, instance.c_str(), nullptr, nullptr,
                                      nullptr, nullptr);
  DICOMCodec files;
  if (!ok || !files.SaveFile(argv[1], 3, image->Get(), "1.2.840.10008.1.2.1")) {
    std::fprintf(stderr, "%s: cannot build or write the image\n", argv[1]);
    return 3;
  }
  std::printf("%s: SOP instance %s\n", argv[1], instance.c_str());
  return 0;
}
