#include "PrivateDictionary.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "kestrel/DICOMObject.h"
#include "kestrel/RTC.h"

namespace KESTREL {
namespace {

struct Entry {
  uint16_t group;
  uint16_t groupMask;  // 0xFF00 for a "60xx"-style group, else 0xFFFF
  uint8_t element;
  uint16_t typeCode;
};

using Table = std::unordered_map<std::string, std::vector<Entry>>;

int Hex(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Four hexadecimal digits, or two followed by "xx" (a range of groups).
bool ParseGroup(const std::string& text, Entry& entry) {
  int digits[4];
  for (int i = 0; i < 4; ++i) digits[i] = Hex(text[i]);
  if (digits[0] < 0 || digits[1] < 0) return false;
  bool masked = (text[2] == 'x' || text[2] == 'X') && (text[3] == 'x' || text[3] == 'X');
  if (!masked && (digits[2] < 0 || digits[3] < 0)) return false;
  entry.group = static_cast<uint16_t>((digits[0] << 12) | (digits[1] << 8) |
                                      (masked ? 0 : (digits[2] << 4) | digits[3]));
  entry.groupMask = masked ? 0xFF00 : 0xFFFF;
  return true;
}

// "CREATOR" (gggg,xxee) VR="XX"
bool ParseLine(const std::string& line, std::string& creator, Entry& entry) {
  if (line.empty() || line[0] != '"') return false;
  size_t close = line.find('"', 1);
  if (close == std::string::npos) return false;
  creator = line.substr(1, close - 1);
  size_t open = line.find('(', close);
  size_t vr = line.find("VR=\"", close);
  if (open == std::string::npos || vr == std::string::npos || line.size() < open + 11 ||
      line.size() < vr + 6 || line[open + 5] != ',')
    return false;
  int high = Hex(line[open + 8]), low = Hex(line[open + 9]);
  if (!ParseGroup(line.substr(open + 1, 4), entry) || high < 0 || low < 0) return false;
  entry.element = static_cast<uint8_t>((high << 4) | low);
  entry.typeCode = MakeTypeCode(line[vr + 4], line[vr + 5]);
  return true;
}

std::string TablePath() {
  const char* chosen = std::getenv("KESTREL_PRIVATE_DICTIONARY");
  if (chosen && *chosen) return chosen;
  std::string dictionary = GetInstalledRTCPath();
  size_t slash = dictionary.rfind('/');
  return slash == std::string::npos ? std::string() : dictionary.substr(0, slash) + "/private.dic";
}

const Table& Load() {
  static Table table;
  static std::once_flag once;
  std::call_once(once, [] {
    std::ifstream in(TablePath());
    std::string line, creator;
    while (std::getline(in, line)) {
      Entry entry{};
      if (ParseLine(line, creator, entry)) table[creator].push_back(entry);
    }
  });
  return table;
}

}  // namespace

uint16_t PrivateTypeCode(const std::string& creator, uint16_t group, uint8_t element) {
  const Table& table = Load();
  auto found = table.find(creator);
  if (found == table.end()) return 0;
  for (const Entry& entry : found->second)
    if (entry.element == element && (group & entry.groupMask) == entry.group) return entry.typeCode;
  return 0;
}

}  // namespace KESTREL
