// CPrinter against a printer of our own: the nine answers, values kept from an earlier answer,
// the context the N-GET goes on, and the status codes and texts of the failures.
#include "kestrel/CPrinter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kestrel/DICOMObject.h"
#include "kestrel/Status.h"
#include "tests/print/PrintTestSupport.h"

using namespace print_test;

namespace {

constexpr char kPrinter[] = "1.2.840.10008.5.1.1.16";
constexpr char kPrinterInstance[] = "1.2.840.10008.5.1.1.17";
constexpr char kMeta[] = "1.2.840.10008.5.1.1.9";
constexpr uint16_t kNGet = 0x0110;

std::vector<std::string> Getters(const CPrinter& p) {
  return {p.GetPrinterStatus(),    p.GetPrinterStatusInfo(),     p.GetPrinterName(),
          p.GetManufacturer(),     p.GetManufacturerModelName(), p.GetDeviceSerialNumber(),
          p.GetSoftwareVersions(), p.GetDateOfLastCalibration(), p.GetTimeOfLastCalibration()};
}

TEST(CPrinterClient, KeepsEachAnswerAndWhatALaterAnswerLacks) {
  ScriptedPrinter printer;
  printer.printerAttributes = {
      {0x21100010, "WARNING"},  {0x21100020, "FILM JAM"}, {0x21100030, "LASER 1"},
      {0x00080070, "ACME"},     {0x00081090, "DRYVIEW"},  {0x00181000, "SN-42"},
      {0x00181020, "1.0\\2.0"}, {0x00181200, "20240105"}, {0x00181201, "090307"},
  };
  CPrinter client;
  KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_WRITE_FAILED;
  ASSERT_EQ(client.Client("KESTREL", "PRINTER", "127.0.0.1", printer.Port(), &status), 1);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_OK);
  const std::vector<std::string> first = {"WARNING", "FILM JAM", "LASER 1",  "ACME",  "DRYVIEW",
                                          "SN-42",   "1.0\\2.0", "20240105", "090307"};
  EXPECT_EQ(Getters(client), first);
  EXPECT_EQ(client.GetStatusLine(), "Success:  0x0");

  // A second answer without Printer Name (and with an empty Manufacturer) keeps those.
  printer.printerAttributes = {{0x21100010, "NORMAL"}, {0x00080070, ""}};
  ASSERT_EQ(client.Client("KESTREL", "PRINTER", "127.0.0.1", printer.Port(), nullptr), 1);
  std::vector<std::string> second = first;
  second[0] = "NORMAL";
  EXPECT_EQ(Getters(client), second);
  CPrinter copy(client);
  EXPECT_EQ(Getters(copy), second);

  // A refusal is still an exchange that worked; its status is worded, the values stay.
  printer.statuses[{kNGet, kPrinter}] = 0x0112;
  ASSERT_EQ(client.Client("KESTREL", "PRINTER", "127.0.0.1", printer.Port(), &status), 1);
  EXPECT_EQ(client.GetStatusLine(), "No such object instance: Processing failure 0x112");
  EXPECT_EQ(Getters(client), second);

  std::vector<Seen> seen = printer.Stop();
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen[0].sopClass, kPrinter);
  EXPECT_TRUE(seen[0].namedInstance);
}

// The N-GET goes on the Printer SOP class's context when there is one, else on the meta
// class's, else on the one proposed under the instance UID.
TEST(CPrinterClient, AsksOnTheContextThatServesThePrinter) {
  const std::pair<const char*, const char*> cases[] = {
      {"", kPrinter},
      {"M 1.2.840.10008.5.1.1.9 abstract\nI 1.2.840.10008.5.1.1.17 abstract\n", kMeta},
      {"I 1.2.840.10008.5.1.1.17 abstract\n", kPrinterInstance},
  };
  for (const auto& [config, expected] : cases) {
    ScriptedPrinter printer(config);
    printer.printerAttributes = {{0x21100010, "NORMAL"}};
    CPrinter client;
    ASSERT_EQ(client.Client("KESTREL", "PRINTER", "127.0.0.1", printer.Port(), nullptr), 1);
    EXPECT_EQ(client.GetPrinterStatus(), "NORMAL");
    std::vector<Seen> seen = printer.Stop();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].abstractSyntax, expected) << config;
  }
}

TEST(CPrinterClient, FailuresGiveTheirStatusAndText) {
  const std::string connect = "ERROR: Unable to connect to 127.0.0.1\r\n";
  int closedPort;
  {
    net_test::Listener gone;
    closedPort = gone.Port();
  }
  ScriptedPrinter rejecting("R OTHER RemoteAE\n");
  ScriptedPrinter verificationOnly("V 1.2.840.10008.1.1 abstract\n");
  ScriptedPrinter aborting;
  aborting.abortOn = kNGet;
  struct Case {
    std::string port;
    std::string callingAE;
    KESTREL::KESTREL_STATUS status;
    std::string text;
  };
  const Case cases[] = {
      {std::to_string(closedPort), "KESTREL", KESTREL::KESTREL_STATUS_CONNECT_FAILED,
       connect + "The connection to 127.0.0.1 port " + std::to_string(closedPort) +
           " was refused: nothing listens there\r\n"},
      {rejecting.Port(), "KESTREL", KESTREL::KESTREL_STATUS_CONNECT_FAILED,
       connect + KESTREL::BuildRejectionText(1, 1, 3)},
      {verificationOnly.Port(), "KESTREL", KESTREL::KESTREL_STATUS_CONNECT_FAILED,
       connect + KESTREL::BuildRejectionText(1, 1, 1)},
      {aborting.Port(), "KESTREL", KESTREL::KESTREL_STATUS_WRITE_FAILED,
       "ERROR: Unable to write DICOM object.\r\n"},
      {aborting.Port(), "A_TITLE_OF_17_CHR", KESTREL::KESTREL_STATUS_CONNECT_FAILED,
       connect + "The AE title A_TITLE_OF_17_CHR is longer than 16 characters"},
  };
  for (const Case& c : cases) {
    CPrinter client;
    KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
    EXPECT_EQ(client.Client(c.callingAE, "PRINTER", "127.0.0.1", c.port, &status), 0);
    EXPECT_EQ(status, c.status) << c.port;
    EXPECT_EQ(KESTREL::GetLastErrorText().substr(0, c.text.size()), c.text) << c.port;
  }
  DICOMDataObject answer;
  EXPECT_EQ(CPrinter().Write(nullptr, &answer, kPrinterInstance), 0);
}

}  // namespace
