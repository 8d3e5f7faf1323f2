#pragma once

// The acceptance table of an association, read from its configuration file ("pdu.txt"). Each
// line not starting with "#" holds three words: a name, a value and a kind. The kinds, compared
// without regard to case, are "RemoteAE", "LocalAE", "abstract" (or "sop"), "transfer" and
// "Application"; other kinds and lines of fewer than three words are ignored. Lines are read
// as at most 255 characters (a longer line goes on as the next one). A missing file, or none,
// leaves every list empty, which accepts everything.

#include <string>
#include <utility>
#include <vector>

namespace KESTREL {

class AcceptanceTable {
 public:
  enum Kind { kRemoteAE, kLocalAE, kAbstractSyntax, kTransferSyntax, kApplicationContext, kKinds };
  using Row = std::pair<std::string, std::string>;  // (value, name)

  // Reads `fileName`; null or "" reads nothing.
  void Load(const char* fileName);
  const std::vector<Row>& Rows(Kind kind) const { return rows_[kind]; }
  // True when the kind has no rows, or `value` equals one of its values.
  [[nodiscard]] bool Accepts(Kind kind, const std::string& value) const;

 private:
  std::vector<Row> rows_[kKinds];
};

}  // namespace KESTREL
