// The embedded set-up: the Kestrel home directory, its SQLite files, and the two data sources
// the record sets' default connect strings name.
#include <odbcinst.h>
#include <sql.h>
#include <sqlext.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "Odbc.h"
#include "SqlDialect.h"
#include "kestrel/DatabaseSetup.h"
#include "kestrel/Status.h"

namespace {

// The name under which Debian's libsqliteodbc registers its SQLite 3 driver in odbcinst.ini.
constexpr char kSQLiteDriver[] = "SQLite3";
constexpr char kFailure[] = "KESTREL.dll : PrepareEmbeddedDatabase():  ";

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

// Looks among the user's and the system's data sources alike.
bool DataSourceExists(const std::string& name) {
  KESTREL::store::EnvHandle environment;
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, environment.out()))) {
    return false;
  }
  SQLSetEnvAttr(environment.get(), SQL_ATTR_ODBC_VERSION,
                reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  SQLUSMALLINT direction = SQL_FETCH_FIRST;
  SQLCHAR found[SQL_MAX_DSN_LENGTH + 1];
  SQLCHAR description[256];
  SQLSMALLINT foundLength = 0;
  SQLSMALLINT descriptionLength = 0;
  while (
      SQL_SUCCEEDED(SQLDataSources(environment.get(), direction, found, sizeof found, &foundLength,
                                   description, sizeof description, &descriptionLength))) {
    if (KESTREL::store::EqualsIgnoreCase(reinterpret_cast<const char*>(found), name)) return true;
    direction = SQL_FETCH_NEXT;
  }
  return false;
}

// Written through the driver manager's own configuration calls, so the entry lands in the file
// the driver manager reads ($ODBCINI, else ~/.odbc.ini).
bool WriteUserDataSource(const std::string& name, const std::string& description,
                         const std::string& file) {
  SQLSetConfigMode(ODBC_USER_DSN);
  const bool written =
      SQLWritePrivateProfileString(name.c_str(), "Description", description.c_str(), "odbc.ini") &&
      SQLWritePrivateProfileString(name.c_str(), "Driver", kSQLiteDriver, "odbc.ini") &&
      SQLWritePrivateProfileString(name.c_str(), "Database", file.c_str(), "odbc.ini");
  SQLSetConfigMode(ODBC_BOTH_DSN);
  return written;
}

std::string InstallerError() {
  DWORD code = 0;
  char message[SQL_MAX_MESSAGE_LENGTH] = {0};
  WORD length = 0;
  if (SQLInstallerError(1, &code, message, sizeof message, &length) == SQL_SUCCESS) {
    return message;
  }
  return "the ODBC configuration could not be written";
}

}  // namespace

namespace KESTREL {

std::string GetKestrelHome() {
  const std::string home = Environment("KESTREL_HOME");
  if (!home.empty()) return home;
  const std::string user = Environment("HOME");
  if (user.empty()) return std::string();
  return user + "/.local/share/kestrel";
}

std::string GetEmbeddedImageConnect(const std::string& home) {
  return std::string("DRIVER=") + kSQLiteDriver + ";Database=" + home + "/index.db;";
}

std::string GetEmbeddedRISConnect(const std::string& home) {
  return std::string("DRIVER=") + kSQLiteDriver + ";Database=" + home + "/ris.db;";
}

int PrepareEmbeddedDatabase(const std::string& home) {
  if (home.empty()) {
    SetLastErrorText(std::string(kFailure) + "no Kestrel home directory: set KESTREL_HOME or HOME");
    return 0;
  }
  std::error_code error;
  std::filesystem::create_directories(home, error);
  if (error) {
    SetLastErrorText(kFailure + home + ": " + error.message());
    return 0;
  }
  struct Source {
    const char* name;
    const char* description;
    const char* file;
  };
  const Source sources[] = {
      {"DICOMServer", "Kestrel image database", "/index.db"},
      {"RISInterface", "Kestrel RIS orders", "/ris.db"},
  };
  for (const Source& source : sources) {
    if (DataSourceExists(source.name)) continue;
    if (!WriteUserDataSource(source.name, source.description, home + source.file)) {
      SetLastErrorText(kFailure + std::string(source.name) + ": " + InstallerError());
      return 0;
    }
  }
  return 1;
}

}  // namespace KESTREL
