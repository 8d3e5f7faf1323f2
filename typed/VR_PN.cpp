// Person names: the work-buffer cut of Get, and the conversions between a name as a person
// types it and the component form "Last^First^Middle^Prefix^Suffix" (PS3.5 6.2).
//
// The shapes are those of the library's patient name parser (CPatientNameParser): a single word
// is the last name; "First Middle Last" with the same grouping of four and more words; "Last,
// First Middle". On top of them a name may start with a title (the prefix) and end with
// degrees or generational words after a comma (the suffix), and a second comma in the comma
// form leads to the suffix. Case is kept: the component form is a value, not a display.
#include <cctype>
#include <string>
#include <vector>

#include "kestrel/VR_XXTYPED.h"

namespace {

constexpr size_t kWorkBuffer = 200;

std::string Trim(const std::string& text) {
  size_t begin = text.find_first_not_of(' ');
  if (begin == std::string::npos) return "";
  size_t end = text.find_last_not_of(' ');
  return text.substr(begin, end - begin + 1);
}

std::string Join(const std::vector<std::string>& words, size_t from, size_t to,
                 const char* separator) {
  std::string out;
  for (size_t i = from; i < to && i < words.size(); ++i) {
    if (i > from) out += separator;
    out += words[i];
  }
  return out;
}

// Upper case without periods, for comparing with the word lists.
std::string Bare(const std::string& word) {
  std::string out;
  for (char c : word)
    if (c != '.') out.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
  return out;
}

bool IsTitle(const std::string& word) {
  static const char* const kTitles[] = {"MR",   "MRS", "MS",  "MISS", "MX", "DR",
                                        "PROF", "REV", "SIR", "DAME", "FR"};
  std::string bare = Bare(word);
  for (const char* title : kTitles)
    if (bare == title) return true;
  return false;
}

bool IsSuffixWord(const std::string& word) {
  static const char* const kSuffixes[] = {"JR",  "SR", "II",  "III", "IV",  "MD",  "PHD", "DDS",
                                          "DMD", "RN", "ESQ", "MSC", "BSC", "MBA", "MPH", "DVM"};
  std::string bare = Bare(word);
  for (const char* suffix : kSuffixes)
    if (bare == suffix) return true;
  return false;
}

// Words separated by blanks. An initial followed by a period ends its word even without a
// blank ("J.P.Doe" is "J." "P." "Doe"); longer abbreviations ("Ph.D", "St.John") stay whole.
std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words;
  std::string word;
  for (char c : text) {
    if (c == ' ') {
      if (!word.empty()) words.push_back(word);
      word.clear();
      continue;
    }
    word.push_back(c);
    if (c == '.' && word.size() == 2 && std::isalpha(static_cast<unsigned char>(word[0]))) {
      words.push_back(word);
      word.clear();
    }
  }
  if (!word.empty()) words.push_back(word);
  return words;
}

std::vector<std::string> SplitTrimmed(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    size_t at = text.find(separator, start);
    parts.push_back(
        Trim(text.substr(start, at == std::string::npos ? std::string::npos : at - start)));
    if (at == std::string::npos) return parts;
    start = at + 1;
  }
}

bool AllSuffixWords(const std::string& text) {
  std::vector<std::string> words = Words(text);
  if (words.empty()) return false;
  for (const std::string& word : words)
    if (!IsSuffixWord(word)) return false;
  return true;
}

struct Components {
  std::string last, first, middle, prefix, suffix;

  std::string ToText() const {
    std::string out = last + '^' + first + '^' + middle + '^' + prefix + '^' + suffix;
    while (!out.empty() && out.back() == '^') out.pop_back();
    return out;
  }
};

// A leading title word becomes the prefix; the rest of the text is returned.
std::string TakeTitle(const std::string& text, Components& name) {
  std::vector<std::string> words = Words(text);
  if (words.empty() || !IsTitle(words[0])) return text;
  name.prefix = words[0];
  return Join(words, 1, words.size(), " ");
}

