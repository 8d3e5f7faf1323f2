// kestrel: the command-line face of the library.
#include <malloc.h>

#include <CLI/CLI.hpp>
#include <cstdio>

#include "Commands.h"
#include "ExitCodes.h"

int main(int argc, char** argv) {
  // The commands allocate and free image values of up to some megabytes, file after file.
  // glibc would map each one afresh and give it back at once (or trim the heap under it), so
  // that every file pays for faulting its pages in again: a third of the system time of
  // sending a CT series. Values below 32 MiB come from the heap instead, and up to 64 MiB of
  // freed heap is kept for the next file.
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, 64 << 20);

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
  AddWorklistCommand(app, exitCode);
  AddDicomdirCommand(app, exitCode);
  AddPrinterCommand(app, exitCode);
  AddPrintCommand(app, exitCode);
  AddImportCommand(app, exitCode);
  AddFindCommand(app, exitCode);
  AddMoveCommand(app, exitCode);

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
