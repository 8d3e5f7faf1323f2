// kestrel db: creates the image database's tables and keeps its Server table, the nodes that
// C-MOVE may send to. Without --db everything lives in the Kestrel home (the embedded set-up).
#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdio>
#include <memory>
#include <string>

#include "Commands.h"
#include "ExitCodes.h"
#include "kestrel/CDatabase.h"
#include "kestrel/DatabaseSetup.h"
#include "kestrel/RecordSets.h"
#include "kestrel/Status.h"

namespace {

constexpr size_t kMaxAETitle = 16;

struct DbOptions {
  std::string db;
  bool ris = false;
  std::string ae;
  std::string host;
  std::string port;
  std::string description;
  bool makeDefault = false;
};

// A connect string fit to print: the values of password keys are masked.
std::string Printable(const std::string& connect) {
  std::string shown;
  size_t start = 0;
  while (start < connect.size()) {
    size_t end = connect.find(';', start);
    if (end == std::string::npos) end = connect.size();
    std::string pair = connect.substr(start, end - start);
    const size_t equals = pair.find('=');
    std::string key = equals == std::string::npos ? pair : pair.substr(0, equals);
    key.erase(0, key.find_first_not_of(' '));
    for (char& c : key) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (equals != std::string::npos && (key == "PWD" || key == "PASSWORD")) {
      pair = pair.substr(0, equals + 1) + "***";
    }
    shown += pair;
    if (end < connect.size()) shown += ';';
    start = end + 1;
  }
  return shown;
}

int Fail(const std::string& text) {
  std::fprintf(stderr, "%s\n", text.c_str());
  return kExitLocalFailure;
}

// Opens the database behind `--db`, or the embedded one in the Kestrel home, which is made
// (with its tables and data sources) the first time a command needs it. Prints why not and
// gives false when it cannot be had.
bool OpenImageDatabase(const std::string& connect, CDatabase& database) {
  std::string target = connect;
  const bool embedded = connect.empty();
  if (embedded) {
    const std::string home = KESTREL::GetKestrelHome();
    if (!KESTREL::PrepareEmbeddedDatabase(home)) {
      Fail(KESTREL::GetLastErrorText());
      return false;
    }
    target = KESTREL::GetEmbeddedImageConnect(home);
  }
  try {
    database.Open(target);
  } catch (const CDBException& e) {
    Fail("kestrel db: cannot open " + Printable(target) + ": " + e.GetErrorMessage());
    return false;
  }
  if (embedded && !KESTREL::CreateImageTables(database)) {
    Fail(KESTREL::GetLastErrorText());
    return false;
  }
  return true;
}

int RunInit(const DbOptions& options) {
  CDatabase database;
  if (!OpenImageDatabase(options.db, database)) return kExitLocalFailure;
  if (!KESTREL::CreateImageTables(database)) return Fail(KESTREL::GetLastErrorText());
  std::printf("image database ready: %s\n", Printable(database.GetConnect()).c_str());
  if (!options.ris) return kExitOk;

  // The RIS tables go beside the image tables when --db names the database, and into the
  // embedded RIS file otherwise.
  CDatabase ris;
  const std::string connect =
      options.db.empty() ? KESTREL::GetEmbeddedRISConnect(KESTREL::GetKestrelHome()) : options.db;
  try {
    ris.Open(connect);
  } catch (const CDBException& e) {
    return Fail("kestrel db: cannot open " + Printable(connect) + ": " + e.GetErrorMessage());
  }
  if (!KESTREL::CreateRISTables(ris)) return Fail(KESTREL::GetLastErrorText());
  std::printf("RIS database ready: %s\n", Printable(ris.GetConnect()).c_str());
  return kExitOk;
}

std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("''") : std::string(1, c);
  return quoted + "'";
}

void CheckServerArguments(const DbOptions& options) {
  if (options.ae.empty() || options.ae.size() > kMaxAETitle) {
    throw CLI::ValidationError("AE", "an AE title has 1 to 16 characters: " + options.ae);
  }
  for (char c : options.ae) {
    if (c == '\\' || static_cast<unsigned char>(c) < 0x20) {
      throw CLI::ValidationError("AE", "an AE title has no backslash or control character");
    }
  }
  if (options.host.empty()) throw CLI::ValidationError("HOST", "the host is empty");
  const std::string& port = options.port;
  const bool digits = !port.empty() && port.find_first_not_of("0123456789") == std::string::npos;
  if (!digits || port.size() > 5 || std::stoi(port) < 1 || std::stoi(port) > 65535) {
    throw CLI::ValidationError("PORT", "a port is a number from 1 to 65535: " + port);
  }
}

