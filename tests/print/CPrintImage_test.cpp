// Turning stored images into print images: the grayscale pipeline value by value, and the
// images that cannot be printed.
#include "kestrel/CPrintImage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kestrel/Status.h"
#include "tests/print/PrintTestSupport.h"

using namespace print_test;

namespace {

const std::string kSamples = "/usr/lib/python3/dist-packages/pydicom/data/test_files/";

std::vector<int> Output(const CPrintImage& image) {
  std::vector<int> values;
  const auto* bytes = static_cast<const uint8_t*>(image.GetPixelData());
  for (uint32_t i = 0; i < image.GetPixelDataLength(); i += image.GetBitsAllocated() / 8) {
    uint16_t word = bytes[i];
    if (image.GetBitsAllocated() == 16) std::memcpy(&word, bytes + i, 2);
    values.push_back(word);
  }
  return values;
}

struct Conversion {
  const char* label;
  StoredImage stored;
  int bits;
  uint32_t frame;
  double center, width;  // the caller's window when width > 0
  std::vector<int> expected;
};

TEST(CPrintImage, GrayscalePipeline) {
  StoredImage ramp;  // 12 of 16 bits, unsigned
  ramp.rows = 1;
  ramp.columns = 3;
  ramp.values = {0, 2048, 4095};
  StoredImage windowed = ramp;
  windowed.center = "2048";
  windowed.width = "4096";
  StoredImage ct;  // signed, rescaled to Hounsfield units -1024, 0, 40, 1024
  ct.rows = 2;
  ct.columns = 2;
  ct.bitsStored = 16;
  ct.pixelRepresentation = 1;
  ct.intercept = "-1024";
  ct.slope = "1";
  ct.center = "40\\400";
  ct.width = "400\\2000";
  ct.values = {0, 1024, 1064, 2048};
  StoredImage signed12 = ramp;  // -1, -2048 and 2047 in 12 bits
  signed12.pixelRepresentation = 1;
  signed12.values = {0x0FFF, 0x0800, 0x07FF};
  StoredImage mono1;
  mono1.rows = 1;
  mono1.bitsAllocated = mono1.bitsStored = 8;
  mono1.photometric = "MONOCHROME1";
  mono1.values = {0, 255};
  StoredImage frames;
  frames.frames = "2";
  frames.values = {0, 0, 0, 0, 10, 20, 30, 40};
  StoredImage narrowFile = windowed;
  narrowFile.center = "100";
  narrowFile.width = "10";
  const Conversion cases[] = {
      {"window of the file", windowed, 8, 0, 0, 0, {0, 128, 255}},
      {"full range without a window", ramp, 8, 0, 0, 0, {0, 128, 255}},
      {"12 bits out", windowed, 12, 0, 0, 0, {0, 2048, 4095}},
      {"the caller's window wins", narrowFile, 8, 0, 2048, 4096, {0, 128, 255}},
      {"the file's window", narrowFile, 8, 0, 0, 0, {0, 255, 255}},
      {"rescale, first window", ct, 8, 0, 0, 0, {0, 102, 128, 255}},
      {"sign taken from bits stored", signed12, 8, 0, 0, 0, {127, 0, 255}},
      {"MONOCHROME1 inverted", mono1, 8, 0, 0, 0, {255, 0}},
      {"second frame, its own range", frames, 8, 1, 0, 0, {0, 85, 170, 255}},
  };
  for (const Conversion& c : cases) {
    CPrintImage image;
    image.Bits = c.bits;
    image.Frame = c.frame;
    image.UseWindow = c.width > 0;
    image.WindowCenter = c.center;
    image.WindowWidth = c.width;
    ASSERT_TRUE(image.Convert(MakeImage(c.stored).get())) << c.label << KESTREL::GetLastErrorText();
    EXPECT_EQ(Output(image), c.expected) << c.label;
    EXPECT_EQ(image.GetRows(), c.stored.rows) << c.label;
    EXPECT_EQ(image.GetBitsStored(), c.bits) << c.label;
  }
}

TEST(CPrintImage, RefusesWhatItCannotPrint) {
  struct Refusal {
    const char* label;
    std::function<void(StoredImage&, CPrintImage&)> change;
    const char* reason;
  };
  const Refusal cases[] = {
      {"compressed", [](StoredImage& s, CPrintImage&) { s.syntax = "1.2.840.10008.1.2.4.50"; },
       "compressed pixel data (transfer syntax 1.2.840.10008.1.2.4.50) cannot be printed; "
       "decompress the image first"},
      {"colour", [](StoredImage& s, CPrintImage&) { s.samples = 3, s.photometric = "RGB"; },
       "only grayscale images (one sample per pixel) can be printed; this one has 3"},
      {"palette", [](StoredImage& s, CPrintImage&) { s.photometric = "PALETTE COLOR"; },
       "a PALETTE COLOR image cannot be printed in grayscale"},
      {"32 bits", [](StoredImage& s, CPrintImage&) { s.bitsAllocated = 32; },
       "32 bits allocated per pixel cannot be printed (only 8 or 16)"},
      {"high bit", [](StoredImage& s, CPrintImage&) { s.bitsAllocated = 8; },
       "bits stored and high bit do not fit the bits allocated"},
      {"no such frame", [](StoredImage& s, CPrintImage& i) { s.frames = "2", i.Frame = 2; },
       "frame 3 asked for, but the image has 2"},
      {"short", [](StoredImage& s, CPrintImage&) { s.values.resize(3); },
       "the pixel data is shorter than its rows, columns and frames say"},
      {"no width", [](StoredImage&, CPrintImage& i) { i.UseWindow = true; },
       "the window width must be at least 1"},
  };
  for (const Refusal& c : cases) {
    StoredImage stored;
    stored.values = {0, 1, 2, 3, 4, 5, 6, 7};
    stored.frames = "1";
    CPrintImage image;
    c.change(stored, image);
    EXPECT_FALSE(image.Convert(MakeImage(stored).get())) << c.label;
    EXPECT_EQ(KESTREL::GetLastErrorText(),
              std::string("KESTREL.dll : CPrintImage::Convert : ") + c.reason)
        << c.label;
    EXPECT_TRUE(image.IsEmpty()) << c.label;
  }
}

TEST(CPrintImage, LoadsFiles) {
  CPrintImage image;
  if (!image.Load(kSamples + "CT_small.dcm")) GTEST_SKIP() << "pydicom's samples not installed";
  EXPECT_EQ(image.GetRows(), 128);
  EXPECT_EQ(image.GetPixelDataLength(), 128u * 128u);
  EXPECT_FALSE(image.Load(kSamples + "JPEG-lossy.dcm"));
  EXPECT_NE(KESTREL::GetLastErrorText().find("transfer syntax 1.2.840.10008.1.2.4.51"),
            std::string::npos);
  EXPECT_FALSE(image.Load("/nonexistent/image.dcm"));
  EXPECT_EQ(KESTREL::GetLastErrorText(),
            "KESTREL.dll : CPrintImage::Load : cannot read /nonexistent/image.dcm");
}

}  // namespace
