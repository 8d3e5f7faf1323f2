#include "kestrel/CPrintImage.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "PrintExchange.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/Status.h"

namespace {

using KESTREL::print::TextOf;

// The transfer syntaxes whose pixel data is native (PS3.5 8.1.1).
constexpr const char* kNativeSyntaxes[] = {"1.2.840.10008.1.2", "1.2.840.10008.1.2.1",
                                           "1.2.840.10008.1.2.2"};

// Image Pixel Module (PS3.3 C.7.6.3), Multi-frame (C.7.6.6), Modality LUT (C.11.1) and VOI LUT
// (C.11.2) attributes read here.
constexpr uint16_t kImageGroup = 0x0028;
constexpr uint16_t kSamplesPerPixel = 0x0002;
constexpr uint16_t kPhotometricInterpretation = 0x0004;
constexpr uint16_t kNumberOfFrames = 0x0008;
constexpr uint16_t kRows = 0x0010;
constexpr uint16_t kColumns = 0x0011;
constexpr uint16_t kBitsAllocated = 0x0100;
constexpr uint16_t kBitsStored = 0x0101;
constexpr uint16_t kHighBit = 0x0102;
constexpr uint16_t kPixelRepresentation = 0x0103;
constexpr uint16_t kWindowCenter = 0x1050;
constexpr uint16_t kWindowWidth = 0x1051;
constexpr uint16_t kRescaleIntercept = 0x1052;
constexpr uint16_t kRescaleSlope = 0x1053;

// How the stored values of one frame are laid out and what they mean.
struct Layout {
  uint32_t rows = 0;
  uint32_t columns = 0;
  uint32_t bitsAllocated = 0;
  uint32_t bitsStored = 0;
  uint32_t highBit = 0;
  bool isSigned = false;
  bool monochrome1 = false;
  uint32_t frames = 1;
  double slope = 1;
  double intercept = 0;
};

// A US value, or `fallback` when the element is missing or not two bytes long.
uint32_t UnsignedOf(DICOMDataObject* data, uint16_t element, uint32_t fallback) {
  VR* vr = data->Find(kImageGroup, element);
  if (!vr || !vr->Data || vr->Length != 2) return fallback;
  return data->GetUInt16(kImageGroup, element);
}

// The first value of a DS or IS text; false when it is missing or not a finite number.
bool NumberOf(DICOMDataObject* data, uint16_t element, double& value) {
  std::string text = TextOf(data, kImageGroup, element);
  text = text.substr(0, text.find('\\'));
  const char* start = text.c_str();
  while (*start == ' ') ++start;
  char* end = nullptr;
  double parsed = std::strtod(start, &end);
  if (end == start || !std::isfinite(parsed)) return false;
  while (*end == ' ') ++end;
  if (*end) return false;
  value = parsed;
  return true;
}

bool IsNativeSyntax(const std::string& uid) {
  for (const char* native : kNativeSyntaxes) {
    if (uid == native) return true;
  }
  return false;
}

// Reads and checks the layout; the reason in `reason` when the image cannot be printed.
bool ReadLayout(DICOMDataObject* data, Layout& layout, std::string& reason) {
  uint32_t samples = UnsignedOf(data, kSamplesPerPixel, 1);
  if (samples != 1) {
    reason = "only grayscale images (one sample per pixel) can be printed; this one has " +
             std::to_string(samples);
    return false;
  }
  std::string photometric = TextOf(data, kImageGroup, kPhotometricInterpretation);
  if (!photometric.empty() && photometric != "MONOCHROME1" && photometric != "MONOCHROME2") {
    reason = "a " + photometric + " image cannot be printed in grayscale";
    return false;
  }
  layout.monochrome1 = photometric == "MONOCHROME1";
  layout.rows = UnsignedOf(data, kRows, 0);
  layout.columns = UnsignedOf(data, kColumns, 0);
  if (!layout.rows || !layout.columns) {
    reason = "the image has no rows or columns";
    return false;
  }
  layout.bitsAllocated = UnsignedOf(data, kBitsAllocated, 0);
  if (layout.bitsAllocated != 8 && layout.bitsAllocated != 16) {
    reason = std::to_string(layout.bitsAllocated) +
             " bits allocated per pixel cannot be printed (only 8 or 16)";
    return false;
  }
  layout.bitsStored = UnsignedOf(data, kBitsStored, layout.bitsAllocated);
  layout.highBit = UnsignedOf(data, kHighBit, layout.bitsStored - 1);
  if (layout.bitsStored < 1 || layout.highBit >= layout.bitsAllocated ||
      layout.highBit + 1 < layout.bitsStored) {
    reason = "bits stored and high bit do not fit the bits allocated";
    return false;
  }
  layout.isSigned = UnsignedOf(data, kPixelRepresentation, 0) == 1;
  double frames = 1;
  if (NumberOf(data, kNumberOfFrames, frames) && frames >= 1 && frames <= UINT32_MAX)
    layout.frames = static_cast<uint32_t>(frames);
  NumberOf(data, kRescaleSlope, layout.slope);
  NumberOf(data, kRescaleIntercept, layout.intercept);
  return true;
}

// The stored value of pixel `index` of a frame starting at `frame`.
int32_t StoredValue(const uint8_t* frame, size_t index, const Layout& layout) {
  uint32_t raw;
  if (layout.bitsAllocated == 8) {
    raw = frame[index];
  } else {
    uint16_t word;
    std::memcpy(&word, frame + 2 * index, 2);
    raw = word;
  }
  raw = (raw >> (layout.highBit + 1 - layout.bitsStored)) & ((1u << layout.bitsStored) - 1);
  if (layout.isSigned && (raw >> (layout.bitsStored - 1)) & 1)
    return static_cast<int32_t>(raw) - static_cast<int32_t>(1u << layout.bitsStored);
  return static_cast<int32_t>(raw);
}

// The window over the whole range of the frame's rescaled values: its lowest value maps to
// the bottom of the output and its highest to the top.
void FullRange(const uint8_t* frame, const Layout& layout, double& center, double& width) {
  size_t count = size_t{layout.rows} * layout.columns;
  int32_t low = StoredValue(frame, 0, layout);
  int32_t high = low;
  for (size_t i = 1; i < count; ++i) {
    int32_t value = StoredValue(frame, i, layout);
    if (value < low) low = value;
    if (value > high) high = value;
  }
  double a = low * layout.slope + layout.intercept;
  double b = high * layout.slope + layout.intercept;
  double lowest = std::fmin(a, b);
  double highest = std::fmax(a, b);
  width = highest - lowest + 1;
  center = lowest + width / 2;
}

// The linear VOI function, PS3.3 C.11.2.1.2, onto 0..top.
double Windowed(double x, double center, double width, double top) {
  if (width <= 1) return x <= center - 0.5 ? 0 : top;
  double lower = center - 0.5 - (width - 1) / 2;
  double upper = center - 0.5 + (width - 1) / 2;
  if (x <= lower) return 0;
  if (x > upper) return top;
  return ((x - (center - 0.5)) / (width - 1) + 0.5) * top;
}

}  // namespace

