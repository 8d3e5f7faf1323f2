// The translation of bracketed identifiers into each driver's quoting, which every statement of
// the record sets goes through.
#include "store/SqlDialect.h"

#include <gtest/gtest.h>

namespace {

using KESTREL::store::Dialect;
using KESTREL::store::DialectFor;
using KESTREL::store::TranslateSql;

const Dialect kSQLite = DialectFor("SQLite", "\"");
const Dialect kPostgreSQL = DialectFor("PostgreSQL", "\"");

TEST(SqlDialectTest, DialectComesFromTheDriversProductName) {
  EXPECT_EQ(DialectFor("SQLite", "\"").kind, KESTREL::store::DialectKind::kSQLite);
  EXPECT_EQ(DialectFor("PostgreSQL", "\"").kind, KESTREL::store::DialectKind::kPostgreSQL);
  const Dialect mysql = DialectFor("MySQL", "`");
  EXPECT_EQ(mysql.kind, KESTREL::store::DialectKind::kOther);
  EXPECT_EQ(mysql.quote, '`');
  EXPECT_EQ(TranslateSql("SELECT [AE Title] FROM [Server]", mysql),
            "SELECT `AE Title` FROM `Server`");
  // A driver without identifier quoting gets the names bare.
  EXPECT_EQ(TranslateSql("SELECT [A] FROM [B]", DialectFor("Other", " ")), "SELECT A FROM B");
}

TEST(SqlDialectTest, TranslatesBracketsOutsideLiterals) {
  struct Case {
    const char* sql;
    const char* sqlite;
    const char* postgresql;
  };
  const Case cases[] = {
      {"[Patient]", "`Patient`", "\"patient\""},
      {"[Study].PatientUID = [Patient].PatientUID", "`Study`.PatientUID = `Patient`.PatientUID",
       "\"study\".PatientUID = \"patient\".PatientUID"},
      {"SELECT [AE Title], [Server ID] FROM [Server]",
       "SELECT `AE Title`, `Server ID` FROM `Server`",
       "SELECT \"ae title\", \"server id\" FROM \"server\""},
      // SQLite has no owners; PostgreSQL keeps dbo as the schema.
      {"[dbo].[OrderTable],[dbo].[PatientTable]", "`OrderTable`,`PatientTable`",
       "\"dbo\".\"ordertable\",\"dbo\".\"patienttable\""},
      {"[dbo].[OrderTable].[PatientID]", "`OrderTable`.`PatientID`",
       "\"dbo\".\"ordertable\".\"patientid\""},
      // A name that merely starts with dbo, or dbo not followed by a dot, is a name.
      {"[dbo]", "`dbo`", "\"dbo\""},
      {"[dbox].[T]", "`dbox`.`T`", "\"dbox\".\"t\""},
      // Literals keep their brackets, also with quotes doubled inside.
      {"[PatientsName] = 'Doe [Jr]'", "`PatientsName` = 'Doe [Jr]'",
       "\"patientsname\" = 'Doe [Jr]'"},
      {"[A] = 'O''Brien [x]' AND [B] = '['", "`A` = 'O''Brien [x]' AND `B` = '['",
       "\"a\" = 'O''Brien [x]' AND \"b\" = '['"},
      // Names the text quotes itself stay as they are.
      {"\"Mixed[Case]\" = [X]", "\"Mixed[Case]\" = `X`", "\"Mixed[Case]\" = \"x\""},
      // The driver's quote character inside a bracketed name is doubled; "]]" stands for "]".
      {"[a\"b]", "`a\"b`", "\"a\"\"b\""},
      {"[a`b]", "`a``b`", "\"a`b\""},
      {"[a]]b]", "`a]b`", "\"a]b\""},
      // Only ASCII letters change case: UTF-8 bytes pass untouched.
      {"[\xC3\x84rger]", "`\xC3\x84rger`", "\"\xC3\x84rger\""},
      // An unterminated bracket or literal is left for the database to refuse.
      {"SELECT [Open", "SELECT [Open", "SELECT [Open"},
      {"x = 'open [a]", "x = 'open [a]", "x = 'open [a]"},
      {"", "", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(TranslateSql(c.sql, kSQLite), c.sqlite) << c.sql;
    EXPECT_EQ(TranslateSql(c.sql, kPostgreSQL), c.postgresql) << c.sql;
  }
}

TEST(SqlDialectTest, CatalogNamesForKeyLookups) {
  struct Case {
    const char* table;
    const char* sqliteSchema;
    const char* sqliteTable;
    const char* postgresqlSchema;
    const char* postgresqlTable;
  };
  const Case cases[] = {
      {"[Patient]", "", "Patient", "", "patient"},
      {" Patient ", "", "Patient", "", "patient"},
      {"[dbo].[OrderTable]", "", "OrderTable", "dbo", "ordertable"},
      {"main.[Image]", "main", "Image", "main", "image"},
      {"[Server ID Table]", "", "Server ID Table", "", "server id table"},
  };
  for (const Case& c : cases) {
    const KESTREL::store::CatalogName sqlite = KESTREL::store::CatalogNameOf(c.table, kSQLite);
    const KESTREL::store::CatalogName pg = KESTREL::store::CatalogNameOf(c.table, kPostgreSQL);
    EXPECT_EQ(sqlite.schema, c.sqliteSchema) << c.table;
    EXPECT_EQ(sqlite.table, c.sqliteTable) << c.table;
    EXPECT_EQ(pg.schema, c.postgresqlSchema) << c.table;
    EXPECT_EQ(pg.table, c.postgresqlTable) << c.table;
  }
}

TEST(SqlDialectTest, TellsStatementsJoinsAndSingleTablesApart) {
  struct Case {
    const char* text;
    bool select;
    bool single;
  };
  const Case cases[] = {
      {"[Patient]", false, true},
      {"[dbo].[OrderTable]", false, true},
      {"[Study], [Patient]", false, false},
      {"[dbo].[OrderTable],[dbo].[PatientTable]", false, false},
      {"[Study] JOIN [Patient] ON x = y", false, false},
      {"[Patient] p", false, false},
      {"SELECT [Series].*, 0 as NumImages from [Series]", true, false},
      {"  select 1", true, false},
      {"(SELECT 1)", true, false},
      {"WITH x AS (SELECT 1) SELECT * FROM x", true, false},
      {"Selection", false, true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(KESTREL::store::IsSelectStatement(c.text), c.select) << c.text;
    EXPECT_EQ(KESTREL::store::IsSingleTableName(c.text), c.single) << c.text;
  }
}

TEST(SqlDialectTest, ColumnPartOfBoundNames) {
  struct Case {
    const char* bound;
    const char* column;
    const char* qualifier;
  };
  const Case cases[] = {
      {"[PatientID]", "PatientID", ""},
      {"[Study].PatientUID", "PatientUID", "Study"},
      {"[dbo].[OrderTable].[PatientID]", "PatientID", "OrderTable"},
      {"[AE Title]", "AE Title", ""},
  };
  for (const Case& c : cases) {
    std::string qualifier = "stale";
    EXPECT_EQ(KESTREL::store::ColumnPartOf(c.bound, &qualifier), c.column) << c.bound;
    EXPECT_EQ(qualifier, c.qualifier) << c.bound;
  }
}

TEST(SqlDialectTest, SplitsScriptsOnSemicolonsOutsideLiteralsAndNames) {
  const std::string script =
      "-- a comment; with a semicolon\n"
      "CREATE TABLE [a;b] (x TEXT DEFAULT ';');\n"
      "\n"
      "INSERT INTO t VALUES ('it''s; fine')  ;;\n"
      "SELECT \"q;q\"";
  const std::vector<std::string> statements = KESTREL::store::SplitStatements(script);
  ASSERT_EQ(statements.size(), 3u);
  EXPECT_EQ(statements[0], "CREATE TABLE [a;b] (x TEXT DEFAULT ';')");
  EXPECT_EQ(statements[1], "INSERT INTO t VALUES ('it''s; fine')");
  EXPECT_EQ(statements[2], "SELECT \"q;q\"");
}

TEST(SqlDialectTest, LiteralsBecomeParametersOutsideNames) {
  struct Case {
    std::string sql, parameterized;
    std::vector<std::string> values;
  } cases[] = {
      {"[PatientID]='O''1' AND [PatientsName] Is Null",
       "[PatientID]=? AND [PatientsName] Is Null",
       {"O'1"}},
      {"[PatientID] LIKE '%5\\_1%' ESCAPE '\\'", "[PatientID] LIKE ? ESCAPE ?", {"%5\\_1%", "\\"}},
      {"[it's] = '' AND \"o'k\" = 'x'", "[it's] = ? AND \"o'k\" = ?", {"", "x"}},
      {"[PatientUID]=5", "[PatientUID]=5", {}},
      {"[A]='unterminated", "[A]='unterminated", {}},
      {"[A]='ends in a doubled quote''", "[A]='ends in a doubled quote''", {}},
  };
  for (const Case& c : cases) {
    std::vector<std::string> values{"stale"};
    EXPECT_EQ(KESTREL::store::ParameterizeLiterals(c.sql, &values), c.parameterized) << c.sql;
    EXPECT_EQ(values, c.values) << c.sql;
  }
}

}  // namespace
