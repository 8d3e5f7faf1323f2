#include "kestrel/RTC.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "File.h"

namespace {

constexpr char kBinaryMagic[] = "#!BinRTC";
constexpr size_t kMagicLength = sizeof(kBinaryMagic) - 1;
constexpr size_t kHeaderSize = 1024;
constexpr uint64_t kKeyBytes = 4;     // one key in the key block
constexpr uint64_t kEntryBytes = 12;  // group, element, VR code, 16 zero bits, 32 zero bits
// Header field offsets of the binary image.
constexpr size_t kCountField = 12;
constexpr size_t kKeyOffsetField = 16;
constexpr size_t kKeySizeField = 20;
constexpr size_t kEntryOffsetField = 24;
constexpr size_t kEntrySizeField = 28;
constexpr size_t kStringOffsetField = 32;
constexpr size_t kStringSizeField = 36;
// Text lines longer than this are cut; the files we read were written for a 1024-byte buffer.
constexpr size_t kMaxLineLength = 1019;

using KESTREL::File;

uint32_t MakeKey(uint16_t group, uint16_t element) {
  return (static_cast<uint32_t>(group) << 16) | element;
}

// The binary image is little endian whatever the host is.
uint16_t ReadLe16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t ReadLe32(const unsigned char* p) {
  return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
void WriteLe16(unsigned char* p, uint16_t value) {
  p[0] = static_cast<unsigned char>(value);
  p[1] = static_cast<unsigned char>(value >> 8);
}
void WriteLe32(unsigned char* p, uint32_t value) {
  WriteLe16(p, static_cast<uint16_t>(value));
  WriteLe16(p + 2, static_cast<uint16_t>(value >> 16));
}

bool IsHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  return (c | 0x20) - 'a' + 10;
}

// Exactly four hexadecimal digits at `pos`.
bool ParseHex4(std::string_view line, size_t pos, uint16_t* value) {
  if (line.size() < pos + 4) return false;
  uint16_t result = 0;
  for (size_t i = pos; i < pos + 4; ++i) {
    if (!IsHexDigit(line[i])) return false;
    result = static_cast<uint16_t>((result << 4) | HexValue(line[i]));
  }
  *value = result;
  return true;
}

// Decimal, or hexadecimal behind "0x"/"0X"; the whole word must be the number and fit 16 bits.
bool ParseNumber(std::string_view word, uint16_t* value) {
  bool hex = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
  if (hex) word.remove_prefix(2);
  if (word.empty()) return false;
  uint32_t result = 0;
  for (char c : word) {
    if (hex ? !IsHexDigit(c) : (c < '0' || c > '9')) return false;
    result = result * (hex ? 16 : 10) + (hex ? HexValue(c) : c - '0');
    if (result > 0xFFFF) return false;
  }
  *value = static_cast<uint16_t>(result);
  return true;
}

// Two capital letters, packed first letter high.
bool ParseTypeCode(std::string_view word, uint16_t* typeCode) {
  if (word.size() != 2) return false;
  for (char c : word) {
    if (c < 'A' || c > 'Z') return false;
  }
  *typeCode = static_cast<uint16_t>((word[0] << 8) | word[1]);
  return true;
}

bool IsBraceSeparator(char c) { return c == ' ' || c == '\t' || c == ',' || c == '{' || c == '}'; }

bool StartsEntry(const std::string& line) {
  return !line.empty() && (line[0] == '(' || line[0] == '{');
}

// Hands out the lines of a file without their line break, each cut to kMaxLineLength
// characters. The rest of an over-long line is skipped rather than returned as a line of its own,
// so a tail that happens to begin with "(" can never turn into an entry.
class LineReader {
 public:
  explicit LineReader(std::FILE* file) : file_(file) {}

  // False at the end of the file or on a read error (see Failed).
  bool Next(std::string* line) {
    line->clear();
    int c = Get();
    if (c == EOF) return false;
    for (; c != EOF && c != '\n'; c = Get()) {
      if (line->size() < kMaxLineLength) line->push_back(static_cast<char>(c));
    }
    if (!line->empty() && line->back() == '\r') line->pop_back();
    return true;
  }

  bool Failed() const { return std::ferror(file_) != 0; }

 private:
  int Get() {
    if (next_ == end_) {
      end_ = std::fread(block_, 1, sizeof(block_), file_);
      next_ = 0;
      if (end_ == 0) return EOF;
    }
    return static_cast<unsigned char>(block_[next_++]);
  }

