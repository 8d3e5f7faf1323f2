// Runs the built `kestrel db` command against a home of its own, and against PostgreSQL.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/frame/ToolRun.h"
#include "tests/store/StoreTestSupport.h"

namespace {

using kestrel_test::ScopedEnv;
using kestrel_test::TempDir;

struct ToolResult {
  int exitCode;
  std::string out;
  std::string err;
};

// A Kestrel home and an odbc.ini of the test's own.
class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!kestrel_test::ToolBuilt()) GTEST_SKIP() << "no tool at " << kestrel_test::ToolPath();
    home_ = std::make_unique<ScopedEnv>("KESTREL_HOME", dir_.File("home").c_str());
    ini_ = std::make_unique<ScopedEnv>("ODBCINI", dir_.File("odbc.ini").c_str());
  }
  ToolResult Run(const std::string& args) {
    kestrel_test::ToolRun run = kestrel_test::RunTool(args, "2>" + dir_.File("stderr.txt"));
    return {run.exitCode, run.out, kestrel_test::ReadWholeFile(dir_.File("stderr.txt"))};
  }

  TempDir dir_;
  std::unique_ptr<ScopedEnv> home_;
  std::unique_ptr<ScopedEnv> ini_;
};

// The same on the embedded database (SQLite) and, with --db, on PostgreSQL.
class DbCommandTest : public ToolTest, public ::testing::WithParamInterface<store_test::Backend> {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    if (IsSkipped()) return;
    if (GetParam() == store_test::Backend::kPostgreSQL) {
      if (store_test::PostgreSQLServer().empty()) GTEST_SKIP() << "KESTREL_TEST_PG is not set";
      database_ = std::make_unique<store_test::TestDatabase>(GetParam());
      db_ = " --db '" + database_->connect() + "'";
    }
  }

  std::unique_ptr<store_test::TestDatabase> database_;
  std::string db_;  // the --db option, or "" for the embedded database
};
KESTREL_ON_BOTH_DATABASES(DbCommandTest);

TEST_P(DbCommandTest, InitCreatesTheTablesOnce) {
  for (int round = 0; round < 2; ++round) {
    const ToolResult run = Run("db init --ris" + db_);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("image database ready: "), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("RIS database ready: "), std::string::npos) << run.out;
    EXPECT_EQ(run.out.find("secret"), std::string::npos) << "password printed: " << run.out;
  }
  if (db_.empty()) {
    EXPECT_TRUE(kestrel_test::FileExists(dir_.File("home/index.db")));
    EXPECT_TRUE(kestrel_test::FileExists(dir_.File("home/ris.db")));
    const std::string ini = kestrel_test::ReadWholeFile(dir_.File("odbc.ini"));
    EXPECT_NE(ini.find("[DICOMServer]"), std::string::npos) << ini;
    EXPECT_NE(ini.find("[RISInterface]"), std::string::npos) << ini;
  }
}

TEST_P(DbCommandTest, ServersAreAddedChangedAndListed) {
  if (!db_.empty()) {
    ASSERT_EQ(Run("db init" + db_).exitCode, 0);
  }
  struct Step {
    std::string args;
    std::string out;
  };
  const Step steps[] = {
      {"db server add STORESCP 127.0.0.1 11112 --description 'test node'",
       "added STORESCP 127.0.0.1 11112\n"},
      {"db server add \"O'HARE\" ohare.example 104", "added O'HARE ohare.example 104\n"},
      {"db server add STORESCP localhost 104 --default", "updated STORESCP localhost 104\n"},
  };
  for (const Step& step : steps) {
    const ToolResult run = Run(step.args + db_);
    EXPECT_EQ(run.exitCode, 0) << step.args << ": " << run.err;
    EXPECT_EQ(run.out, step.out) << step.args;
  }
  const ToolResult list = Run("db server list" + db_);
  EXPECT_EQ(list.exitCode, 0) << list.err;
  EXPECT_EQ(list.out,
            "AE Title\tHostname\tPort\tServer ID\tDescription\tType\tDeviceID\tSource\tDefault\n"
            "O'HARE\tohare.example\t104\t2\t\t\t\tkestrel db\t0\n"
            "STORESCP\tlocalhost\t104\t1\ttest node\t\t\tkestrel db\t1\n");
}

TEST_F(ToolTest, DbBadArgumentsAreUsageErrors) {
  const char* const cases[] = {
      "db",
      "db server",
      "db server add STORESCP 127.0.0.1",
      "db server add ABCDEFGHIJKLMNOPQ 127.0.0.1 104",  // 17 characters
      "db server add 'A\\B' 127.0.0.1 104",
      "db server add STORESCP 127.0.0.1 0",
      "db server add STORESCP 127.0.0.1 65536",
      "db server add STORESCP 127.0.0.1 http",
      "db server add STORESCP '' 104",
      "db init --bogus",
  };
  for (const char* args : cases) {
    const ToolResult run = Run(args);
    EXPECT_EQ(run.exitCode, 64) << args << ": " << run.err;
    EXPECT_EQ(run.out, "") << args;
  }
}

TEST_F(ToolTest, DbOnADatabaseThatCannotBeOpenedIsALocalFailure) {
  const char* const cases[] = {
      "db init --db 'DSN=NoSuchSource'",
      "db server list --db 'DRIVER=SQLite3;Database=/nonexistent/x.db'",
      "db server add --db 'DSN=NoSuchSource' A h 1",
  };
  for (const char* args : cases) {
    const ToolResult run = Run(args);
    EXPECT_EQ(run.exitCode, 3) << args;
    EXPECT_NE(run.err.find("cannot open"), std::string::npos) << args << ": " << run.err;
  }
  // A database without the tables: the record set's own text.
  const ToolResult empty =
      Run("db server list --db 'DRIVER=SQLite3;Database=" + dir_.File("empty.db") + "'");
  EXPECT_EQ(empty.exitCode, 3);
  EXPECT_EQ(empty.err.rfind("KESTREL.dll : CBasicRecordSet::Open():  ", 0), 0u) << empty.err;
}

}  // namespace
