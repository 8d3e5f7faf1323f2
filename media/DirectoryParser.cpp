#include "DirectoryParser.h"

#include <cstring>

namespace KESTREL::dicomdir {

namespace {

constexpr uint32_t kUndefined = 0xFFFFFFFF;
constexpr uint16_t kItemGroup = 0xFFFE;
constexpr uint16_t kItem = 0xE000, kItemEnd = 0xE00D, kSequenceEnd = 0xE0DD;
constexpr uint32_t kRecordSequence = Tag(0x0004, 0x1220);

enum class Syntax { kImplicitLittle, kExplicitLittle, kExplicitBig };

struct Header {
  uint16_t group = 0;
  uint16_t element = 0;
  char vr[2] = {0, 0};
  uint32_t length = 0;
  size_t value = 0;  // where the value starts
};

// PS3.5 7.1.2: the explicit VRs whose length takes four bytes after two reserved ones.
bool HasLongLength(const char* vr) {
  static const char* const kLong[] = {"OB", "OD", "OF", "OL", "OV", "OW", "SQ",
                                      "SV", "UC", "UN", "UR", "UT", "UV"};
  for (const char* l : kLong)
    if (vr[0] == l[0] && vr[1] == l[1]) return true;
  return false;
}

class Reader {
 public:
  Reader(const std::vector<uint8_t>& bytes, Syntax syntax) : bytes_(bytes), syntax_(syntax) {}

  const std::string& Error() const { return error_; }
  void SetSyntax(Syntax syntax) { syntax_ = syntax; }

  uint16_t U16(size_t at) const {
    const uint8_t* p = &bytes_[at];
    return Big() ? static_cast<uint16_t>(p[0] << 8 | p[1])
                 : static_cast<uint16_t>(p[1] << 8 | p[0]);
  }
  uint32_t U32(size_t at) const {
    return Big() ? static_cast<uint32_t>(U16(at)) << 16 | U16(at + 2)
                 : static_cast<uint32_t>(U16(at + 2)) << 16 | U16(at);
  }

  // The element header at `at`, which must lie before `end`.
  bool ReadHeader(size_t at, size_t end, Header& header) {
    if (at > end || end - at < 8) return Fail(at, "an element header runs past its end");
    header.group = U16(at);
    header.element = U16(at + 2);
    bool explicitVR = syntax_ != Syntax::kImplicitLittle && header.group != kItemGroup;
    if (!explicitVR) {
      header.vr[0] = header.vr[1] = 0;
      header.length = U32(at + 4);
      header.value = at + 8;
    } else {
      header.vr[0] = static_cast<char>(bytes_[at + 4]);
      header.vr[1] = static_cast<char>(bytes_[at + 5]);
      if (HasLongLength(header.vr)) {
        if (end - at < 12) return Fail(at, "an element header runs past its end");
        header.length = U32(at + 8);
        header.value = at + 12;
      } else {
        header.length = U16(at + 6);
        header.value = at + 8;
      }
    }
    if (header.length != kUndefined && header.length > end - header.value)
      return Fail(at, "a value runs past its end");
    return true;
  }

  // Passes over the items of an undefined-length value that starts at `at`; `next` is where
  // the sequence delimiter ends.
  bool SkipItems(size_t at, size_t end, int depth, size_t& next) {
    if (depth > kMaxDepth) return Fail(at, "sequences are nested too deep");
    for (;;) {
      Header item;
      if (!ReadHeader(at, end, item)) return false;
      if (item.group == kItemGroup && item.element == kSequenceEnd) {
        next = item.value;
        return true;
      }
      if (item.group != kItemGroup || item.element != kItem) return Fail(at, "an item is expected");
      if (item.length == kUndefined) {
        if (!SkipElements(item.value, end, depth + 1, at)) return false;
      } else {
        at = item.value + item.length;
      }
    }
  }

