// kestrel printer: asks a DICOM printer for its status (N-GET of the Printer SOP instance) and
// prints the nine printer attributes, one "Name: value" line each.
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "ExitCodes.h"
#include "NetOptions.h"
#include "kestrel/CPrinter.h"
#include "kestrel/Status.h"

namespace {

struct PrinterOptions {
  NetOptions net;
  std::string host;
  std::string port;
};

// The nine "Name: value" lines, on standard output.
void PrintPrinterAttributes(const CPrinter& printer) {
  const std::pair<const char*, std::string> lines[] = {
      {"Printer Status", printer.GetPrinterStatus()},
      {"Printer Status Info", printer.GetPrinterStatusInfo()},
      {"Printer Name", printer.GetPrinterName()},
      {"Manufacturer", printer.GetManufacturer()},
      {"Manufacturer's Model Name", printer.GetManufacturerModelName()},
      {"Device Serial Number", printer.GetDeviceSerialNumber()},
      {"Software Versions", printer.GetSoftwareVersions()},
      {"Date of Last Calibration", printer.GetDateOfLastCalibration()},
      {"Time of Last Calibration", printer.GetTimeOfLastCalibration()},
  };
  for (const auto& [name, value] : lines) std::printf("%s: %s\n", name, value.c_str());
}

int RunPrinter(const PrinterOptions& options) {
  ApplyTimeout(options.net);
  CPrinter printer;
  KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
  printer.Client(options.net.callingAE, options.net.calledAE, options.host, options.port, &status);
  if (int code = ExitCodeOf(status)) {
    const std::string text = KESTREL::GetLastErrorText();
    std::cerr << text << (text.empty() || text.back() != '\n' ? "\n" : "");
    return code;
  }
  if (options.net.verbose)
    std::printf("printer %s %s (%s -> %s): %s\n", options.host.c_str(), options.port.c_str(),
                options.net.callingAE.c_str(), options.net.calledAE.c_str(),
                printer.GetStatusLine().c_str());
  // The attributes keep their last values whatever the status, so a refusal is said too.
  if (printer.GetStatus() != 0) std::cerr << printer.GetStatusLine() << '\n';
  PrintPrinterAttributes(printer);
  return kExitOk;
}

}  // namespace

void AddPrinterCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<PrinterOptions>();
  CLI::App* cmd = app.add_subcommand("printer", "ask a DICOM printer for its status (N-GET)");
  AddNetOptions(cmd, options->net, true);
  cmd->add_option("HOST", options->host, "host name or address")->required();
  cmd->add_option("PORT", options->port, "port number or service name")->required();
  cmd->callback([options, &exitCode]() { exitCode = RunPrinter(*options); });
}
