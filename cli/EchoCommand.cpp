// kestrel echo: verifies a remote DICOM node with C-ECHO.
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "ExitCodes.h"
#include "NetOptions.h"
#include "kestrel/CVerification.h"
#include "kestrel/Status.h"

namespace {

struct EchoOptions {
  NetOptions net;
  std::string host;
  std::string port;
  int repeat = 1;
};

int RunEcho(const EchoOptions& options) {
  ApplyTimeout(options.net);
  int worst = kExitOk;
  for (int i = 0; i < options.repeat; ++i) {
    auto start = std::chrono::steady_clock::now();
    CVerification verification;
    KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
    verification.Client(options.host, options.port, options.net.callingAE, options.net.calledAE,
                        &status);
    int code = ExitCodeOf(status);
    worst = WorstExit(worst, code);
    if (code != kExitOk) {
      std::cerr << KESTREL::GetLastErrorText();
      const std::string& text = KESTREL::GetLastErrorText();
      if (text.empty() || text.back() != '\n') std::cerr << '\n';
      continue;
    }
    if (options.net.verbose) {
      double ms =
          std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
              .count();
      std::printf("echo %s %s (%s -> %s): success, %.2f ms\n", options.host.c_str(),
                  options.port.c_str(), options.net.callingAE.c_str(), options.net.calledAE.c_str(),
                  ms);
    }
  }
  return worst;
}

}  // namespace

void AddEchoCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<EchoOptions>();
  CLI::App* cmd = app.add_subcommand("echo", "verify a remote DICOM node with C-ECHO");
  AddNetOptions(cmd, options->net, true);
  cmd->add_option("--repeat", options->repeat, "run N associations, one C-ECHO each")
      ->check(CLI::PositiveNumber);
  cmd->add_option("HOST", options->host, "host name or address")->required();
  cmd->add_option("PORT", options->port, "port number or service name")->required();
  cmd->callback([options, &exitCode]() { exitCode = RunEcho(*options); });
}