  // Passes over elements up to an item delimiter; `next` is where the delimiter ends.
  bool SkipElements(size_t at, size_t end, int depth, size_t& next) {
    for (;;) {
      Header header;
      if (!ReadHeader(at, end, header)) return false;
      if (header.group == kItemGroup && header.element == kItemEnd) {
        next = header.value;
        return true;
      }
      if (!ValueEnd(header, end, depth, at)) return false;
    }
  }

  // Where the element whose header was read ends.
  bool ValueEnd(const Header& header, size_t end, int depth, size_t& next) {
    if (header.length != kUndefined) {
      next = header.value + header.length;
      return true;
    }
    return SkipItems(header.value, end, depth + 1, next);
  }

  // The top-level elements of one record between `at` and `end` (an undefined-length item
  // ends at its delimiter, which sets `next`).
  bool ReadRecord(size_t at, size_t end, bool untilDelimiter, Record& record, size_t& next) {
    while (untilDelimiter || at < end) {
      Header header;
      if (!ReadHeader(at, end, header)) return false;
      if (header.group == kItemGroup && header.element == kItemEnd) {
        if (!untilDelimiter) return Fail(at, "an item delimiter in a defined-length item");
        next = header.value;
        return true;
      }
      if (header.length != kUndefined && !IsSequence(header))
        record.values[Tag(header.group, header.element)] =
            std::string(reinterpret_cast<const char*>(&bytes_[header.value]), header.length);
      if (!ValueEnd(header, end, 1, at)) return false;
    }
    next = at;
    return true;
  }

  // The items of the Directory Record Sequence, whose value starts at `at`.
  bool ReadRecords(const Header& sequence, size_t fileEnd, Directory& directory) {
    const bool defined = sequence.length != kUndefined;
    const size_t end = defined ? sequence.value + sequence.length : fileEnd;
    size_t at = sequence.value;
    while (!defined || at < end) {
      Header item;
      if (end - at < 8) return Fail(at, "an item header runs past its end");
      item.group = U16(at);
      item.element = U16(at + 2);
      item.length = U32(at + 4);
      item.value = at + 8;
      if (item.length != kUndefined && item.length > end - item.value) {
        if (!defined) return Fail(at, "a value runs past its end");
        directory.warnings.push_back("the record at byte " + std::to_string(at) +
                                     " is longer than its sequence; read up to the sequence end");
        item.length = static_cast<uint32_t>(end - item.value);
      }
      if (item.group == kItemGroup && item.element == kSequenceEnd && !defined) return true;
      if (item.group != kItemGroup || item.element != kItem)
        return Fail(at, "a directory record item is expected");
      if (at > 0xFFFFFFFFu) return Fail(at, "a record lies beyond what an offset can reach");
      Record record;
      record.offset = static_cast<uint32_t>(at);
      record.bigEndian = Big();
      bool untilDelimiter = item.length == kUndefined;
      size_t itemEnd = untilDelimiter ? end : item.value + item.length;
      if (!ReadRecord(item.value, itemEnd, untilDelimiter, record, at)) return false;
      directory.records.push_back(std::move(record));
    }
    return true;
  }

 private:
  bool Big() const { return syntax_ == Syntax::kExplicitBig; }
  bool IsSequence(const Header& header) const { return header.vr[0] == 'S' && header.vr[1] == 'Q'; }
  bool Fail(size_t at, const char* what) {
    error_ = std::string(what) + " at byte " + std::to_string(at);
    return false;
  }

