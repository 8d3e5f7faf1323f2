#pragma once

// Fresh databases for the record-set tests, on SQLite and on PostgreSQL. Every database test
// is run on both: SQLite always, PostgreSQL when KESTREL_TEST_PG holds the connect string of a
// server (scripts/pg.sh starts a private one; scripts/test.sh always does). Without it the
// PostgreSQL cases are skipped.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kestrel/CDatabase.h"
#include "tests/frame/FrameTestSupport.h"

namespace store_test {

enum class Backend { kSQLite, kPostgreSQL };

std::string BackendName(Backend backend);

// The connect string of KESTREL_TEST_PG ("" when unset) and one of its keys ("Port", ...).
std::string PostgreSQLServer();
std::string ConnectValue(const std::string& connect, const std::string& key);

// An empty database of its own: an SQLite file in a temporary directory, or a PostgreSQL
// database made for it and dropped with it.
class TestDatabase {
 public:
  explicit TestDatabase(Backend backend);
  ~TestDatabase();
  TestDatabase(const TestDatabase&) = delete;
  TestDatabase& operator=(const TestDatabase&) = delete;

  Backend backend() const { return backend_; }
  // A DRIVER=... connect string for it.
  const std::string& connect() const { return connect_; }
  const kestrel_test::TempDir& dir() const { return dir_; }
  // A user odbc.ini in the temporary directory whose "DICOMServer" and "RISInterface" name this
  // database (for the PostgreSQL one, user "admin" unless `user` and `password` say otherwise).
  std::string WriteOdbcIni(const std::string& user = "", const std::string& password = "") const;

 private:
  Backend backend_;
  kestrel_test::TempDir dir_;
  std::string name_;
  std::string connect_;
};

// The fixture of the database tests: a fresh database with the image tables, open in
// `database`, and ODBCINI pointing at an odbc.ini of the test's own (empty until written).
class DatabaseTest : public ::testing::TestWithParam<Backend> {
 protected:
  void SetUp() override;
  void TearDown() override;
  bool IsSQLite() const { return GetParam() == Backend::kSQLite; }

  std::unique_ptr<TestDatabase> test_;
  std::unique_ptr<kestrel_test::ScopedEnv> odbcIni_;
  CDatabase database;
};

// unixODBC keeps every odbc.ini value it has read for about 20 seconds, whatever file ODBCINI
// names by then. Tests that reach a database through a data source call this with their own
// odbc.ini: false when another one was in use in this process too recently for the new one to
// be seen. ctest runs every test in a process of its own, where this never happens.
bool DataSourcesUsable(const std::string& odbcIni);

#define KESTREL_REQUIRE_DATA_SOURCES(odbcIni)                                             \
  do {                                                                                    \
    if (!::store_test::DataSourcesUsable(odbcIni)) {                                      \
      GTEST_SKIP() << "another odbc.ini was read in this process less than 25 s ago and " \
                      "unixODBC still has its values; run this test in a process of its " \
                      "own (ctest does)";                                                 \
    }                                                                                     \
  } while (0)

struct BackendNamePrinter {
  std::string operator()(const ::testing::TestParamInfo<Backend>& info) const {
    return BackendName(info.param);
  }
};

}  // namespace store_test

#define KESTREL_ON_BOTH_DATABASES(Suite)                                                     \
  INSTANTIATE_TEST_SUITE_P(                                                                  \
      Databases, Suite,                                                                      \
      ::testing::Values(::store_test::Backend::kSQLite, ::store_test::Backend::kPostgreSQL), \
      ::store_test::BackendNamePrinter())
