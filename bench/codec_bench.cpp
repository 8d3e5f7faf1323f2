// Microbenchmarks of the codec: decode and encode of an in-memory CT-like data set in implicit
// and explicit VR little endian, and the file reader and writer on a temporary file.
//
// Run: build-bench/bin/kestrel_bench [--benchmark_filter=REGEX] [--benchmark_repetitions=N]
// Figures go in docs/performance.md; nothing here asserts a time.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/ByteBuffer.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/PDU_Service.h"

namespace {

constexpr int kImplicitLittle = 100;
constexpr int kExplicitLittle = 101;
constexpr const char* kExplicitLittleUID = "1.2.840.10008.1.2.1";

// One header element of the synthetic CT image. Text values are given as they are; numbers
// of binary VRs are given separately.
struct TextElement {
  uint16_t group;
  uint16_t element;
  char vr[3];
  const char* value;
};

// Around eighty elements, as a CT scanner writes them for one axial slice.
const TextElement kCTHeader[] = {
    {0x0008, 0x0005, "CS", "ISO_IR 100"},
    {0x0008, 0x0008, "CS", "ORIGINAL\\PRIMARY\\AXIAL"},
    {0x0008, 0x0012, "DA", "20240115"},
    {0x0008, 0x0013, "TM", "101530.123000"},
    {0x0008, 0x0016, "UI", "1.2.840.10008.5.1.4.1.1.2"},
    {0x0008, 0x0018, "UI", "1.2.826.0.1.3680043.9.7412.1.20240115101530.42.117"},
    {0x0008, 0x0020, "DA", "20240115"},
    {0x0008, 0x0021, "DA", "20240115"},
    {0x0008, 0x0022, "DA", "20240115"},
    {0x0008, 0x0023, "DA", "20240115"},
    {0x0008, 0x0030, "TM", "101204.000000"},
    {0x0008, 0x0031, "TM", "101455.000000"},
    {0x0008, 0x0032, "TM", "101512.650000"},
    {0x0008, 0x0033, "TM", "101530.123000"},
    {0x0008, 0x0050, "SH", "A2024011500123"},
    {0x0008, 0x0060, "CS", "CT"},
    {0x0008, 0x0070, "LO", "Kestrel Test Scanners"},
    {0x0008, 0x0080, "LO", "General Hospital"},
    {0x0008, 0x0090, "PN", "Referrer^Robert"},
    {0x0008, 0x1010, "SH", "CTSTATION01"},
    {0x0008, 0x1030, "LO", "CT CHEST ABDOMEN PELVIS W CONTRAST"},
    {0x0008, 0x103E, "LO", "AXIAL 1.0 SOFT TISSUE"},
    {0x0008, 0x1040, "LO", "RADIOLOGY"},
    {0x0008, 0x1090, "LO", "Model 64"},
    {0x0010, 0x0010, "PN", "Doe^Jane"},
    {0x0010, 0x0020, "LO", "PID000123456"},
    {0x0010, 0x0030, "DA", "19620304"},
    {0x0010, 0x0040, "CS", "F"},
    {0x0010, 0x1010, "AS", "061Y"},
    {0x0010, 0x1020, "DS", "1.68"},
    {0x0010, 0x1030, "DS", "71.5"},
    {0x0018, 0x0015, "CS", "CHEST"},
    {0x0018, 0x0022, "CS", "HELICAL MODE"},
    {0x0018, 0x0050, "DS", "1.0"},
    {0x0018, 0x0060, "DS", "120"},
    {0x0018, 0x0088, "DS", "1.0"},
    {0x0018, 0x0090, "DS", "500.0"},
    {0x0018, 0x1000, "LO", "SN64-00917"},
    {0x0018, 0x1020, "LO", "VA48A"},
    {0x0018, 0x1030, "LO", "CAP_ROUTINE"},
    {0x0018, 0x1100, "DS", "360.0"},
    {0x0018, 0x1110, "DS", "1085.6"},
    {0x0018, 0x1111, "DS", "595.0"},
    {0x0018, 0x1120, "DS", "0.0"},
    {0x0018, 0x1130, "DS", "152.5"},
    {0x0018, 0x1140, "CS", "CW"},
    {0x0018, 0x1150, "IS", "500"},
    {0x0018, 0x1151, "IS", "280"},
    {0x0018, 0x1152, "IS", "140"},
    {0x0018, 0x1160, "SH", "BODY FILTER"},
    {0x0018, 0x1170, "IS", "34"},
    {0x0018, 0x1190, "DS", "1.2"},
    {0x0018, 0x1210, "SH", "B30f"},
    {0x0018, 0x5100, "CS", "FFS"},
    {0x0020, 0x000D, "UI", "1.2.826.0.1.3680043.9.7412.1.20240115101204"},
    {0x0020, 0x000E, "UI", "1.2.826.0.1.3680043.9.7412.1.20240115101204.3"},
    {0x0020, 0x0010, "SH", "4711"},
    {0x0020, 0x0011, "IS", "3"},
    {0x0020, 0x0012, "IS", "1"},
    {0x0020, 0x0013, "IS", "117"},
    {0x0020, 0x0032, "DS", "-179.6484375\\-179.6484375\\-117.0"},
    {0x0020, 0x0037, "DS", "1\\0\\0\\0\\1\\0"},
    {0x0020, 0x0052, "UI", "1.2.826.0.1.3680043.9.7412.1.20240115101204.1"},
    {0x0020, 0x1040, "LO", ""},
    {0x0020, 0x1041, "DS", "-117.0"},
    {0x0028, 0x0004, "CS", "MONOCHROME2"},
    {0x0028, 0x0030, "DS", "0.703125\\0.703125"},
    {0x0028, 0x1050, "DS", "40"},
    {0x0028, 0x1051, "DS", "400"},
    {0x0028, 0x1052, "DS", "-1024"},
    {0x0028, 0x1053, "DS", "1"},
    {0x0028, 0x1054, "LO", "HU"},
};

uint16_t Code(const char* vr) { return MakeTypeCode(vr[0], vr[1]); }

// A `new char[]` copy of `value`, padded to even length (UI with NUL, other text with a space).
VR* MakeText(uint16_t group, uint16_t element, const char* vr, const char* value) {
  size_t length = std::strlen(value);
  size_t padded = length + (length & 1);
  char* data = padded ? new char[padded] : nullptr;
  if (length) std::memcpy(data, value, length);
  if (padded != length) data[length] = std::strcmp(vr, "UI") == 0 ? '\0' : ' ';
  VR* element_vr = new VR(group, element, static_cast<uint32_t>(padded), data);
  element_vr->TypeCode = Code(vr);
  return element_vr;
}

template <class T>
VR* MakeBinary(uint16_t group, uint16_t element, const char* vr, T value) {
  char* data = new char[sizeof value];
  std::memcpy(data, &value, sizeof value);
  VR* element_vr = new VR(group, element, sizeof value, data);
  element_vr->TypeCode = Code(vr);
  return element_vr;
}

void Push(DICOMObject* object, VR* element) {
  if (!object->Push(element)) delete element;
}

// Pixel values shared by every data set built: the element only points at them.
const std::vector<uint16_t>& Pixels(int side) {
  static std::vector<uint16_t> pixels512, pixels64;
  std::vector<uint16_t>& pixels = side == 512 ? pixels512 : pixels64;
  if (pixels.empty()) {
    pixels.resize(static_cast<size_t>(side) * side);
    uint32_t state = 12345;
    for (auto& p : pixels) {
      state = state * 1664525u + 1013904223u;
      p = static_cast<uint16_t>((state >> 16) & 0x0FFF);
    }
  }
  return pixels;
}

// The CT-like data set: the header above, a procedure code sequence, the image pixel module
// numbers and `side` x `side` 16-bit pixels.
DICOMDataObject* BuildCT(int side) {
  auto* object = new DICOMDataObject;
  for (const TextElement& e : kCTHeader) Push(object, MakeText(e.group, e.element, e.vr, e.value));

  Push(object, MakeBinary<uint16_t>(0x0028, 0x0002, "US", 1));
  Push(object, MakeBinary<uint16_t>(0x0028, 0x0010, "US", static_cast<uint16_t>(side)));
  Push(object, MakeBinary<uint16_t>(0x0028, 0x0011, "US", static_cast<uint16_t>(side)));
  Push(object, MakeBinary<uint16_t>(0x0028, 0x0100, "US", 16));
  Push(object, MakeBinary<uint16_t>(0x0028, 0x0101, "US", 12));
  Push(object, MakeBinary<uint16_t>(0x0028, 0x0102, "US", 11));
  Push(object, MakeBinary<uint16_t>(0x0028, 0x0103, "US", 0));
  Push(object, MakeBinary<double>(0x0018, 0x9305, "FD", 0.5));
  Push(object, MakeBinary<double>(0x0018, 0x9306, "FD", 0.6));
  Push(object, MakeBinary<double>(0x0018, 0x9307, "FD", 38.4));
  Push(object, MakeBinary<double>(0x0018, 0x9309, "FD", 46.08));
  Push(object, MakeBinary<double>(0x0018, 0x9310, "FD", 23.04));
  Push(object, MakeBinary<double>(0x0018, 0x9311, "FD", 0.6));

  // (0008,1032) Procedure Code Sequence with one item.
  auto* sequence = new VR(0x0008, 0x1032, 0, nullptr);
  sequence->TypeCode = Code("SQ");
  Push(object, sequence);
  auto* item = new DICOMDataObject;
  Push(item, MakeText(0x0008, 0x0100, "SH", "CTCAP"));
  Push(item, MakeText(0x0008, 0x0102, "SH", "LOCAL"));
  Push(item, MakeText(0x0008, 0x0104, "LO", "CT CHEST ABDOMEN PELVIS W CONTRAST"));
  if (!object->PushItem(item)) delete item;

  const std::vector<uint16_t>& pixels = Pixels(side);
  auto* pixelData = new VR(0x7FE0, 0x0010, static_cast<uint32_t>(pixels.size() * 2),
                           const_cast<uint16_t*>(pixels.data()), false);
  pixelData->TypeCode = Code("OW");
  Push(object, pixelData);
  return object;
}

// Feeds a byte string to a buffer the way a file does, so that a large value is read straight
// into its element.
class MemorySource : public ByteBuffer::Source {
 public:
  MemorySource(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  size_t Read(void* out, size_t length) override {
    size_t n = std::min(length, size_ - position_);
    std::memcpy(out, data_ + position_, n);
    position_ += n;
    return n;
  }
  uint64_t Remaining() override { return size_ - position_; }
  bool Skip(uint64_t length) override {
    if (length > Remaining()) return false;
    position_ += length;
    return true;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t position_ = 0;
};

std::vector<uint8_t> EncodedCT(int side, int mode) {
  PDU_Service service;
  std::unique_ptr<DICOMDataObject> object(BuildCT(side));
  ByteBuffer buffer;
  service.Encode(object.get(), buffer, mode, true);
  return std::vector<uint8_t>(buffer.Data(), buffer.Data() + buffer.Size());
}

void BM_Decode(benchmark::State& state) {
  int side = static_cast<int>(state.range(0));
  int mode = static_cast<int>(state.range(1));
  std::vector<uint8_t> encoded = EncodedCT(side, mode);
  PDU_Service service;
  for (auto _ : state) {
    MemorySource source(encoded.data(), encoded.size());
    ByteBuffer buffer;
    buffer.AttachSource(&source);
    DICOMDataObject object;
    if (!service.Decode(buffer, &object, mode)) state.SkipWithError("decode failed");
    benchmark::DoNotOptimize(object.Groups.GetSize());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(encoded.size()));
  state.counters["bytes"] = static_cast<double>(encoded.size());
}

void BM_Encode(benchmark::State& state) {
  int side = static_cast<int>(state.range(0));
  int mode = static_cast<int>(state.range(1));
  PDU_Service service;
  ByteBuffer buffer;
  size_t bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    DICOMDataObject* object = BuildCT(side);
    buffer.Clear();
    state.ResumeTiming();
    if (!service.Encode(object, buffer, mode, true)) state.SkipWithError("encode failed");
    bytes = buffer.Size();
    benchmark::DoNotOptimize(buffer.Data());
    state.PauseTiming();
    delete object;
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
  state.counters["bytes"] = static_cast<double>(bytes);
}

// Build and destroy alone, to put the encode figures above (which exclude them) in context.
void BM_BuildAndDestroy(benchmark::State& state) {
  int side = static_cast<int>(state.range(0));
  for (auto _ : state) {
    DICOMDataObject* object = BuildCT(side);
    benchmark::DoNotOptimize(object);
    delete object;
  }
}

std::string TempPath(const char* what) {
  const char* dir = std::getenv("TMPDIR");
  return std::string(dir && *dir ? dir : "/tmp") + "/kestrel_bench_" + what + "_" +
         std::to_string(getpid()) + ".dcm";
}

long FileSize(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return -1;
  std::fseek(file, 0, SEEK_END);
  long size = std::ftell(file);
  std::fclose(file);
  return size;
}

void BM_LoadFile(benchmark::State& state) {
  int side = static_cast<int>(state.range(0));
  std::string path = TempPath("load");
  PDU_Service service;
  {
    DICOMDataObject* object = BuildCT(side);
    bool saved = service.SaveFile(path.c_str(), 3, object, kExplicitLittleUID);
    delete object;
    if (!saved) {
      state.SkipWithError("cannot write the temporary file");
      return;
    }
  }
  long size = FileSize(path);
  for (auto _ : state) {
    DICOMDataObject* object = service.LoadFile(path.c_str());
    if (!object || !service.WasLastLoadComplete()) state.SkipWithError("load failed");
    benchmark::DoNotOptimize(object);
    delete object;
  }
  std::remove(path.c_str());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
  state.counters["bytes"] = static_cast<double>(size);
}

void BM_SaveFile(benchmark::State& state) {
  int side = static_cast<int>(state.range(0));
  std::string path = TempPath("save");
  PDU_Service service;
  for (auto _ : state) {
    state.PauseTiming();
    DICOMDataObject* object = BuildCT(side);
    state.ResumeTiming();
    if (!service.SaveFile(path.c_str(), 3, object, kExplicitLittleUID))
      state.SkipWithError("save failed");
    state.PauseTiming();
    delete object;
    state.ResumeTiming();
  }
  long size = FileSize(path);
  std::remove(path.c_str());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
  state.counters["bytes"] = static_cast<double>(size);
}

// Arguments: image side (512: a CT slice; 64: a small image, where the header dominates), mode.
void CodecArgs(benchmark::internal::Benchmark* b) {
  for (int side : {512, 64})
    for (int mode : {kImplicitLittle, kExplicitLittle}) b->Args({side, mode});
  b->ArgNames({"side", "mode"});
}

void SideArgs(benchmark::internal::Benchmark* b) {
  b->Arg(512)->Arg(64);
  b->ArgName("side");
}

}  // namespace

BENCHMARK(BM_Decode)->Apply(CodecArgs);
BENCHMARK(BM_Encode)->Apply(CodecArgs);
BENCHMARK(BM_BuildAndDestroy)->Apply(SideArgs);
BENCHMARK(BM_LoadFile)->Apply(SideArgs);
BENCHMARK(BM_SaveFile)->Apply(SideArgs);

BENCHMARK_MAIN();
