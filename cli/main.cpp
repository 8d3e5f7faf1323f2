// kestrel: the command-line face of the library.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "Commands.h"
#include "ExitCodes.h"

int main(int argc, char** argv) {
  CLI::App app{"kestrel: read, write and exchange DICOM objects", "kestrel"};
  app.set_version_flag("--version", "kestrel " KESTREL_VERSION);
  app.require_subcommand(1);

  int exitCode = kExitOk;
  AddDumpCommand(app, exitCode);
  AddConvertCommand(app, exitCode);
  AddNameCommand(app, exitCode);
  AddDbCommand(app, exitCode);
  AddEchoCommand(app, exitCode);
  AddServeCommand(app, exitCode);
  AddSendCommand(app, exitCode);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return kExitUsage;
  }
  return exitCode;
}
