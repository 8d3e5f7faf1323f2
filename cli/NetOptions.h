#pragma once

// The options every network sub-command takes: --aet (calling AE title, default KESTREL),
// --aec (called AE title, default ANY-SCP) and --timeout (socket receive time-out in seconds,
// default the library's). An AE title longer than 16 characters is a usage error.

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

struct NetOptions {
  std::string callingAE = "KESTREL";
  std::string calledAE = "ANY-SCP";
  int64_t timeout = -1;  // -1: the library's default
  bool verbose = false;
  bool quiet = false;
};

// A validator refusing AE titles of more than 16 characters (the PDU field is 16 bytes).
CLI::Validator AETitleValidator();

void AddNetOptions(CLI::App* cmd, NetOptions& options, bool calledAE);
// Sets the process-wide default receive time-out of new sockets when --timeout was given.
void ApplyTimeout(const NetOptions& options);
