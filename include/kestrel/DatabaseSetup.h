#pragma once

// Creating the tables of the image and RIS databases, and the embedded set-up: an SQLite image
// database in the Kestrel home directory, reached through the SQLite ODBC driver, with the data
// sources "DICOMServer" and "RISInterface" that the record sets' default connect strings name.

#include <string>

#include "kestrel/CDatabase.h"
#include "kestrel/Export.h"

namespace KESTREL {

// $KESTREL_HOME when it is set and not empty, else $HOME/.local/share/kestrel; "" when neither
// variable is set. The directory is not created.
KESTREL_API std::string GetKestrelHome();

// Connect strings of the embedded databases in `home`: the SQLite files "index.db" (image
// database) and "ris.db" (RIS orders), by driver, so they do not depend on any DSN.
KESTREL_API std::string GetEmbeddedImageConnect(const std::string& home);
KESTREL_API std::string GetEmbeddedRISConnect(const std::string& home);

// Creates `home` and, for each of "DICOMServer" and "RISInterface" that is neither a user nor a
// system data source yet, writes one into the user's odbc.ini ($ODBCINI when set, else
// ~/.odbc.ini) that points at the embedded file in `home`. Existing data sources are left as
// they are, so a site's own (a shared PostgreSQL server, say) keeps precedence. Returns TRUE;
// FALSE with the last-error text set when the directory or the file cannot be written.
KESTREL_API int PrepareEmbeddedDatabase(const std::string& home);

// Creates the tables of the image database (Patient, Study, Series, Image, Server, Login,
// Presets, Template, TemplateAttachment) that are missing, with their keys, unique columns and
// indexes, in the dialect of the connected database (SQLite or PostgreSQL). Tables that exist
// are left alone. Returns TRUE; FALSE with the last-error text
// "KESTREL.dll : CreateImageTables():  " and the driver's message.
KESTREL_API int CreateImageTables(CDatabase& database);

// The same for the RIS order database: [dbo].[PatientTable] and [dbo].[OrderTable] (in the
// schema "dbo" on PostgreSQL; SQLite has no schemas and keeps them in the main file). Failure
// text "KESTREL.dll : CreateRISTables():  ".
KESTREL_API int CreateRISTables(CDatabase& database);

// The statements CreateImageTables or CreateRISTables run for a database product ("SQLite" or
// "PostgreSQL", as CDatabase::GetDBMSName gives it), with bracketed identifiers; "" for a
// product without a schema of its own.
KESTREL_API std::string GetSchemaSQL(bool ris, const std::string& dbmsName);

}  // namespace KESTREL
