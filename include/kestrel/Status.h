#pragma once

// How an exported operation reports its outcome besides its result: the status code written
// through its last argument and the last-error text. Also the text of a refused association.

#include <string>

#include "kestrel/Export.h"

namespace KESTREL {

// Written through the last argument of the exported network operations when that pointer is
// not null. No other value is ever produced.
enum KESTREL_STATUS {
  KESTREL_STATUS_OK = 0,              // association made and the DIMSE exchange finished
  KESTREL_STATUS_CONNECT_FAILED = 1,  // no association (no connection, rejected, no context)
  KESTREL_STATUS_WRITE_FAILED = 2,    // associated, but the request or its response failed
};

// The explanation left by the last failing operation of the calling thread, or "" when none
// has failed on it. Each failure replaces the text. Kept per thread, so associations run on
// several threads do not overwrite each other's explanations.
KESTREL_API std::string GetLastErrorText();
KESTREL_API void SetLastErrorText(const std::string& text);

// The explanation of an A-ASSOCIATE-RJ from its result, source and reason/diagnostic bytes
// (PS3.8 9.3.4): who refused, why, and advice on what to check. Never fails; unknown values
// give the "Unknown ..." pieces.
KESTREL_API std::string BuildRejectionText(int result, int source, int reason);

}  // namespace KESTREL
