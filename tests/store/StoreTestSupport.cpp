#include "tests/store/StoreTestSupport.h"

#include <strings.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>

#include "kestrel/DatabaseSetup.h"
#include "kestrel/Status.h"

namespace store_test {

std::string BackendName(Backend backend) {
  return backend == Backend::kSQLite ? "SQLite" : "PostgreSQL";
}

std::string PostgreSQLServer() {
  const char* server = std::getenv("KESTREL_TEST_PG");
  return server ? server : "";
}

std::string ConnectValue(const std::string& connect, const std::string& key) {
  size_t start = 0;
  while (start < connect.size()) {
    size_t end = connect.find(';', start);
    if (end == std::string::npos) end = connect.size();
    const std::string pair = connect.substr(start, end - start);
    const size_t equals = pair.find('=');
    if (equals != std::string::npos &&
        strcasecmp(pair.substr(0, equals).c_str(), key.c_str()) == 0) {
      return pair.substr(equals + 1);
    }
    start = end + 1;
  }
  return "";
}

namespace {

std::atomic<int> databaseCounter{0};

// Databases are made and dropped by tests running side by side, which wait for each other on
// the template database: longer than the short lock wait the library sets for its connections.
void OnServer(const std::string& statement) {
  CDatabase server;
  server.Open(PostgreSQLServer() + "Database=postgres;");
  server.ExecuteSQL("SET lock_timeout = '60s'");
  server.ExecuteSQL(statement);
}

}  // namespace

TestDatabase::TestDatabase(Backend backend) : backend_(backend) {
  if (backend == Backend::kSQLite) {
    connect_ = "DRIVER=SQLite3;Database=" + dir_.File("test.db") + ";";
    return;
  }
  name_ = "kt_" + std::to_string(getpid()) + "_" + std::to_string(databaseCounter++);
  OnServer("CREATE DATABASE " + name_);
  connect_ = PostgreSQLServer() + "Database=" + name_ + ";";
}

TestDatabase::~TestDatabase() {
  if (name_.empty()) return;
  try {
    OnServer("DROP DATABASE IF EXISTS " + name_ + " WITH (FORCE)");
  } catch (const std::exception& e) {
    ADD_FAILURE() << "could not drop test database " << name_ << ": " << e.what();
  }
}

std::string TestDatabase::WriteOdbcIni(const std::string& user, const std::string& password) const {
  std::string text;
  for (const char* source : {"DICOMServer", "RISInterface"}) {
    text += std::string("[") + source + "]\n";
    if (backend_ == Backend::kSQLite) {
      text += "Driver=SQLite3\nDatabase=" + dir_.File("test.db") + "\n";
    } else {
      const std::string server = PostgreSQLServer();
      text += "Driver=" + ConnectValue(server, "DRIVER") + "\n";
      text += "Servername=" + ConnectValue(server, "Servername") + "\n";
      text += "Port=" + ConnectValue(server, "Port") + "\n";
      text += "Database=" + name_ + "\n";
      text += "Username=" + (user.empty() ? std::string("admin") : user) + "\n";
      if (!password.empty()) text += "Password=" + password + "\n";
    }
    text += "\n";
  }
  const std::string path = dir_.File("odbc.ini");
  kestrel_test::WriteWholeFile(path, text);
  return path;
}

bool DataSourcesUsable(const std::string& odbcIni) {
  static std::string lastIni;
  static std::chrono::steady_clock::time_point lastUse;
  const auto now = std::chrono::steady_clock::now();
  const bool usable =
      lastIni.empty() || lastIni == odbcIni || now - lastUse > std::chrono::seconds(25);
  if (usable) {
    lastIni = odbcIni;
    lastUse = now;
  }
  return usable;
}

void DatabaseTest::SetUp() {
  if (GetParam() == Backend::kPostgreSQL && PostgreSQLServer().empty()) {
    GTEST_SKIP() << "KESTREL_TEST_PG is not set; run scripts/pg.sh start for a server";
  }
  test_ = std::make_unique<TestDatabase>(GetParam());
  odbcIni_ =
      std::make_unique<kestrel_test::ScopedEnv>("ODBCINI", test_->dir().File("odbc.ini").c_str());
  database.Open(test_->connect());
  ASSERT_TRUE(KESTREL::CreateImageTables(database)) << KESTREL::GetLastErrorText();
}

void DatabaseTest::TearDown() {
  database.Close();
  test_.reset();
  odbcIni_.reset();
}

}  // namespace store_test