  std::FILE* file_;
  char block_[16384];
  size_t next_ = 0;
  size_t end_ = 0;
};

// An entry as read from a text file, before the table is built.
struct PendingEntry {
  uint32_t key;
  uint16_t typeCode;
  std::string text;
};

// (gggg<anything>eeee ... VR="XX" ... Keyword="name"
bool ParseTagLine(std::string_view line, bool keepText, PendingEntry* entry) {
  uint16_t group = 0;
  uint16_t element = 0;
  if (!ParseHex4(line, 1, &group)) return false;
  size_t pos = 5;
  while (pos < line.size() && !IsHexDigit(line[pos])) ++pos;
  if (!ParseHex4(line, pos, &element)) return false;
  std::string_view rest = line.substr(pos + 4);

  constexpr std::string_view kVrMarker = "VR=\"";
  size_t vr = rest.find(kVrMarker);
  if (vr == std::string_view::npos) return false;
  if (!ParseTypeCode(rest.substr(vr + kVrMarker.size(), 2), &entry->typeCode)) return false;
  entry->key = MakeKey(group, element);
  entry->text.clear();
  if (!keepText) return true;

  constexpr std::string_view kKeywordMarker = "Keyword=\"";
  size_t keyword = rest.find(kKeywordMarker);
  if (keyword != std::string_view::npos) {
    size_t start = keyword + kKeywordMarker.size();
    // Without a closing quote the keyword runs to the end of the line.
    entry->text.assign(rest.substr(start, rest.find('"', start) - start));
  }
  return true;
}

// How a brace entry left the line buffer.
enum class BraceEnd {
  kLineUsed,   // the caller reads the next line
  kNextEntry,  // the buffer already holds the next "(" or "{" line
  kEndOfFile,
};

// Walks the fields of one brace entry, which may run over several lines. A line that begins a
// new entry ends the walk: a lost closing quote then costs one entry, not the rest of the file.
class BraceFields {
 public:
  BraceFields(LineReader* reader, std::string* line) : reader_(reader), line_(line) {}

  // Moves to the first character of the next field.
  bool NextField() {
    for (;;) {
      if (pos_ == line_->size()) {
        if (!FetchLine()) return false;
        continue;
      }
      if (!IsBraceSeparator((*line_)[pos_])) return true;
      ++pos_;
    }
  }

  // An unquoted field: up to a separator, a quote or the end of the line.
  std::string_view Word() {
    size_t start = pos_;
    while (pos_ < line_->size() && !IsBraceSeparator((*line_)[pos_]) && (*line_)[pos_] != '"') {
      ++pos_;
    }
    return std::string_view(*line_).substr(start, pos_ - start);
  }

  // A quoted field; a backslash makes the next character literal and a line break inside the
  // quotes is kept as '\n'. `text` may be null when the text is not wanted.
  bool Quoted(std::string* text) {
    if (pos_ == line_->size() || (*line_)[pos_] != '"') return false;
    ++pos_;
    for (;;) {
      if (pos_ == line_->size()) {
        if (!FetchLine()) return false;
        if (text) text->push_back('\n');
        continue;
      }
      char c = (*line_)[pos_++];
      if (c == '"') return true;
      if (c == '\\' && pos_ < line_->size()) c = (*line_)[pos_++];
      if (text) text->push_back(c);
    }
  }

  BraceEnd End() const { return end_; }

 private:
  bool FetchLine() {
    if (!reader_->Next(line_)) {
      end_ = BraceEnd::kEndOfFile;
      return false;
    }
    pos_ = 0;
    if (StartsEntry(*line_)) {
      end_ = BraceEnd::kNextEntry;
      return false;
    }
    return true;
  }

