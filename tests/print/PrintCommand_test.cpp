// `kestrel printer` and `kestrel print` against a printer of our own that answers chosen
// statuses: what they print and the exit codes.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/frame/ToolRun.h"
#include "tests/print/PrintTestSupport.h"

using namespace print_test;

namespace {

const std::string kCT = "/usr/lib/python3/dist-packages/pydicom/data/test_files/CT_small.dcm";
constexpr char kFilmBox[] = "1.2.840.10008.5.1.1.2";

using kestrel_test::ToolRun;

ToolRun Kestrel(const std::string& args) { return kestrel_test::RunTool(args, "2>&1"); }

class PrintCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!kestrel_test::ToolBuilt()) GTEST_SKIP() << "no tool";
    if (!std::ifstream(kCT).good()) GTEST_SKIP() << "no pydicom samples";
  }
};

TEST_F(PrintCommand, PrinterPrintsTheNineAttributes) {
  ScriptedPrinter printer;
  printer.printerAttributes = {{0x21100010, "NORMAL"},
                               {0x21100030, "LASER 1"},
                               {0x00181020, "1.0\\2.0"},
                               {0x00181201, "0903"}};
  ToolRun run = Kestrel("printer --aec PRINTER 127.0.0.1 " + printer.Port());
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out,
            "Printer Status: NORMAL\nPrinter Status Info: \nPrinter Name: LASER 1\n"
            "Manufacturer: \nManufacturer's Model Name: \nDevice Serial Number: \n"
            "Software Versions: 1.0\\2.0\nDate of Last Calibration: \n"
            "Time of Last Calibration: 0903\n");
}

TEST_F(PrintCommand, StatusesAreExplainedAndSetTheExitCode) {
  struct Case {
    uint16_t field;
    uint16_t status;
    int exitCode;
    std::vector<std::string> lines;
    bool printed;  // the film box was printed
  };
  const Case cases[] = {
      {0x0130,
       0xC602,
       2,
       {"BasicFilmBox:NAction (film 1): Unknown: Status code not recognized 0xc602",
        "  A DICOM Print-specific failure has been be received.  Consult the interpretation "
        "for more information",
        "  Unable to create Print Job SOP Instance; print queue is full"},
       true},
      {0x0140,
       0xB605,
       0,
       {"  Requested Min Density or Max Density outside of printer's operating range.  The "
        "printer will use its respective minimum or maximum density value instead"},
       true},
      {0x0120, 0xC603, 2, {"  Image size is larger than image box size"}, false},
  };
  for (const Case& c : cases) {
    ScriptedPrinter printer;
    printer.statuses[{c.field, c.field == 0x0120 ? "1.2.840.10008.5.1.1.4" : kFilmBox}] = c.status;
    ToolRun run = Kestrel("print --aec PRINTER 127.0.0.1 " + printer.Port() + " " + kCT);
    EXPECT_EQ(run.exitCode, c.exitCode) << run.out;
    for (const std::string& line : c.lines)
      EXPECT_NE(run.out.find(line + "\n"), std::string::npos) << line << "\n" << run.out;
    int actions = 0;
    for (const Seen& seen : printer.Stop()) actions += seen.commandField == 0x0130;
    EXPECT_EQ(actions, c.printed ? 1 : 0) << run.out;
  }
}

TEST_F(PrintCommand, APrinterThatRejectsTheAssociation) {
  ScriptedPrinter printer("R OTHER RemoteAE\n");
  for (std::string args : {"printer", "print"}) {
    args += " 127.0.0.1 " + printer.Port() + (args == "print" ? " " + kCT : "");
    ToolRun run = Kestrel(args);
    EXPECT_EQ(run.exitCode, 1) << args;
    EXPECT_NE(run.out.find("ERROR: Unable to connect to 127.0.0.1\r\nPermanent Rejection from "
                           "Service User because your Application Entity Title is not known"),
              std::string::npos)
        << run.out;
  }
}

TEST_F(PrintCommand, UsageErrors) {
  for (const char* options : {"--format 'STANDARD\\2'", "--window 40", "--window 40,0", "--bits 16",
                              "--orientation SIDEWAYS", "--aet 12345678901234567"}) {
    EXPECT_EQ(Kestrel(std::string("print ") + options + " 127.0.0.1 104 " + kCT).exitCode, 64)
        << options;
  }
}

}  // namespace
