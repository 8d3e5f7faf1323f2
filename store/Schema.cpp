#include <string>

#include "SchemaText.h"
#include "SqlDialect.h"
#include "kestrel/DatabaseSetup.h"
#include "kestrel/Status.h"

namespace {

int RunSchema(CDatabase& database, bool ris, const char* failureMessage) {
  try {
    const std::string script = KESTREL::GetSchemaSQL(ris, database.GetDBMSName());
    if (script.empty()) {
      throw CDBException("HYC00", "There is no schema for the database product \"" +
                                      database.GetDBMSName() + "\".");
    }
    for (const std::string& statement : KESTREL::store::SplitStatements(script)) {
      database.ExecuteSQL(statement);
    }
    return 1;
  } catch (const CDBException& e) {
    KESTREL::SetLastErrorText(failureMessage + e.GetErrorMessage());
  } catch (const std::exception& e) {
    KESTREL::SetLastErrorText(failureMessage + std::string(e.what()));
  }
  return 0;
}

}  // namespace

namespace KESTREL {

std::string GetSchemaSQL(bool ris, const std::string& dbmsName) {
  const KESTREL::store::Dialect dialect = KESTREL::store::DialectFor(dbmsName, "\"");
  switch (dialect.kind) {
    case KESTREL::store::DialectKind::kSQLite:
      return ris ? KESTREL::store::kSchema_ris_sqlite : KESTREL::store::kSchema_image_sqlite;
    case KESTREL::store::DialectKind::kPostgreSQL:
      return ris ? KESTREL::store::kSchema_ris_postgresql
                 : KESTREL::store::kSchema_image_postgresql;
    case KESTREL::store::DialectKind::kOther:
      break;
  }
  return std::string();
}

int CreateImageTables(CDatabase& database) {
  return RunSchema(database, false, "KESTREL.dll : CreateImageTables():  ");
}

int CreateRISTables(CDatabase& database) {
  return RunSchema(database, true, "KESTREL.dll : CreateRISTables():  ");
}

}  // namespace KESTREL
