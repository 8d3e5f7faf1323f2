#include "DirectoryWriter.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "DirectoryParser.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/UID.h"

namespace fs = std::filesystem;

namespace KESTREL::dicomdir {

namespace {

constexpr char kMediaStorageDirectory[] = "1.2.840.10008.1.3.10";
constexpr char kExplicitLittle[] = "1.2.840.10008.1.2.1";
constexpr size_t kMaxShortValue = 0xFFFE;

class Bytes {
 public:
  void U16(uint16_t v) {
    out_ += static_cast<char>(v & 0xFF);
    out_ += static_cast<char>(v >> 8);
  }
  void U32(uint32_t v) {
    U16(static_cast<uint16_t>(v & 0xFFFF));
    U16(static_cast<uint16_t>(v >> 16));
  }
  void Raw(const std::string& bytes) { out_ += bytes; }
  const std::string& Get() const { return out_; }
  size_t Size() const { return out_.size(); }

 private:
  std::string out_;
};

bool IsLongVR(const std::string& vr) {
  return vr == "OB" || vr == "OW" || vr == "SQ" || vr == "UN" || vr == "UT" || vr == "UC" ||
         vr == "UR";
}

std::string Padded(std::string value, const std::string& vr) {
  if (value.size() & 1) value += vr == "UI" || vr == "OB" ? '\0' : ' ';
  return value;
}

std::string U16Value(uint16_t v) {
  return std::string{static_cast<char>(v & 0xFF), static_cast<char>(v >> 8)};
}

std::string U32Value(uint32_t v) {
  return U16Value(v & 0xFFFF) + U16Value(static_cast<uint16_t>(v >> 16));
}

void Encode(Bytes& out, const OutElement& element);

// The elements in ascending tag order, as PS3.5 7.1 requires of a data set.
void EncodeAll(Bytes& out, std::vector<OutElement> elements) {
  std::stable_sort(elements.begin(), elements.end(),
                   [](const OutElement& a, const OutElement& b) { return a.tag < b.tag; });
  for (const OutElement& element : elements) Encode(out, element);
}

void Encode(Bytes& out, const OutElement& element) {
  std::string value = element.value;
  if (element.vr == "SQ") {
    Bytes item;
    EncodeAll(item, element.item);
    Bytes items;
    if (!element.item.empty()) {
      items.U16(0xFFFE);
      items.U16(0xE000);
      items.U32(static_cast<uint32_t>(item.Size()));
      items.Raw(item.Get());
    }
    value = items.Get();
  } else {
    if (!IsLongVR(element.vr) && value.size() > kMaxShortValue) value.resize(kMaxShortValue);
    value = Padded(value, element.vr);
  }
  out.U16(static_cast<uint16_t>(element.tag >> 16));
  out.U16(static_cast<uint16_t>(element.tag & 0xFFFF));
  out.Raw(element.vr.substr(0, 2));
  if (IsLongVR(element.vr)) {
    out.U16(0);
    out.U32(static_cast<uint32_t>(value.size()));
  } else {
    out.U16(static_cast<uint16_t>(value.size()));
  }
  out.Raw(value);
}

OutElement Text(uint32_t tag, const char* vr, const std::string& value) {
  return {tag, vr, value, {}};
}

// A record flattened in the order of the sequence (pre-order), with its links by index.
struct Flat {
  const OutRecord* record;
  int next = -1;
  int lower = -1;
  uint32_t offset = 0;
  uint32_t size = 0;  // of its item, header included
};

int Flatten(const std::vector<OutRecord>& records, std::vector<Flat>& flat) {
  int first = -1, previous = -1;
  for (const OutRecord& record : records) {
    int index = static_cast<int>(flat.size());
    flat.push_back({&record});
    if (previous >= 0) flat[previous].next = index;
    if (first < 0) first = index;
    previous = index;
    int lower = Flatten(record.children, flat);
    flat[index].lower = lower;
  }
  return first;
}

std::string Join(const std::vector<std::string>& parts, char separator) {
  std::string out;
  for (const std::string& part : parts)
    out += (out.empty() ? "" : std::string(1, separator)) + part;
  return out;
}

// The item content of a record (PS3.3 F.3.2.2), with its links.
std::string EncodeRecord(const Flat& flat, const std::vector<Flat>& all) {
  const OutRecord& record = *flat.record;
  std::vector<OutElement> elements = record.keys;
  elements.push_back(
      {Tag(0x0004, 0x1400), "UL", U32Value(flat.next >= 0 ? all[flat.next].offset : 0), {}});
  elements.push_back({Tag(0x0004, 0x1410), "US", U16Value(0xFFFF), {}});
  elements.push_back(
      {Tag(0x0004, 0x1420), "UL", U32Value(flat.lower >= 0 ? all[flat.lower].offset : 0), {}});
  elements.push_back(Text(Tag(0x0004, 0x1430), "CS", record.type));
  if (!record.fileID.empty()) {
    elements.push_back(Text(Tag(0x0004, 0x1500), "CS", Join(record.fileID, '\\')));
    elements.push_back(Text(Tag(0x0004, 0x1510), "UI", record.sopClassUID));
    elements.push_back(Text(Tag(0x0004, 0x1511), "UI", record.sopInstanceUID));
    elements.push_back(Text(Tag(0x0004, 0x1512), "UI", record.transferSyntaxUID));
  }
  Bytes out;
  EncodeAll(out, elements);
  return out.Get();
}

std::string MetaGroup() {
  DICOMCodec codec;
  std::string implementation, version;
  codec.GetImplementationClass(implementation);
  codec.GetImplementationVersion(version);
  Bytes group;
  EncodeAll(group, {{Tag(0x0002, 0x0001), "OB", std::string("\0\1", 2), {}},
                    Text(Tag(0x0002, 0x0002), "UI", kMediaStorageDirectory),
                    Text(Tag(0x0002, 0x0003), "UI", GenerateUID().ToString()),
                    Text(Tag(0x0002, 0x0010), "UI", kExplicitLittle),
                    Text(Tag(0x0002, 0x0012), "UI", implementation),
                    Text(Tag(0x0002, 0x0013), "SH", version)});
  Bytes meta;
  Encode(meta, {Tag(0x0002, 0x0000), "UL", U32Value(static_cast<uint32_t>(group.Size())), {}});
  meta.Raw(group.Get());
  return meta.Get();
}

std::string DirectoryAttributes(const std::string& fileSetID, uint32_t first, uint32_t last) {
  Bytes out;
  EncodeAll(out, {Text(Tag(0x0004, 0x1130), "CS", fileSetID),
                  {Tag(0x0004, 0x1200), "UL", U32Value(first), {}},
                  {Tag(0x0004, 0x1202), "UL", U32Value(last), {}},
                  {Tag(0x0004, 0x1212), "US", U16Value(0), {}}});
  return out.Get();
}

bool WriteFile(const std::string& path, const std::string& bytes, std::string& error) {
  const std::string temporary = path + ".kestrel-new";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    if (!out || !out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())) ||
        !out.flush()) {
      std::error_code ignored;
      fs::remove(temporary, ignored);
      error = "cannot write " + temporary;
      return false;
    }
  }
  std::error_code ec;
  fs::rename(temporary, path, ec);
  if (ec) {
    fs::remove(temporary, ec);
    error = "cannot write " + path;
    return false;
  }
  return true;
}

}  // namespace

