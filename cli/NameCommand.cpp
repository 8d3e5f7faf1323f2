// kestrel name: turns a typed or received patient name into its DICOM and display forms.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "Commands.h"
#include "ExitCodes.h"
#include "kestrel/CPatientNameParser.h"

void AddNameCommand(CLI::App& app, int& exitCode) {
  CLI::App* cmd =
      app.add_subcommand("name", "Parse a patient name and print its DICOM and display forms");

  // Held by the callback, which outlives this function together with the app.
  struct Options {
    std::string name;
    bool film = false;
    bool selfTest = false;
  };
  auto options = std::make_shared<Options>();

  CLI::Option* nameOpt = cmd->add_option(
      "NAME", options->name,
      "Name as DICOM (Doe^John^Paul^Mr.^Ph.D), comma (Doe, John Paul) or space (John Paul Doe) "
      "form; quote it when it holds blanks");
  CLI::Option* filmOpt =
      cmd->add_flag("--film", options->film, "Display in the film form (DOE, JOHN PAUL)");
  CLI::Option* selfTestOpt =
      cmd->add_flag("--self-test", options->selfTest, "Run the name parser's self test instead");
  selfTestOpt->excludes(nameOpt)->excludes(filmOpt);

  cmd->callback([options, nameOpt, &exitCode]() {
    if (options->selfTest) {
      // The self test prints its own report; its result is the pass flag.
      const int allPassed = CPatientNameParser::Test();
      std::fflush(stdout);
      exitCode = allPassed ? kExitOk : kExitLocalFailure;
      return;
    }
    // An empty name given on purpose ("") is a name; only a missing one is a usage error.
    if (nameOpt->count() == 0) {
      throw CLI::RequiredError("NAME (or --self-test)");
    }
    CPatientNameParser parser(options->name, options->film ? 1 : 0);
    std::printf("DICOM: %s\n", parser.GetDICOMPN().c_str());
    std::printf("Display: %s\n", parser.GetEnglishPN().c_str());
    exitCode = kExitOk;
  });
}