// "First Middle Last", grouped as the patient name parser groups it: four words give two
// middle names, five and more give two middle names and a last name of the rest. Trailing
// suffix words ("John Doe Jr.") go to the suffix when a name is left before them.
void FromWords(std::vector<std::string> words, Components& name) {
  size_t keep = words.size();
  while (keep > 1 && IsSuffixWord(words[keep - 1])) --keep;
  if (keep < words.size()) {
    std::string trailing = Join(words, keep, words.size(), " ");
    name.suffix = name.suffix.empty() ? trailing : trailing + " " + name.suffix;
    words.resize(keep);
  }
  switch (words.size()) {
    case 0:
      return;
    case 1:
      name.last = words[0];
      return;
    case 2:
      name.first = words[0];
      name.last = words[1];
      return;
    case 3:
      name.first = words[0];
      name.middle = words[1];
      name.last = words[2];
      return;
    default:
      name.first = words[0];
      name.middle = Join(words, 1, 3, " ");
      name.last = Join(words, 3, words.size(), " ");
  }
}

// The first component group (before any "=") with its components trimmed and trailing empty
// ones dropped; the ideographic and phonetic groups are kept as they are.
std::string NormaliseComponentForm(const std::string& text) {
  size_t equals = text.find('=');
  std::string alphabetic = text.substr(0, equals);
  std::vector<std::string> parts = SplitTrimmed(alphabetic, '^');
  std::string out = Join(parts, 0, parts.size(), "^");
  while (!out.empty() && out.back() == '^') out.pop_back();
  if (equals != std::string::npos) out += text.substr(equals);
  return out;
}

}  // namespace

bool VR_PN::Get(uint32_t index, std::string& out) const {
  if (!VR_XXSTRING::Get(index, out)) return false;
  if (out.size() > kWorkBuffer - 1) out.resize(kWorkBuffer - 1);
  return true;
}

std::string VR_PN::FreeFormToComponents(const std::string& freeForm) const {
  std::string text = Trim(freeForm);
  if (text.empty()) return "";
  if (text.find('^') != std::string::npos || text.find('=') != std::string::npos)
    return NormaliseComponentForm(text);

  Components name;
  text = TakeTitle(text, name);
  std::vector<std::string> parts = SplitTrimmed(text, ',');
  if (parts.size() == 1) {
    FromWords(Words(parts[0]), name);
  } else if (parts.size() == 2 && !parts[0].empty() && AllSuffixWords(parts[1])) {
    // "John Doe, Jr.": the comma of the display form, not of "Last, First".
    name.suffix = parts[1];
    FromWords(Words(parts[0]), name);
  } else {
    name.last = Join(Words(parts[0]), 0, std::string::npos, " ");
    std::string given = parts[1];
    if (name.prefix.empty()) given = TakeTitle(given, name);
    std::vector<std::string> words = Words(given);
    if (!words.empty()) name.first = words[0];
    name.middle = Join(words, 1, words.size(), " ");
    name.suffix = Join(parts, 2, parts.size(), ", ");
  }
  return name.ToText();
}

std::string VR_PN::ComponentsToFreeForm(const std::string& componentForm) const {
  std::string alphabetic = componentForm.substr(0, componentForm.find('='));
  std::vector<std::string> parts = SplitTrimmed(alphabetic, '^');
  parts.resize(5);
  const std::string& last = parts[0];
  const std::string& suffix = parts[4];
  std::string given = Join({parts[3], parts[1], parts[2]}, 0, 3, " ");
  // Empty parts leave blanks behind; joining the words again drops them.
  given = Join(Words(given), 0, std::string::npos, " ");
  if (last.empty() && given.empty() && suffix.empty()) return "";
  if (given.empty() && suffix.empty()) return last;

  std::string out = last + ", " + given;
  if (!suffix.empty()) {
    // "Doe, Jr." reads back as a suffix by itself; any other suffix needs its own comma.
    if (given.empty() && !last.empty() && AllSuffixWords(suffix))
      out = last + ", " + suffix;
    else
      out += ", " + suffix;
  }
  return out;
}

bool VR_PN::SetFreeForm(const std::string& name) { return Set(0, FreeFormToComponents(name)); }

bool VR_PN::GetFreeForm(std::string& out) const {
  std::string value;
  if (!Get(0, value)) return false;
  out = ComponentsToFreeForm(value);
  return true;
}