  const std::vector<uint8_t>& bytes_;
  Syntax syntax_;
  std::string error_;
};

std::string Trimmed(const std::string& value) {
  size_t end = value.size();
  while (end && (value[end - 1] == ' ' || value[end - 1] == '\0')) --end;
  size_t begin = 0;
  while (begin < end && value[begin] == ' ') ++begin;
  return value.substr(begin, end - begin);
}

bool SyntaxOf(const std::string& uid, Syntax& syntax) {
  if (uid == "1.2.840.10008.1.2")
    syntax = Syntax::kImplicitLittle;
  else if (uid == "1.2.840.10008.1.2.1")
    syntax = Syntax::kExplicitLittle;
  else if (uid == "1.2.840.10008.1.2.2")
    syntax = Syntax::kExplicitBig;
  else
    return false;
  return true;
}

// The file meta group (PS3.10 7.1), always explicit VR little endian; `at` ends after it.
bool ReadMeta(Reader& reader, const std::vector<uint8_t>& file, size_t& at, Directory& directory,
              std::string& error) {
  bool any = false;
  while (file.size() - at >= 8 && reader.U16(at) == 0x0002) {
    Header header;
    if (!reader.ReadHeader(at, file.size(), header) || header.length == kUndefined) {
      error = reader.Error().empty() ? "the file meta information is damaged" : reader.Error();
      return false;
    }
    std::string value(reinterpret_cast<const char*>(&file[header.value]), header.length);
    if (header.element == 0x0002) directory.mediaStorageSOPClass = Trimmed(value);
    if (header.element == 0x0010) directory.transferSyntax = Trimmed(value);
    at = header.value + header.length;
    any = true;
  }
  if (!any) error = "the file has no file meta information";
  return any;
}

}  // namespace

std::string Record::Text(uint32_t tag) const {
  auto found = values.find(tag);
  return found == values.end() ? std::string() : Trimmed(found->second);
}

uint32_t Record::Number(uint32_t tag, uint32_t fallback) const {
  auto found = values.find(tag);
  if (found == values.end()) return fallback;
  const auto* p = reinterpret_cast<const uint8_t*>(found->second.data());
  if (found->second.size() == 2) return bigEndian ? (p[0] << 8 | p[1]) : (p[1] << 8 | p[0]);
  if (found->second.size() == 4)
    return bigEndian ? static_cast<uint32_t>(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3]
                     : static_cast<uint32_t>(p[3]) << 24 | p[2] << 16 | p[1] << 8 | p[0];
  return fallback;
}

bool Parse(const std::vector<uint8_t>& file, Directory& directory, std::string& error) {
  // PS3.10 7.1: a 128-byte preamble and "DICM"; files without them start at the meta group.
  size_t at = file.size() >= 132 && std::memcmp(&file[128], "DICM", 4) == 0 ? 132 : 0;
  Reader reader(file, Syntax::kExplicitLittle);
  if (!ReadMeta(reader, file, at, directory, error)) return false;
  Syntax syntax;
  if (!SyntaxOf(directory.transferSyntax, syntax)) {
    error = "the transfer syntax \"" + directory.transferSyntax +
            "\" is not one a directory is read in";
    return false;
  }
  reader.SetSyntax(syntax);
  Record top;
  top.bigEndian = syntax == Syntax::kExplicitBig;
  bool sequenceFound = false;
  while (at < file.size()) {
    Header header;
    if (!reader.ReadHeader(at, file.size(), header)) break;
    if (Tag(header.group, header.element) == kRecordSequence) {
      sequenceFound = true;
      if (!reader.ReadRecords(header, file.size(), directory)) break;
      error.clear();
      directory.fileSetID = top.Text(Tag(0x0004, 0x1130));
      directory.firstRootOffset = top.Number(Tag(0x0004, 0x1200));
      directory.lastRootOffset = top.Number(Tag(0x0004, 0x1202));
      return true;
    }
    if (header.length != kUndefined)
      top.values[Tag(header.group, header.element)] =
          std::string(reinterpret_cast<const char*>(&file[header.value]), header.length);
    if (!reader.ValueEnd(header, file.size(), 0, at)) break;
  }
  error = !reader.Error().empty() ? "the directory is damaged: " + reader.Error()
          : sequenceFound         ? "the directory is damaged"
                                  : "the file holds no Directory Record Sequence (0004,1220)";
  return false;
}

}  // namespace KESTREL::dicomdir
