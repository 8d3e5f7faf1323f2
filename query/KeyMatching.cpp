#include "kestrel/KeyMatching.h"

#include <cstring>
#include <vector>

namespace KESTREL {

namespace {

char Fold(char c, bool foldCase) {
  return foldCase && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// Dates and times reduced to what is compared: the dots of an old-style date ("2024.01.31")
// and the colons of an old-style time ("10:30:00") are dropped.
std::string Digits(const std::string& text) {
  bool oldDate = text.size() == 10 && text[4] == '.' && text[7] == '.';
  std::string out;
  for (char c : text)
    if (c != ':' && !(oldDate && c == '.')) out += c;
  return out;
}

// A time shorter than HHMMSS completed with zeros, so that "10" and "100000" are one instant.
std::string Completed(std::string value) {
  if (value.size() < 6) value.append(6 - value.size(), '0');
  return value;
}

}  // namespace

std::string TrimPadding(const std::string& text) {
  size_t end = text.size();
  while (end && (text[end - 1] == ' ' || text[end - 1] == '\0')) --end;
  size_t begin = 0;
  while (begin < end && text[begin] == ' ') ++begin;
  return text.substr(begin, end - begin);
}

bool MatchWildcard(const std::string& pattern, const std::string& value, bool foldCase) {
  // Iterative matching with one back-track point per '*': linear in practice and never
  // exponential, whatever a peer puts in its key.
  size_t p = 0, v = 0, star = std::string::npos, resume = 0;
  while (v < value.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      resume = v;
    } else if (p < pattern.size() &&
               (pattern[p] == '?' || Fold(pattern[p], foldCase) == Fold(value[v], foldCase))) {
      ++p;
      ++v;
    } else if (star != std::string::npos) {
      p = star + 1;
      v = ++resume;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

bool MatchRange(const std::string& key, const std::string& value) {
  std::string v = Digits(TrimPadding(value));
  if (v.empty()) return false;
  std::string k = TrimPadding(key);
  size_t dash = k.find('-');
  if (dash == std::string::npos) return Completed(Digits(k)) == Completed(v);
  std::string low = Digits(k.substr(0, dash));
  std::string high = Digits(k.substr(dash + 1));
  v = Completed(v);
  if (!low.empty() && v < Completed(low)) return false;
  // An upper bound covers the whole of its last unit: "-1030" includes 10:30:59, and
  // "-20240131" the whole of that day in a DT value.
  return high.empty() || v.compare(0, high.size(), high) <= 0;
}

bool MatchKey(const std::string& key, const std::string& value, const char* vr) {
  std::string k = TrimPadding(key);
  // A key of nothing but '*' is universal matching too (PS3.4 C.2.2.2.4).
  if (k.find_first_not_of('*') == std::string::npos) return true;
  std::string v = TrimPadding(value);
  if (v.empty()) return false;
  if (!std::strcmp(vr, "DA") || !std::strcmp(vr, "TM") || !std::strcmp(vr, "DT"))
    return MatchRange(k, v);
  return MatchWildcard(k, v, !std::strcmp(vr, "PN"));
}

}  // namespace KESTREL