bool WriteDirectory(const std::string& path, const std::string& fileSetID,
                    const std::vector<OutRecord>& roots, std::string& error) {
  std::vector<Flat> flat;
  int first = Flatten(roots, flat);
  // The item sizes do not depend on the offsets they hold: measure, place, then encode.
  for (Flat& f : flat) f.size = static_cast<uint32_t>(8 + EncodeRecord(f, flat).size());
  const std::string meta = MetaGroup();
  const size_t sequenceHeader = 12;
  uint64_t at = 132 + meta.size() + DirectoryAttributes(fileSetID, 0, 0).size() + sequenceHeader;
  for (Flat& f : flat) {
    if (at + f.size > 0xFFFFFFFFu) {
      error = "the directory is too large for 32-bit record offsets";
      return false;
    }
    f.offset = static_cast<uint32_t>(at);
    at += f.size;
  }
  int last = first;
  while (last >= 0 && flat[last].next >= 0) last = flat[last].next;
  Bytes items;
  for (const Flat& f : flat) {
    std::string content = EncodeRecord(f, flat);
    items.U16(0xFFFE);
    items.U16(0xE000);
    items.U32(static_cast<uint32_t>(content.size()));
    items.Raw(content);
  }
  Bytes sequence;
  sequence.U16(0x0004);
  sequence.U16(0x1220);
  sequence.Raw("SQ");
  sequence.U16(0);
  sequence.U32(static_cast<uint32_t>(items.Size()));
  std::string file(128, '\0');
  file += "DICM" + meta +
          DirectoryAttributes(fileSetID, first >= 0 ? flat[first].offset : 0,
                              last >= 0 ? flat[last].offset : 0) +
          sequence.Get() + items.Get();
  return WriteFile(path, file, error);
}

}  // namespace KESTREL::dicomdir
