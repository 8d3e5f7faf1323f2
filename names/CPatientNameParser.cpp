#include "kestrel/CPatientNameParser.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace {

const char kCaret[] = "^";
const char kComma[] = ",";
const char kBlank[] = " ";

// ASCII letters only: bytes of UTF-8 sequences (0x80 and above) must pass through untouched,
// which the locale-dependent toupper() does not promise.
std::string UpperCase(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

// Blanks only: a tab inside a received name is data, not padding.
std::string TrimBlanks(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return std::string();
  const std::size_t last = text.find_last_not_of(' ');
  return text.substr(first, last - first + 1);
}

// Start and end offsets of the blank-separated words of `text`.
std::vector<std::pair<std::size_t, std::size_t>> WordSpans(const std::string& text) {
  std::vector<std::pair<std::size_t, std::size_t>> spans;
  std::size_t pos = text.find_first_not_of(' ');
  while (pos != std::string::npos) {
    std::size_t end = text.find(' ', pos);
    if (end == std::string::npos) end = text.size();
    spans.emplace_back(pos, end);
    pos = text.find_first_not_of(' ', end);
  }
  return spans;
}

std::string Word(const std::string& text, const std::pair<std::size_t, std::size_t>& span) {
  return text.substr(span.first, span.second - span.first);
}

// Words [from, spans.size()) joined by one blank, however many separated them in `text`.
std::string JoinWords(const std::string& text,
                      const std::vector<std::pair<std::size_t, std::size_t>>& spans,
                      std::size_t from) {
  std::string joined;
  for (std::size_t i = from; i < spans.size(); ++i) {
    if (!joined.empty()) joined += ' ';
    joined += Word(text, spans[i]);
  }
  return joined;
}

// Appends `part` after `separator` when something has been written already, bare otherwise.
void AppendPart(std::string& out, const std::string& part, const char* separator) {
  if (part.empty()) return;
  if (!out.empty()) out += separator;
  out += part;
}

}  // namespace

CPatientNameParser::CPatientNameParser() = default;

CPatientNameParser::CPatientNameParser(std::string last, std::string first, std::string middle,
                                       std::string prefix, std::string suffix) {
  FormatEnglishName(last, first, middle, prefix, suffix);
  GenerateDICOMName(last, first, middle, prefix, suffix);
}

CPatientNameParser::CPatientNameParser(std::string name, int filmFlag) {
  Parse(std::move(name), filmFlag);
}

CPatientNameParser::CPatientNameParser(const CPatientNameParser& other) = default;
CPatientNameParser& CPatientNameParser::operator=(const CPatientNameParser& other) = default;
CPatientNameParser::~CPatientNameParser() = default;

void CPatientNameParser::Parse(std::string name, int filmFlag) {
  if (name.empty()) {
    // The components stay: a caller clearing the name field should not lose what it parsed.
    dicomName_.clear();
    englishName_.clear();
    return;
  }
  if (ContainsCaret(name)) {
    ParseDICOMToEnglish(std::move(name), filmFlag);
  } else if (ContainsComma(name)) {
    ParseCommaToEnglish(std::move(name), filmFlag);
  } else if (ContainsSpace(name)) {
    ParseSpaceToEnglish(std::move(name), filmFlag);
  } else {
    // A lone word is a surname. It is shown as typed even on film: a single word carries
    // no structure worth reformatting.
    FormatEnglishName(name, "", "", "", "");
    GenerateDICOMName(name, "", "", "", "");
  }
}

void CPatientNameParser::FinishParse(const std::string& last, const std::string& first,
                                     const std::string& middle, const std::string& prefix,
                                     const std::string& suffix, int filmFlag) {
  if (filmFlag) {
    FormatFilmEnglishName(last, first, middle, prefix, suffix);
  } else {
    FormatEnglishName(last, first, middle, prefix, suffix);
  }
  // From the arguments, not the fields: the film form has just cleared prefix and suffix,
  // and the DICOM form must keep them.
  GenerateDICOMName(last, first, middle, prefix, suffix);
}

void CPatientNameParser::ParseDICOMToEnglish(std::string name, int filmFlag) {
  std::string pieces[5];
  std::string rest = std::move(name);
  for (std::string& piece : pieces) {
    piece = TrimBlanks(GetPreString(rest, kCaret));
    rest = GetPostString(rest, kCaret);
  }
  // Whatever follows a fifth caret has no component to go to and is dropped.
  FinishParse(pieces[0], pieces[1], pieces[2], pieces[3], pieces[4], filmFlag);
}

void CPatientNameParser::ParseCommaToEnglish(std::string name, int filmFlag) {
  const std::string last = GetPreString(name, kComma);
  const std::string rest = GetPostString(name, kComma);
  const auto spans = WordSpans(rest);
  std::string first;
  std::string middle;
  if (!spans.empty()) {
    first = Word(rest, spans[0]);
    // Every further given name is a middle name, however many were typed.
    middle = JoinWords(rest, spans, 1);
  }
  FinishParse(last, first, middle, "", "", filmFlag);
}

