#include "SqlDialect.h"

#include <cctype>
#include <cstddef>

namespace KESTREL::store {
namespace {

char LowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

std::string LowerAscii(const std::string& text) {
  std::string lower(text);
  for (char& c : lower) c = LowerAscii(c);
  return lower;
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// The end (one past the closing quote) of a literal or quoted name opening at `start`; a quote
// written twice inside stands for itself. An unterminated one runs to the end of the text.
size_t EndOfQuoted(const std::string& text, size_t start) {
  const char quote = text[start];
  size_t i = start + 1;
  while (i < text.size()) {
    if (text[i] == quote) {
      if (i + 1 < text.size() && text[i + 1] == quote) {
        i += 2;
        continue;
      }
      return i + 1;
    }
    ++i;
  }
  return text.size();
}

// Reads the bracketed name opening at `start` into `name`; gives the index of the closing
// bracket, or npos when there is none.
size_t ReadBracketed(const std::string& text, size_t start, std::string* name) {
  name->clear();
  size_t i = start + 1;
  while (i < text.size()) {
    if (text[i] == ']') {
      if (i + 1 < text.size() && text[i + 1] == ']') {
        *name += ']';
        i += 2;
        continue;
      }
      return i;
    }
    *name += text[i++];
  }
  return std::string::npos;
}

std::string Quote(const std::string& name, const Dialect& dialect) {
  const std::string written = dialect.kind == DialectKind::kPostgreSQL ? LowerAscii(name) : name;
  const char q = dialect.quote;
  if (q == ' ' || q == '\0') return written;
  std::string quoted(1, q);
  for (char c : written) {
    quoted += c;
    if (c == q) quoted += q;
  }
  quoted += q;
  return quoted;
}

// Splits a possibly qualified name into its parts: bracketed or bare, separated by dots.
// False when the text is anything else (blanks or commas between names, an open bracket).
bool SplitQualifiedName(const std::string& text, std::vector<std::string>* parts) {
  parts->clear();
  const std::string trimmed = Trim(text);
  size_t i = 0;
  while (i <= trimmed.size()) {
    std::string part;
    if (i < trimmed.size() && trimmed[i] == '[') {
      const size_t close = ReadBracketed(trimmed, i, &part);
      if (close == std::string::npos) return false;
      i = close + 1;
    } else {
      while (i < trimmed.size() && trimmed[i] != '.') {
        const char c = trimmed[i];
        if (IsBlank(c) || c == ',' || c == '[' || c == ']' || c == '(' || c == ')') return false;
        part += c;
        ++i;
      }
    }
    if (part.empty()) return false;
    parts->push_back(part);
    if (i == trimmed.size()) return true;
    if (trimmed[i] != '.') return false;
    ++i;
  }
  return false;
}

}  // namespace

bool EqualsIgnoreCase(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (LowerAscii(a[i]) != LowerAscii(b[i])) return false;
  }
  return true;
}

std::string Trim(const std::string& text) {
  size_t begin = 0;
  size_t end = text.size();
  while (begin < end && IsBlank(text[begin])) ++begin;
  while (end > begin && IsBlank(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

std::string ParameterizeLiterals(const std::string& sql, std::vector<std::string>* values) {
  values->clear();
  std::string text;
  size_t i = 0;
  while (i < sql.size()) {
    const char c = sql[i];
    if (c == '\'') {
      std::string value;
      bool closed = false;
      for (++i; i < sql.size() && !closed; ++i) {
        if (sql[i] != '\'') {
          value += sql[i];
        } else if (i + 1 < sql.size() && sql[i + 1] == '\'') {
          value += sql[i++];  // '' stands for one quote
        } else {
          closed = true;
        }
      }
      if (!closed) {
        values->clear();
        return sql;
      }
      values->push_back(value);
      text += '?';
    } else if (c == '"' || c == '[') {
      std::string name;
      const size_t end = c == '"' ? EndOfQuoted(sql, i) : ReadBracketed(sql, i, &name);
      const size_t stop = end == std::string::npos ? sql.size() : (c == '"' ? end : end + 1);
      text.append(sql, i, stop - i);
      i = stop;
    } else {
      text += c;
      ++i;
    }
  }
  return text;
}

Dialect DialectFor(const std::string& dbmsName, const std::string& quoteChar) {
  Dialect dialect;
  dialect.quote = quoteChar.empty() ? ' ' : quoteChar[0];
  const std::string name = LowerAscii(dbmsName);
  if (name.find("sqlite") != std::string::npos) {
    // Not the '"' the driver reports: SQLite reads a double-quoted name that matches no column
    // as a string literal, so a misspelt column would compare as text instead of failing.
    // Back-quoted names are always names.
    dialect.kind = DialectKind::kSQLite;
    dialect.quote = '`';
  } else if (name.find("postgres") != std::string::npos) {
    dialect.kind = DialectKind::kPostgreSQL;
    dialect.quote = '"';
  }
  return dialect;
}

std::string TranslateSql(const std::string& sql, const Dialect& dialect) {
  std::string out;
  out.reserve(sql.size() + 16);
  size_t i = 0;
  while (i < sql.size()) {
    const char c = sql[i];
    if (c == '\'' || c == '"') {
      const size_t end = EndOfQuoted(sql, i);
      out.append(sql, i, end - i);
      i = end;
      continue;
    }
    if (c == '[') {
      std::string name;
      const size_t close = ReadBracketed(sql, i, &name);
      if (close == std::string::npos) {
        out.append(sql, i, std::string::npos);
        break;
      }
      // SQLite has no owners: the tables of "[dbo].[OrderTable]" live in the main file.
      if (dialect.kind == DialectKind::kSQLite && EqualsIgnoreCase(name, "dbo") &&
          close + 1 < sql.size() && sql[close + 1] == '.') {
        i = close + 2;
        continue;
      }
      out += Quote(name, dialect);
      i = close + 1;
      continue;
    }
    out += c;
    ++i;
  }
  return out;
}

CatalogName CatalogNameOf(const std::string& tableText, const Dialect& dialect) {
  std::vector<std::string> parts;
  CatalogName catalog;
  if (!SplitQualifiedName(tableText, &parts)) {
    catalog.table = Trim(tableText);
    return catalog;
  }
  catalog.table = parts.back();
  if (parts.size() >= 2) catalog.schema = parts[parts.size() - 2];
  if (dialect.kind == DialectKind::kSQLite && EqualsIgnoreCase(catalog.schema, "dbo")) {
    catalog.schema.clear();
  }
  if (dialect.kind == DialectKind::kPostgreSQL) {
    catalog.schema = LowerAscii(catalog.schema);
    catalog.table = LowerAscii(catalog.table);
  }
  return catalog;
}

bool IsSelectStatement(const std::string& sql) {
  size_t i = 0;
  while (i < sql.size() && (IsBlank(sql[i]) || sql[i] == '(')) ++i;
  std::string word;
  while (i < sql.size() && std::isalpha(static_cast<unsigned char>(sql[i]))) word += sql[i++];
  return EqualsIgnoreCase(word, "select") || EqualsIgnoreCase(word, "with");
}

bool IsSingleTableName(const std::string& tableText) {
  std::vector<std::string> parts;
  return SplitQualifiedName(tableText, &parts);
}

std::string ColumnPartOf(const std::string& boundName, std::string* qualifier) {
  std::vector<std::string> parts;
  if (qualifier) qualifier->clear();
  if (!SplitQualifiedName(boundName, &parts)) return Trim(boundName);
  if (qualifier && parts.size() >= 2) *qualifier = parts[parts.size() - 2];
  return parts.back();
}

std::vector<std::string> SplitStatements(const std::string& script) {
  std::vector<std::string> statements;
  std::string current;
  size_t i = 0;
  auto finish = [&]() {
    std::string statement = Trim(current);
    if (!statement.empty()) statements.push_back(statement);
    current.clear();
  };
  while (i < script.size()) {
    const char c = script[i];
    if (c == '\'' || c == '"') {
      const size_t end = EndOfQuoted(script, i);
      current.append(script, i, end - i);
      i = end;
    } else if (c == '[') {
      std::string name;
      const size_t close = ReadBracketed(script, i, &name);
      const size_t end = close == std::string::npos ? script.size() : close + 1;
      current.append(script, i, end - i);
      i = end;
    } else if (c == '-' && i + 1 < script.size() && script[i + 1] == '-') {
      while (i < script.size() && script[i] != '\n') ++i;
    } else if (c == ';') {
      finish();
      ++i;
    } else {
      current += c;
      ++i;
    }
  }
  finish();
  return statements;
}

}  // namespace KESTREL::store
