#pragma once

// How the library's SQL, written with bracketed identifiers, is said to each database. No ODBC
// here: the functions work on text and are tested on their own.

#include <string>
#include <vector>

namespace KESTREL::store {

enum class DialectKind {
  kSQLite,      // `...` quoting; no schemas, so the owner prefix [dbo]. is dropped
  kPostgreSQL,  // "..." quoting of the lower-cased name, the form PostgreSQL folds bare names to
  kOther,       // the driver's own quote character, names as written
};

struct Dialect {
  DialectKind kind = DialectKind::kOther;
  // The identifier quote character the driver reports; ' ' or '\0' when it has none, in which
  // case bracketed names are written bare.
  char quote = '"';
};

// The dialect for a driver's DBMS name (SQL_DBMS_NAME) and identifier quote character.
Dialect DialectFor(const std::string& dbmsName, const std::string& quoteChar);

// Rewrites every bracketed identifier outside string literals ('...' with '' inside) and
// outside identifiers the text already quotes ("..."). A "]]" inside brackets stands for "]".
// An opening bracket without its closing one is left as it is, for the database to refuse.
std::string TranslateSql(const std::string& sql, const Dialect& dialect);

// The statement with each string literal ('...', with '' inside standing for one quote) outside
// quoted names and brackets replaced by the parameter marker "?", and the literals' values, in
// order, in `values`. Text with an unterminated literal comes back as it is, with no values.
std::string ParameterizeLiterals(const std::string& sql, std::vector<std::string>* values);

// A table named in the bracketed form ("[Patient]", "[dbo].[OrderTable]", "Patient"), split
// into schema and table as the database's catalog stores them (for catalog calls such as the
// primary key lookup): brackets removed, lower-cased for PostgreSQL, [dbo] dropped for SQLite.
struct CatalogName {
  std::string schema;
  std::string table;
};
CatalogName CatalogNameOf(const std::string& tableText, const Dialect& dialect);

// Text helpers shared by the record sets.
[[nodiscard]] bool EqualsIgnoreCase(const std::string& a, const std::string& b);
std::string Trim(const std::string& text);
// True when the SQL is a statement (SELECT or WITH first) rather than table text.
[[nodiscard]] bool IsSelectStatement(const std::string& sql);
// True when the table text is one table name, possibly qualified ("[dbo].[OrderTable]"), rather
// than a join, a list of tables or a table with an alias.
[[nodiscard]] bool IsSingleTableName(const std::string& tableText);
// The column part of a bound name: "[Study].PatientUID" gives "PatientUID", "[AE Title]" gives
// "AE Title"; the qualifier ("Study"), if any, goes to `qualifier`.
std::string ColumnPartOf(const std::string& boundName, std::string* qualifier = nullptr);
// Splits a statement list on ';' outside literals, quoted names and brackets; drops "--"
// comments and empty statements.
std::vector<std::string> SplitStatements(const std::string& script);

}  // namespace KESTREL::store
