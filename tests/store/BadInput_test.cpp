// What a caller of the image database's sets sees when the database cannot be had: FALSE from
// Open, the library's text in the last-error text, no exception and no endless wait.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "kestrel/RecordSets.h"
#include "kestrel/Status.h"
#include "tests/store/StoreTestSupport.h"

namespace {

using store_test::DatabaseTest;

constexpr char kOpenPrefix[] = "KESTREL.dll : CBasicRecordSet::Open():  ";

class BadInputTest : public DatabaseTest {
 protected:
  // Opens `set` through the data sources of `odbcIni` and expects the failure text `text`.
  void ExpectOpenFails(CBasicRecordset& set, const std::string& text) {
    KESTREL::SetLastErrorText("");
    const auto start = std::chrono::steady_clock::now();
    int opened = 1;
    EXPECT_NO_THROW(opened = set.Open());
    EXPECT_FALSE(opened);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_FALSE(set.IsOpen());
    EXPECT_NE(set.ErrorText.find(text), std::string::npos) << set.ErrorText;
    EXPECT_EQ(KESTREL::GetLastErrorText(), kOpenPrefix + set.ErrorText);
  }
  std::string WriteIni(const std::string& text) {
    const std::string path = test_->dir().File("odbc.ini");
    kestrel_test::WriteWholeFile(path, text);
    return path;
  }
};
KESTREL_ON_BOTH_DATABASES(BadInputTest);

TEST_P(BadInputTest, AMissingDataSource) {
  KESTREL_REQUIRE_DATA_SOURCES(WriteIni("[SomethingElse]\nDriver=SQLite3\n"));
  CPatientSet set;
  ExpectOpenFails(set, "Data source name not found");
}

TEST_P(BadInputTest, ADatabaseThatIsNotThere) {
  std::string ini = "[DICOMServer]\n";
  std::string text;
  if (IsSQLite()) {
    ini += "Driver=SQLite3\nDatabase=/nonexistent/kestrel/index.db\n";
    text = "connect failed";  // all the SQLite driver says
  } else {
    // Nothing listens on port 1: a server that is down.
    ini += "Driver=PostgreSQL ANSI\nServername=127.0.0.1\nPort=1\nDatabase=x\n";
    text = "Connection refused";
  }
  KESTREL_REQUIRE_DATA_SOURCES(WriteIni(ini));
  CStudySet set;
  ExpectOpenFails(set, text);
}

TEST_P(BadInputTest, AWrongPassword) {
  if (IsSQLite()) GTEST_SKIP() << "SQLite files have no passwords";
  // The presets' connect string names no user, so the data source's user and password count.
  KESTREL_REQUIRE_DATA_SOURCES(test_->WriteOdbcIni("kestrel", "wrong"));
  CPresetsSet set;
  ExpectOpenFails(set, "password authentication failed");
}

}  // namespace
