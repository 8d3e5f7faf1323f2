// The schema scripts and the embedded set-up: the Kestrel home, its data sources and files.
#include "kestrel/DatabaseSetup.h"

#include <gtest/gtest.h>

#include <string>

#include "kestrel/RecordSets.h"
#include "kestrel/Status.h"
#include "tests/store/StoreTestSupport.h"

namespace {

using kestrel_test::ScopedEnv;
using kestrel_test::TempDir;
using store_test::DatabaseTest;

TEST(DatabaseSetupTest, HomeComesFromKestrelHomeThenHome) {
  struct Case {
    const char* kestrelHome;
    const char* home;
    const char* expected;
  };
  const Case cases[] = {
      {"/srv/kestrel", "/home/ann", "/srv/kestrel"},
      {"", "/home/ann", "/home/ann/.local/share/kestrel"},
      {nullptr, "/home/ann", "/home/ann/.local/share/kestrel"},
      {nullptr, nullptr, ""},
  };
  for (const Case& c : cases) {
    ScopedEnv kestrelHome("KESTREL_HOME", c.kestrelHome);
    ScopedEnv home("HOME", c.home);
    EXPECT_EQ(KESTREL::GetKestrelHome(), c.expected)
        << (c.kestrelHome ? c.kestrelHome : "(unset)") << " " << (c.home ? c.home : "(unset)");
  }
  EXPECT_EQ(KESTREL::GetEmbeddedImageConnect("/k"), "DRIVER=SQLite3;Database=/k/index.db;");
  EXPECT_EQ(KESTREL::GetEmbeddedRISConnect("/k"), "DRIVER=SQLite3;Database=/k/ris.db;");
}

TEST(DatabaseSetupTest, DataSourcesAreWrittenOnlyWhenMissing) {
  TempDir dir;
  const std::string ini = dir.File("odbc.ini");
  KESTREL_REQUIRE_DATA_SOURCES(ini);
  ScopedEnv odbcIni("ODBCINI", ini.c_str());
  // A site's own image database stays; the missing RIS source is added.
  kestrel_test::WriteWholeFile(ini, "[DICOMServer]\nDriver=PostgreSQL ANSI\nServername=pacsdb\n");
  const std::string home = dir.File("home");
  ASSERT_TRUE(KESTREL::PrepareEmbeddedDatabase(home)) << KESTREL::GetLastErrorText();
  EXPECT_TRUE(kestrel_test::FileExists(home));
  const std::string text = kestrel_test::ReadWholeFile(ini);
  EXPECT_NE(text.find("Servername=pacsdb"), std::string::npos) << text;
  EXPECT_EQ(text.find(home + "/index.db"), std::string::npos) << text;
  EXPECT_NE(text.find("[RISInterface]"), std::string::npos) << text;
  EXPECT_NE(text.find("Database=" + home + "/ris.db"), std::string::npos) << text;
  // Nothing more the second time.
  ASSERT_TRUE(KESTREL::PrepareEmbeddedDatabase(home));
  EXPECT_EQ(kestrel_test::ReadWholeFile(ini), text);
}

TEST(DatabaseSetupTest, TheWrittenDataSourcesReachTheEmbeddedFile) {
  TempDir dir;
  const std::string ini = dir.File("odbc.ini");
  KESTREL_REQUIRE_DATA_SOURCES(ini);
  ScopedEnv odbcIni("ODBCINI", ini.c_str());
  const std::string home = dir.File("home");
  ASSERT_TRUE(KESTREL::PrepareEmbeddedDatabase(home)) << KESTREL::GetLastErrorText();
  {
    CDatabase embedded;
    embedded.Open(KESTREL::GetEmbeddedImageConnect(home));
    ASSERT_TRUE(KESTREL::CreateImageTables(embedded)) << KESTREL::GetLastErrorText();
    embedded.ExecuteSQL("INSERT INTO [Server] ([AE Title]) VALUES ('EMBEDDED')");
  }
  // The default connect string finds the same file.
  CServersSet set;
  ASSERT_TRUE(set.Open()) << set.ErrorText;
  EXPECT_EQ(set.AETitle, "EMBEDDED");
}

TEST(DatabaseSetupTest, AHomeThatCannotBeMadeIsReported) {
  TempDir dir;
  kestrel_test::WriteWholeFile(dir.File("file"), "x");
  EXPECT_FALSE(KESTREL::PrepareEmbeddedDatabase(dir.File("file") + "/home"));
  EXPECT_EQ(KESTREL::GetLastErrorText().rfind("KESTREL.dll : PrepareEmbeddedDatabase():  ", 0), 0u)
      << KESTREL::GetLastErrorText();
  EXPECT_FALSE(KESTREL::PrepareEmbeddedDatabase(""));
}

TEST(DatabaseSetupTest, SchemasExistForTheTwoProductsOnly) {
  for (bool ris : {false, true}) {
    EXPECT_NE(KESTREL::GetSchemaSQL(ris, "SQLite"), "");
    EXPECT_NE(KESTREL::GetSchemaSQL(ris, "PostgreSQL"), "");
    EXPECT_EQ(KESTREL::GetSchemaSQL(ris, "Microsoft SQL Server"), "");
  }
  CDatabase closed;
  EXPECT_FALSE(KESTREL::CreateImageTables(closed));
  EXPECT_EQ(KESTREL::GetLastErrorText().rfind("KESTREL.dll : CreateImageTables():  ", 0), 0u);
  EXPECT_FALSE(KESTREL::CreateRISTables(closed));
  EXPECT_EQ(KESTREL::GetLastErrorText().rfind("KESTREL.dll : CreateRISTables():  ", 0), 0u);
}

class SchemaTest : public DatabaseTest {};
KESTREL_ON_BOTH_DATABASES(SchemaTest);

TEST_P(SchemaTest, CreatingTablesAgainKeepsTheirRows) {
  database.ExecuteSQL("INSERT INTO [Patient] ([PatientID]) VALUES ('kept')");
  ASSERT_TRUE(KESTREL::CreateImageTables(database)) << KESTREL::GetLastErrorText();
  ASSERT_TRUE(KESTREL::CreateRISTables(database)) << KESTREL::GetLastErrorText();
  ASSERT_TRUE(KESTREL::CreateRISTables(database)) << KESTREL::GetLastErrorText();
  CPatientSet set(&database);
  ASSERT_TRUE(set.Open());
  EXPECT_EQ(set.PatientID, "kept");
  if (IsSQLite()) return;
  // On PostgreSQL the RIS tables are in their own schema, and the names are the folded ones,
  // so that hand-written SQL without quotes finds them.
  EXPECT_NO_THROW(database.ExecuteSQL("SELECT patientid, ordertableid FROM dbo.ordertable"));
  EXPECT_NO_THROW(database.ExecuteSQL("SELECT PatientUID, PatientsName FROM Patient"));
}

}  // namespace
