#include "AcceptanceTable.h"

#include <strings.h>

#include <cctype>
#include <cstdio>
#include <memory>

namespace KESTREL {
namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

constexpr int kLineBytes = 256;  // 255 characters and the NUL, as the file was always read

struct KindName {
  const char* name;
  AcceptanceTable::Kind kind;
};

constexpr KindName kKindNames[] = {
    {"RemoteAE", AcceptanceTable::kRemoteAE},
    {"LocalAE", AcceptanceTable::kLocalAE},
    {"abstract", AcceptanceTable::kAbstractSyntax},
    {"sop", AcceptanceTable::kAbstractSyntax},
    {"transfer", AcceptanceTable::kTransferSyntax},
    {"Application", AcceptanceTable::kApplicationContext},
};

std::vector<std::string> Words(const char* line) {
  std::vector<std::string> words;
  while (*line) {
    while (*line && std::isspace(static_cast<unsigned char>(*line))) ++line;
    const char* start = line;
    while (*line && !std::isspace(static_cast<unsigned char>(*line))) ++line;
    if (line > start) words.emplace_back(start, line);
  }
  return words;
}

bool KindOf(const std::string& word, AcceptanceTable::Kind* kind) {
  for (const KindName& entry : kKindNames) {
    if (strcasecmp(word.c_str(), entry.name) == 0) {
      *kind = entry.kind;
      return true;
    }
  }
  return false;
}

}  // namespace

// Two passes: the first counts the rows of each kind and sizes the lists, the
// second (after rewinding) stores them.
void AcceptanceTable::Load(const char* fileName) {
  for (auto& rows : rows_) rows.clear();
  if (!fileName || !*fileName) return;
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(fileName, "r"));
  if (!file) return;
  char line[kLineBytes];
  size_t counts[kKinds] = {};
  for (int pass = 0; pass < 2; ++pass) {
    while (std::fgets(line, sizeof line, file.get())) {
      if (line[0] == '#') continue;
      std::vector<std::string> words = Words(line);
      Kind kind;
      if (words.size() < 3 || !KindOf(words[2], &kind)) continue;
      if (pass == 0)
        ++counts[kind];
      else
        rows_[kind].emplace_back(words[1], words[0]);
    }
    if (pass == 0) {
      for (int kind = 0; kind < kKinds; ++kind) rows_[kind].reserve(counts[kind]);
      std::rewind(file.get());
    }
  }
}

bool AcceptanceTable::Accepts(Kind kind, const std::string& value) const {
  if (rows_[kind].empty()) return true;
  for (const Row& row : rows_[kind]) {
    if (row.first == value) return true;
  }
  return false;
}

}  // namespace KESTREL
