#include "NetOptions.h"

#include "kestrel/Socket.h"

CLI::Validator AETitleValidator() {
  return CLI::Validator(
      [](std::string& title) -> std::string {
        if (title.size() > 16) return "AE title '" + title + "' is longer than 16 characters";
        return std::string();
      },
      "AE TITLE (at most 16 characters)");
}

void AddNetOptions(CLI::App* cmd, NetOptions& options, bool calledAE) {
  cmd->add_option("--aet", options.callingAE, "calling AE title (default KESTREL)")
      ->check(AETitleValidator());
  if (calledAE)
    cmd->add_option("--aec", options.calledAE, "called AE title (default ANY-SCP)")
        ->check(AETitleValidator());
  cmd->add_option("--timeout", options.timeout,
                  "socket receive time-out in seconds (default " +
                      std::to_string(Socket::kDefaultTimeout) + ")")
      ->check(CLI::Range(int64_t{0}, int64_t{UINT32_MAX}));
  cmd->add_flag("--verbose", options.verbose, "a line per file or association");
  cmd->add_flag("--quiet", options.quiet, "print errors only");
}

void ApplyTimeout(const NetOptions& options) {
  if (options.timeout >= 0) Socket::SetDefaultTimeout(static_cast<uint32_t>(options.timeout));
}
