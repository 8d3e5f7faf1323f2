#include <string>

#include "vxCommon.h"

namespace {

bool IsAsciiLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

bool IsSeparator(char c) {
  return c == ' ' || c == '-' || c == '_' || c == '/' || c == '.' || c == ':';
}

// Sites write the same patient as "UHN-000123", "123" or " 000123": the site prefix and the
// zero padding are decoration, the digits after them are the identifier.
std::string::size_type PrefixLength(const std::string& id) {
  std::string::size_type letters = 0;
  while (letters < id.size() && IsAsciiLetter(id[letters])) ++letters;
  if (letters == 0 || letters + 1 >= id.size() || !IsSeparator(id[letters])) return 0;
  return letters + 1;
}

}  // namespace

std::string StripUHN(const std::string& patientId) {
  std::string::size_type first = patientId.find_first_not_of(' ');
  if (first == std::string::npos) return std::string();
  std::string::size_type last = patientId.find_last_not_of(' ');
  std::string id = patientId.substr(first, last - first + 1);

  id.erase(0, PrefixLength(id));

  std::string::size_type zeros = 0;
  while (zeros < id.size() && id[zeros] == '0') ++zeros;
  // An identifier of zeros keeps one: an empty core would match every patient.
  if (zeros == id.size() && zeros > 0) --zeros;
  return id.substr(zeros);
}