  LineReader* reader_;
  std::string* line_;
  size_t pos_ = 1;  // past the opening brace
  BraceEnd end_ = BraceEnd::kLineUsed;
};

// {group, element, VR, "description"}, starting on `line`.
BraceEnd ParseBraceEntry(LineReader* reader, std::string* line, bool keepText,
                         std::vector<PendingEntry>* entries) {
  BraceFields fields(reader, line);
  uint16_t group = 0;
  uint16_t element = 0;
  uint16_t typeCode = 0;
  std::string text;
  bool ok = fields.NextField() && ParseNumber(fields.Word(), &group) && fields.NextField() &&
            ParseNumber(fields.Word(), &element) && fields.NextField() &&
            ParseTypeCode(fields.Word(), &typeCode) && fields.NextField() &&
            fields.Quoted(keepText ? &text : nullptr);
  if (ok) entries->push_back({MakeKey(group, element), typeCode, std::move(text)});
  return fields.End();
}

// Every usable entry of a text dictionary, in file order; false on a read error.
bool ReadTextEntries(std::FILE* file, bool keepText, std::vector<PendingEntry>* entries) {
  LineReader reader(file);
  std::string line;
  line.reserve(kMaxLineLength);
  PendingEntry entry;
  bool more = reader.Next(&line);
  while (more) {
    if (!line.empty() && line[0] == '{') {
      BraceEnd end = ParseBraceEntry(&reader, &line, keepText, entries);
      if (end == BraceEnd::kNextEntry) continue;
      if (end == BraceEnd::kEndOfFile) break;
    } else if (!line.empty() && line[0] == '(' && ParseTagLine(line, keepText, &entry)) {
      entries->push_back(std::move(entry));
    }
    more = reader.Next(&line);
  }
  return !reader.Failed();
}

// Sorts by key; of several entries with one key the one read last is kept.
std::unique_ptr<RTCTable> BuildTable(std::vector<PendingEntry>* entries) {
  if (entries->empty() || entries->size() > UINT32_MAX) return nullptr;
  std::vector<std::pair<uint32_t, uint32_t>> order;  // key, position in the file
  order.reserve(entries->size());
  for (uint32_t i = 0; i < entries->size(); ++i) order.emplace_back((*entries)[i].key, i);
  std::sort(order.begin(), order.end());
  // Keep the last of each run of equal keys.
  std::vector<uint32_t> kept;
  kept.reserve(order.size());
  size_t stringBytes = 0;
  for (size_t i = 0; i < order.size(); ++i) {
    if (i + 1 < order.size() && order[i + 1].first == order[i].first) continue;
    kept.push_back(order[i].second);
    const std::string& text = (*entries)[order[i].second].text;
    if (!text.empty()) stringBytes += text.size() + 1;
  }

  auto table = std::make_unique<RTCTable>();
  table->Capacity = static_cast<uint32_t>(entries->size());
  table->Count = static_cast<uint32_t>(kept.size());
  table->Keys = std::make_unique<uint32_t[]>(table->Capacity);
  table->Entries = std::make_unique<RTCEntry[]>(table->Capacity);
  if (stringBytes > 0) table->Strings = std::make_unique<char[]>(stringBytes);
  char* strings = table->Strings.get();
  for (uint32_t i = 0; i < table->Count; ++i) {
    const PendingEntry& source = (*entries)[kept[i]];
    RTCEntry& target = table->Entries[i];
    table->Keys[i] = source.key;
    target.Group = static_cast<uint16_t>(source.key >> 16);
    target.Element = static_cast<uint16_t>(source.key);
    target.TypeCode = source.typeCode;
    if (!source.text.empty()) {
      std::memcpy(strings, source.text.c_str(), source.text.size() + 1);
      target.Text = strings;
      strings += source.text.size() + 1;
    }
  }
  return table;
}

struct BinaryLayout {
  uint32_t count;
  uint32_t keyOffset, keySize;
  uint32_t entryOffset, entrySize;
  uint32_t stringOffset, stringSize;
};

bool BlockFits(uint64_t offset, uint64_t size, uint64_t fileSize) {
  return offset <= fileSize && size <= fileSize - offset;
}

// Reads `size` bytes at `offset` into `target`.
bool ReadBlock(std::FILE* file, uint64_t offset, size_t size, void* target) {
  if (size == 0) return true;
  return std::fseek(file, static_cast<long>(offset), SEEK_SET) == 0 &&
         std::fread(target, 1, size, file) == size;
}

// Checks the header against the file's size before anything is allocated from it, so that a
// damaged or hostile count cannot ask for more memory than the file could ever fill.
bool ReadLayout(std::FILE* file, bool keepText, BinaryLayout* layout) {
  if (std::fseek(file, 0, SEEK_END) != 0) return false;
  long end = std::ftell(file);
  if (end < static_cast<long>(kHeaderSize)) return false;
  uint64_t fileSize = static_cast<uint64_t>(end);
  unsigned char header[kHeaderSize];
  if (!ReadBlock(file, 0, kHeaderSize, header)) return false;
  layout->count = ReadLe32(header + kCountField);
  layout->keyOffset = ReadLe32(header + kKeyOffsetField);
  layout->keySize = ReadLe32(header + kKeySizeField);
  layout->entryOffset = ReadLe32(header + kEntryOffsetField);
  layout->entrySize = ReadLe32(header + kEntrySizeField);
  layout->stringOffset = keepText ? ReadLe32(header + kStringOffsetField) : 0;
  layout->stringSize = ReadLe32(header + kStringSizeField);
  return layout->count > 0 && layout->keySize == kKeyBytes * layout->count &&
         layout->entrySize == kEntryBytes * layout->count &&
         BlockFits(layout->keyOffset, layout->keySize, fileSize) &&
         BlockFits(layout->entryOffset, layout->entrySize, fileSize) &&
         (layout->stringOffset == 0 ||
          BlockFits(layout->stringOffset, layout->stringSize, fileSize));
}

// Points every entry at its string: one NUL-terminated string per entry, in entry order, the
// empty string meaning none.
bool AttachStrings(RTCTable* table, uint32_t size) {
  const char* next = table->Strings.get();
  const char* end = next + size;
  for (uint32_t i = 0; i < table->Count; ++i) {
    const void* nul = std::memchr(next, '\0', end - next);
    if (nul == nullptr) return false;
    if (nul != next) table->Entries[i].Text = next;
    next = static_cast<const char*>(nul) + 1;
  }
  return true;
}

std::unique_ptr<RTCTable> LoadBinary(std::FILE* file, bool keepText) {
  BinaryLayout layout;
  if (!ReadLayout(file, keepText, &layout)) return nullptr;
  auto table = std::make_unique<RTCTable>();
  table->Capacity = table->Count = layout.count;
  table->Keys = std::make_unique<uint32_t[]>(layout.count);
  table->Entries = std::make_unique<RTCEntry[]>(layout.count);

  // Both blocks are read as raw bytes and decoded, so the image means the same on any host.
  std::vector<unsigned char> keys(layout.keySize);
  std::vector<unsigned char> entries(layout.entrySize);
  if (!ReadBlock(file, layout.keyOffset, keys.size(), keys.data()) ||
      !ReadBlock(file, layout.entryOffset, entries.size(), entries.data())) {
    return nullptr;
  }
  for (uint32_t i = 0; i < layout.count; ++i) {
    const unsigned char* raw = entries.data() + i * kEntryBytes;
    RTCEntry& entry = table->Entries[i];
    entry.Group = ReadLe16(raw);
    entry.Element = ReadLe16(raw + 2);
    entry.TypeCode = ReadLe16(raw + 4);
    table->Keys[i] = ReadLe32(keys.data() + i * kKeyBytes);
    // The lookup relies on strictly ascending keys that agree with their entries.
    if (table->Keys[i] != MakeKey(entry.Group, entry.Element)) return nullptr;
    if (i > 0 && table->Keys[i] <= table->Keys[i - 1]) return nullptr;
  }

  if (layout.stringOffset != 0) {
    table->Strings = std::make_unique<char[]>(layout.stringSize);
    if (!ReadBlock(file, layout.stringOffset, layout.stringSize, table->Strings.get()) ||
        !AttachStrings(table.get(), layout.stringSize)) {
      return nullptr;
    }
  }
  return table;
}

std::unique_ptr<RTCTable> LoadFile(const char* path, bool keepText) {
  File file(path, "rb");
  if (!file) return nullptr;
  // The first line of a binary image begins with the marker; comparing the first eight bytes is
  // the same test, since the marker holds no line break.
  char magic[kMagicLength];
  size_t got = std::fread(magic, 1, kMagicLength, file.get());
  if (got == kMagicLength && std::memcmp(magic, kBinaryMagic, kMagicLength) == 0) {
    return LoadBinary(file.get(), keepText);
  }
  std::rewind(file.get());
  std::vector<PendingEntry> entries;
  if (!ReadTextEntries(file.get(), keepText, &entries)) return nullptr;
  return BuildTable(&entries);
}

// The table's own search, kept as it has always been: a walk from the middle with a halving
// step, finished by a linear scan that also covers wherever the walk stopped short.
const RTCEntry* Find(const RTCTable& table, uint32_t key) {
  const int64_t count = table.Count;
  const uint32_t* keys = table.Keys.get();
  if (count == 0) return nullptr;
  int64_t index = count / 2;
  int64_t step = count / 2 - 1;
  while (keys[index] != key) {
    index += key < keys[index] ? -step : step;
    if (index >= count) {
      index = count - 1;
      break;
    }
    if (index < 1) {
      index = 0;
      break;
    }
    if (step == 0) break;
    step /= 2;
  }
  if (keys[index] < key) {
    while (index + 1 < count && keys[index] < key) ++index;
  } else {
    while (index > 0 && keys[index] > key) --index;
  }
  return keys[index] == key ? &table.Entries[index] : nullptr;
}

// The whole binary image: header, key block, entry block, string block (when any text).
std::vector<unsigned char> Serialize(const RTCTable& table) {
  const uint32_t count = table.Count;
  uint64_t stringSize = 0;
  for (uint32_t i = 0; i < count; ++i) {
    const char* text = table.Entries[i].Text;
    stringSize += (text ? std::strlen(text) : 0) + 1;
  }
  bool anyText = stringSize > count;
  const uint64_t keyOffset = kHeaderSize;
  const uint64_t entryOffset = keyOffset + kKeyBytes * count;
  const uint64_t stringOffset = entryOffset + kEntryBytes * count;
  const uint64_t total = stringOffset + (anyText ? stringSize : 0);
  if (total > UINT32_MAX) return {};

  std::vector<unsigned char> image(total, 0);
  unsigned char* header = image.data();
  std::memcpy(header, kBinaryMagic, kMagicLength);
  header[kMagicLength] = '\n';  // so that the first line reads as the marker alone
  WriteLe32(header + kCountField, count);
  WriteLe32(header + kKeyOffsetField, static_cast<uint32_t>(keyOffset));
  WriteLe32(header + kKeySizeField, static_cast<uint32_t>(kKeyBytes * count));
  WriteLe32(header + kEntryOffsetField, static_cast<uint32_t>(entryOffset));
  WriteLe32(header + kEntrySizeField, static_cast<uint32_t>(kEntryBytes * count));
  WriteLe32(header + kStringOffsetField, anyText ? static_cast<uint32_t>(stringOffset) : 0);
  WriteLe32(header + kStringSizeField, anyText ? static_cast<uint32_t>(stringSize) : 0);

  unsigned char* strings = image.data() + stringOffset;
  for (uint32_t i = 0; i < count; ++i) {
    const RTCEntry& entry = table.Entries[i];
    WriteLe32(image.data() + keyOffset + i * kKeyBytes, table.Keys[i]);
    unsigned char* raw = image.data() + entryOffset + i * kEntryBytes;
    WriteLe16(raw, entry.Group);
    WriteLe16(raw + 2, entry.Element);
    WriteLe16(raw + 4, entry.TypeCode);  // the rest of the entry stays zero
    if (anyText) {
      size_t length = entry.Text ? std::strlen(entry.Text) : 0;
      if (length > 0) std::memcpy(strings, entry.Text, length);
      strings += length + 1;  // the NUL is already there
    }
  }
  return image;
}

// Leaves no partial file behind when the write fails.
bool WriteFile(const char* path, const std::vector<unsigned char>& bytes) {
  File file(path, "wb");
  if (!file) return false;
  bool written = file.Write(bytes.data(), bytes.size());
  // Close flushes; its failure (a full disk) is a failed write too.
  written = file.Close() && written;
  if (!written) KESTREL::GetFileOperations().remove(path);
  return written;
}

}  // namespace

