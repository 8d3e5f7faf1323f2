#pragma once

#include "kestrel/Status.h"

// The tool's exit codes; a command over several inputs exits with the worst one met.
constexpr int kExitOk = 0;
constexpr int kExitNoAssociation = 1;
constexpr int kExitExchangeFailed = 2;
constexpr int kExitLocalFailure = 3;
constexpr int kExitUsage = 64;

inline int WorstExit(int a, int b) { return a > b ? a : b; }

// The exit code of a network exchange from the library's status: 1 when no association could
// be made, 2 when the exchange on it failed.
inline int ExitCodeOf(KESTREL::KESTREL_STATUS status) {
  switch (status) {
    case KESTREL::KESTREL_STATUS_OK:
      return kExitOk;
    case KESTREL::KESTREL_STATUS_CONNECT_FAILED:
      return kExitNoAssociation;
    default:
      return kExitExchangeFailed;
  }
}