int RunServerAdd(const DbOptions& options) {
  CDatabase database;
  if (!OpenImageDatabase(options.db, database)) return kExitLocalFailure;
  if (options.makeDefault) {
    try {
      database.ExecuteSQL("UPDATE [Server] SET [Default] = 0");
    } catch (const CDBException& e) {
      return Fail("kestrel db: " + e.GetErrorMessage());
    }
  }
  CServersSet set(&database);
  set.Filter = "[AE Title] = " + Quoted(options.ae);
  if (!set.Open()) return Fail(KESTREL::GetLastErrorText());
  const bool known = !set.IsEOF();
  if (known) {
    set.Edit();
  } else {
    set.AddNew();
    set.AETitle = options.ae;
    set.Source = "kestrel db";
  }
  set.Hostname = options.host;
  set.Port = options.port;
  if (!options.description.empty()) set.Description = options.description;
  if (options.makeDefault) set.Default = 1;
  if (!set.Update()) return Fail("kestrel db: the Server table was not written: " + set.ErrorText);
  std::printf("%s %s %s %s\n", known ? "updated" : "added", options.ae.c_str(),
              options.host.c_str(), options.port.c_str());
  return kExitOk;
}

int RunServerList(const DbOptions& options) {
  CDatabase database;
  if (!OpenImageDatabase(options.db, database)) return kExitLocalFailure;
  CServersSet set(&database);
  set.Sort = "[AE Title]";
  if (!set.Open()) return Fail(KESTREL::GetLastErrorText());
  std::printf(
      "AE Title\tHostname\tPort\tServer ID\tDescription\tType\tDeviceID\tSource\tDefault\n");
  for (; !set.IsEOF(); set.MoveNext()) {
    std::printf("%s\t%s\t%s\t%d\t%s\t%s\t%s\t%s\t%d\n", set.AETitle.c_str(), set.Hostname.c_str(),
                set.Port.c_str(), static_cast<int>(set.ServerID), set.Description.c_str(),
                set.Type.c_str(), set.DeviceID.c_str(), set.Source.c_str(), set.Default);
  }
  return kExitOk;
}

}  // namespace

void AddDbCommand(CLI::App& app, int& exitCode) {
  CLI::App* db = app.add_subcommand("db", "Create and keep the image database");
  db->require_subcommand(1);
  auto options = std::make_shared<DbOptions>();
  const char* dbHelp =
      "ODBC connect string of the image database (ODBC;DSN=DICOMServer;UID=admin or "
      "DRIVER=...;...); default: index.db in the Kestrel home";

  CLI::App* init = db->add_subcommand("init", "Create the tables that are missing");
  init->add_option("--db", options->db, dbHelp);
  init->add_flag("--ris", options->ris,
                 "Create the RIS order tables as well (in the same database with --db, else in "
                 "ris.db in the Kestrel home)");
  init->callback([options, &exitCode]() { exitCode = RunInit(*options); });

  CLI::App* server = db->add_subcommand("server", "The nodes C-MOVE may send to");
  server->require_subcommand(1);
  CLI::App* add = server->add_subcommand("add", "Add a node, or change the node of that AE title");
  add->add_option("--db", options->db, dbHelp);
  add->add_option("--description", options->description, "Free text about the node");
  add->add_flag("--default", options->makeDefault, "Make it the default node");
  add->add_option("AE", options->ae, "The node's AE title")->required();
  add->add_option("HOST", options->host, "Host name or address")->required();
  add->add_option("PORT", options->port, "TCP port")->required();
  add->callback([options, &exitCode]() {
    CheckServerArguments(*options);
    exitCode = RunServerAdd(*options);
  });

  CLI::App* list = server->add_subcommand("list", "List the nodes, tab-separated with a header");
  list->add_option("--db", options->db, dbHelp);
  list->callback([options, &exitCode]() { exitCode = RunServerList(*options); });
}