RTC::RTC(bool keepDescriptions, const char* path) : KeepDescriptions(keepDescriptions ? 1 : 0) {
  if (path != nullptr) Load(path);
}

RTC::~RTC() = default;

bool RTC::Load(const char* path) {
  table_.reset();
  if (path == nullptr) return false;
  try {
    table_ = LoadFile(path, KeepDescriptions != 0);
  } catch (const std::bad_alloc&) {
    table_.reset();
  }
  return table_ != nullptr;
}

uint16_t RTC::GetTypeCode(uint16_t group, uint16_t element, std::string* text) const {
  const RTCEntry* entry = table_ ? Find(*table_, MakeKey(group, element)) : nullptr;
  if (text != nullptr) {
    if (entry != nullptr && entry->Text != nullptr) {
      text->assign(entry->Text);
    } else {
      text->clear();
    }
  }
  return entry ? entry->TypeCode : 0;
}

bool CompileDictionary(const char* textPath, const char* binaryPath) {
  if (textPath == nullptr || binaryPath == nullptr) return false;
  try {
    RTC dictionary(true);
    if (!dictionary.Load(textPath)) return false;
    std::vector<unsigned char> image = Serialize(*dictionary.GetTable());
    return !image.empty() && WriteFile(binaryPath, image);
  } catch (const std::bad_alloc&) {
    return false;
  }
}