void CPatientNameParser::ParseSpaceToEnglish(std::string name, int filmFlag) {
  const int count = GetNumberOfComponents(name, kBlank);
  const auto spans = WordSpans(name);
  std::string first;
  std::string middle;
  std::string last;
  switch (count) {
    case 0:  // Only blanks: nothing to show.
      break;
    case 1:
      first = Word(name, spans[0]);
      break;
    case 2:
      // "John Doe" is shown exactly as typed, whatever the flag: two words cannot say which
      // is the surname reliably enough to reorder them on film.
      firstName_ = Word(name, spans[0]);
      lastName_ = Word(name, spans[1]);
      middleName_.clear();
      namePrefix_.clear();
      nameSuffix_.clear();
      englishName_ = name;
      GenerateDICOMName(lastName_, firstName_, "", "", "");
      return;
    case 3:
      first = Word(name, spans[0]);
      middle = Word(name, spans[1]);
      last = Word(name, spans[2]);
      break;
    case 4:
      // No surname particles are recognised: "John Paul Van Dam" has last name "Dam".
      first = Word(name, spans[0]);
      middle = Word(name, spans[1]) + " " + Word(name, spans[2]);
      last = Word(name, spans[3]);
      break;
    default:
      first = Word(name, spans[0]);
      middle = Word(name, spans[1]) + " " + Word(name, spans[2]);
      last = TrimBlanks(name.substr(spans[2].second));
      break;
  }
  FinishParse(last, first, middle, "", "", filmFlag);
}

void CPatientNameParser::FormatEnglishName(std::string last, std::string first, std::string middle,
                                           std::string prefix, std::string suffix) {
  std::string english;
  AppendPart(english, prefix, " ");
  AppendPart(english, first, " ");
  AppendPart(english, middle, " ");
  AppendPart(english, last, " ");
  // A name that is only a suffix shows the suffix alone, without a leading comma.
  AppendPart(english, suffix, ", ");
  englishName_ = std::move(english);
  lastName_ = std::move(last);
  firstName_ = std::move(first);
  middleName_ = std::move(middle);
  namePrefix_ = std::move(prefix);
  nameSuffix_ = std::move(suffix);
}

void CPatientNameParser::FormatFilmEnglishName(std::string last, std::string first,
                                               std::string middle, std::string prefix,
                                               std::string suffix) {
  std::string film;
  AppendPart(film, last, ", ");
  if (!first.empty()) {
    AppendPart(film, first, ", ");
    AppendPart(film, middle, " ");
  } else {
    AppendPart(film, middle, ", ");
  }
  englishName_ = UpperCase(std::move(film));
  lastName_ = std::move(last);
  firstName_ = std::move(first);
  middleName_ = std::move(middle);
  // Film shows no titles; the stored components drop them too, on purpose, so a caller
  // reading them back sees what was printed.
  namePrefix_.clear();
  nameSuffix_.clear();
}

void CPatientNameParser::GenerateDICOMName(std::string last, std::string first, std::string middle,
                                           std::string prefix, std::string suffix) {
  std::string dicom;
  dicom.reserve(last.size() + first.size() + middle.size() + prefix.size() + suffix.size() + 4);
  dicom += last;
  dicom += '^';
  dicom += first;
  dicom += '^';
  dicom += middle;
  dicom += '^';
  dicom += prefix;
  dicom += '^';
  dicom += suffix;
  dicomName_ = UpperCase(RemoveTerminatingCarets(std::move(dicom)));
}

std::string CPatientNameParser::GetPreString(std::string text, std::string delimiter) {
  if (text.empty()) return std::string();
  const std::size_t pos = delimiter.empty() ? std::string::npos : text.find(delimiter);
  if (pos == std::string::npos) return text;
  return text.substr(0, pos);
}

std::string CPatientNameParser::GetPostString(std::string text, std::string delimiter) {
  if (text.empty()) return std::string();
  const std::size_t pos = delimiter.empty() ? std::string::npos : text.find(delimiter);
  if (pos == std::string::npos) return std::string();
  // Skips one character only: callers split on one-character delimiters.
  return text.substr(pos + 1);
}

std::string CPatientNameParser::GetPostIncludingString(std::string text, std::string delimiter) {
  std::string post = GetPostString(std::move(text), delimiter);
  if (post.empty()) return post;
  return delimiter + post;
}

std::string CPatientNameParser::RemoveTerminatingCarets(std::string text) {
  const std::size_t keep = text.find_last_not_of('^');
  text.resize(keep == std::string::npos ? 0 : keep + 1);
  return text;
}

int CPatientNameParser::GetNumberOfComponents(std::string text, const std::string& delimiter) {
  if (delimiter.empty() || text.find(delimiter) == std::string::npos) return 0;
  int count = 0;
  std::size_t start = 0;
  for (;;) {
    const std::size_t pos = text.find(delimiter, start);
    const std::size_t end = pos == std::string::npos ? text.size() : pos;
    if (end > start) ++count;
    if (pos == std::string::npos) break;
    start = pos + delimiter.size();
  }
  return count;
}

int CPatientNameParser::ContainsCaret(std::string text) {
  return text.find('^') != std::string::npos ? 1 : 0;
}

int CPatientNameParser::ContainsComma(std::string text) {
  return text.find(',') != std::string::npos ? 1 : 0;
}

int CPatientNameParser::ContainsSpace(std::string text) {
  return text.find(' ') != std::string::npos ? 1 : 0;
}

std::string CPatientNameParser::GetDICOMPN() const { return dicomName_; }
std::string CPatientNameParser::GetEnglishPN() const { return englishName_; }
std::string CPatientNameParser::GetFirstName() const { return firstName_; }
std::string CPatientNameParser::GetLastName() const { return lastName_; }
std::string CPatientNameParser::GetMiddleName() const { return middleName_; }
std::string CPatientNameParser::GetNamePrefix() const { return namePrefix_; }
std::string CPatientNameParser::GetNameSuffix() const { return nameSuffix_; }
