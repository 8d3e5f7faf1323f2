#pragma once

// The words for an association that could not be made.

#include <string>

#include "kestrel/Export.h"

class PDU_Service;

namespace KESTREL {

// Why `association`'s last Connect to `host` and `port` failed: the rejection text
// (BuildRejectionText) when the peer answered A-ASSOCIATE-RJ; otherwise what happened instead
// (the host or port not known, the connection refused, no answer within the time-out, the peer
// closing or aborting, no presentation context accepted), one line ending in "\r\n".
KESTREL_API std::string BuildConnectFailureText(const PDU_Service& association,
                                                const std::string& host, const std::string& port);

}  // namespace KESTREL
