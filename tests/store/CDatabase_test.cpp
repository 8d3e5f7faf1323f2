// Connections: the connect string forms, the dialect found for each driver, statements,
// transactions, and how failures to connect are reported.
#include "kestrel/CDatabase.h"

#include <gtest/gtest.h>

#include <chrono>

#include "kestrel/RecordSets.h"
#include "tests/store/StoreTestSupport.h"

namespace {

using store_test::Backend;
using store_test::DatabaseTest;

class CDatabaseTest : public DatabaseTest {};
KESTREL_ON_BOTH_DATABASES(CDatabaseTest);

TEST_P(CDatabaseTest, ConnectsWithAndWithoutTheOdbcPrefixAndThroughADsn) {
  KESTREL_REQUIRE_DATA_SOURCES(test_->WriteOdbcIni());
  const std::string driverForm = test_->connect();
  const std::string forms[] = {
      driverForm,
      "ODBC;" + driverForm,
      "odbc;" + driverForm,
      "  ODBC;" + driverForm,
      "ODBC;DSN=DICOMServer;UID=admin",
      "DSN=DICOMServer",
  };
  for (const std::string& connect : forms) {
    CDatabase other;
    ASSERT_NO_THROW(other.Open(connect)) << connect;
    EXPECT_TRUE(other.IsOpen()) << connect;
    // The string comes back exactly as given: sets that share the connection pass it on.
    EXPECT_EQ(other.GetConnect(), connect);
    EXPECT_EQ(other.GetDBMSName(), IsSQLite() ? "SQLite" : "PostgreSQL") << connect;
    other.Close();
    EXPECT_FALSE(other.IsOpen());
    EXPECT_EQ(other.GetConnect(), "");
  }
}

TEST_P(CDatabaseTest, TranslatesForItsOwnDriver) {
  EXPECT_EQ(database.TranslateSQL("SELECT [AE Title] FROM [dbo].[Server] WHERE x = '[y]'"),
            IsSQLite() ? "SELECT `AE Title` FROM `Server` WHERE x = '[y]'"
                       : "SELECT \"ae title\" FROM \"dbo\".\"server\" WHERE x = '[y]'");
  CDatabase closed;
  EXPECT_THROW(closed.TranslateSQL("[x]"), CDBException);
  EXPECT_THROW(closed.ExecuteSQL("SELECT 1"), CDBException);
}

TEST_P(CDatabaseTest, RollbackUndoesAndCommitKeeps) {
  database.BeginTrans();
  database.ExecuteSQL("INSERT INTO [Login] ([Description]) VALUES ('rolled back')");
  database.Rollback();
  database.BeginTrans();
  database.ExecuteSQL("INSERT INTO [Login] ([Description]) VALUES ('committed')");
  database.CommitTrans();
  CLoginSet set(&database);
  ASSERT_TRUE(set.Open());
  ASSERT_FALSE(set.IsEOF());
  EXPECT_EQ(set.Description, "committed");
  set.MoveNext();
  EXPECT_TRUE(set.IsEOF());
  EXPECT_THROW(database.CommitTrans(), CDBException);  // none open
}

TEST_P(CDatabaseTest, ExecuteSqlReportsTheDriversStateAndText) {
  try {
    database.ExecuteSQL("SELECT * FROM [NoSuchTable]");
    FAIL() << "a missing table was not reported";
  } catch (const CDBException& e) {
    EXPECT_EQ(e.GetSQLState().size(), 5u) << e.GetSQLState();
    const std::string expected = IsSQLite() ? "no such table" : "does not exist";
    EXPECT_NE(e.GetErrorMessage().find(expected), std::string::npos) << e.GetErrorMessage();
    EXPECT_STREQ(e.what(), e.GetErrorMessage().c_str());
  }
}

// Connections that cannot be made: the driver's SQLSTATE and text, and no waiting without end.
TEST_P(CDatabaseTest, FailedConnectionsThrowWithTheDriversText) {
  struct Case {
    std::string connect;
    const char* sqlState;
    const char* text;
  };
  std::vector<Case> cases = {
      {"ODBC;DSN=NoSuchSource;UID=admin", "IM002", "Data source name not found"},
      {"DRIVER=NoSuchDriver;Database=x", "01000", "Can't open lib"},
  };
  if (IsSQLite()) {
    // A file the driver cannot create stands for a database that is not there.
    cases.push_back({"DRIVER=SQLite3;Database=/nonexistent/dir/index.db;", "", ""});
  } else {
    const std::string server = store_test::PostgreSQLServer();
    cases.push_back({"DRIVER=PostgreSQL ANSI;Servername=127.0.0.1;Port=1;UID=admin;Database=x;",
                     "08001", "Connection refused"});
    std::string wrongPassword = server + "Database=postgres;";
    wrongPassword.replace(wrongPassword.find("PWD=secret"), 10, "PWD=wrong");
    cases.push_back({wrongPassword, "08001", "password authentication failed"});
  }
  for (const Case& c : cases) {
    CDatabase failing;
    const auto start = std::chrono::steady_clock::now();
    try {
      failing.Open(c.connect);
      FAIL() << "connected: " << c.connect;
    } catch (const CDBException& e) {
      if (*c.sqlState) {
        EXPECT_EQ(e.GetSQLState(), c.sqlState) << c.connect;
      }
      EXPECT_NE(e.GetErrorMessage().find(c.text), std::string::npos)
          << c.connect << ": " << e.GetErrorMessage();
      EXPECT_FALSE(e.GetErrorMessage().empty()) << c.connect;
    }
    EXPECT_FALSE(failing.IsOpen());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20)) << c.connect;
  }
}

TEST_P(CDatabaseTest, ClosingASharedConnectionClosesItsSets) {
  CPatientSet set(&database);
  ASSERT_TRUE(set.Open());
  database.Close();
  EXPECT_FALSE(set.IsOpen());
  set.Close();  // harmless afterwards
}

}  // namespace