CPrintImage::CPrintImage() = default;
CPrintImage::~CPrintImage() = default;

bool CPrintImage::Fail(const char* operation, const std::string& reason) {
  pixels_.clear();
  rows_ = columns_ = 0;
  KESTREL::SetLastErrorText(std::string("KESTREL.dll : CPrintImage::") + operation + " : " +
                            reason);
  return false;
}

bool CPrintImage::Convert(DICOMDataObject* pDDO) {
  if (!pDDO) return Fail("Convert", "no data set");
  if (Bits != 8 && Bits != 12) return Fail("Convert", "the output must have 8 or 12 bits");
  if (UseWindow && !(WindowWidth >= 1))
    return Fail("Convert", "the window width must be at least 1");
  std::string syntax = TextOf(pDDO, 0x0002, 0x0010);
  VR* pixelData = pDDO->Find(0x7FE0, 0x0010);
  if (!pixelData) return Fail("Convert", "the data set holds no pixel data");
  if (pixelData->SequenceItems || (!syntax.empty() && !IsNativeSyntax(syntax)))
    return Fail("Convert", "compressed pixel data (transfer syntax " + syntax +
                               ") cannot be printed; decompress the image first");
  Layout layout;
  std::string reason;
  if (!ReadLayout(pDDO, layout, reason)) return Fail("Convert", reason);
  if (Frame >= layout.frames)
    return Fail("Convert", "frame " + std::to_string(Frame + 1) + " asked for, but the image has " +
                               std::to_string(layout.frames));
  uint64_t frameBytes = uint64_t{layout.rows} * layout.columns * (layout.bitsAllocated / 8);
  if (!pixelData->Data || (uint64_t{Frame} + 1) * frameBytes > pixelData->Length)
    return Fail("Convert", "the pixel data is shorter than its rows, columns and frames say");
  const uint8_t* frame = static_cast<const uint8_t*>(pixelData->Data) + Frame * frameBytes;

  double center = WindowCenter;
  double width = WindowWidth;
  if (!UseWindow &&
      !(NumberOf(pDDO, kWindowCenter, center) && NumberOf(pDDO, kWindowWidth, width) && width >= 1))
    FullRange(frame, layout, center, width);

  bits_ = static_cast<uint16_t>(Bits);
  rows_ = static_cast<uint16_t>(layout.rows);
  columns_ = static_cast<uint16_t>(layout.columns);
  appliedCenter_ = center;
  appliedWidth_ = width;
  const double top = (1u << bits_) - 1;
  size_t count = size_t{layout.rows} * layout.columns;
  pixels_.assign(count * (bits_ == 8 ? 1 : 2), 0);
  for (size_t i = 0; i < count; ++i) {
    double x = StoredValue(frame, i, layout) * layout.slope + layout.intercept;
    double y = std::round(Windowed(x, center, width, top));
    if (layout.monochrome1) y = top - y;
    if (bits_ == 8) {
      pixels_[i] = static_cast<uint8_t>(y);
    } else {
      uint16_t word = static_cast<uint16_t>(y);
      std::memcpy(&pixels_[2 * i], &word, 2);
    }
  }
  return true;
}

bool CPrintImage::Load(const std::string& path) {
  DICOMCodec codec;
  std::unique_ptr<DICOMDataObject> data(codec.LoadFile(path.c_str()));
  if (!data) return Fail("Load", "cannot read " + path);
  if (!codec.WasLastLoadComplete()) return Fail("Load", path + " is damaged or cut short");
  if (!Convert(data.get())) {
    KESTREL::SetLastErrorText(KESTREL::GetLastErrorText() + " (" + path + ")");
    return false;
  }
  return true;
}
