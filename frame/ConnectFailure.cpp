#include "kestrel/ConnectFailure.h"

#include <cerrno>
#include <cstring>

#include "kestrel/PDU_Service.h"
#include "kestrel/Status.h"

namespace KESTREL {

namespace {

using Failure = PDU_Service::ConnectFailure;

std::string ConnectionText(int error, const std::string& host, const std::string& port) {
  std::string where = host + " port " + port;
  if (error == ECONNREFUSED)
    return "The connection to " + where + " was refused: nothing listens there";
  if (error == ETIMEDOUT) return "The connection to " + where + " timed out";
  return "The connection to " + where + " failed: " + std::strerror(error);
}

}  // namespace

std::string BuildConnectFailureText(const PDU_Service& association, const std::string& host,
                                    const std::string& port) {
  std::string text;
  switch (association.GetConnectFailure()) {
    case Failure::kRejected:
      return BuildRejectionText(association.GetRejectResult(), association.GetRejectSource(),
                                association.GetRejectReason());
    case Failure::kNothingProposed:
      text = "No presentation context was proposed";
      break;
    case Failure::kHostUnknown:
      text = "The host " + host + " is not known";
      break;
    case Failure::kServiceUnknown:
      text = "The port " + port + " is neither a number nor a known service name";
      break;
    case Failure::kConnect:
      text = ConnectionText(association.GetConnectError(), host, port);
      break;
    case Failure::kTimedOut:
      text = "No answer to the association request came within " +
             std::to_string(association.GetTimeout()) + " s";
      break;
    case Failure::kClosed:
      text = "The peer closed the connection without answering the association request";
      break;
    case Failure::kAborted:
      text = "The peer aborted the association request";
      break;
    case Failure::kBadAnswer:
      text = "The peer's answer to the association request could not be read";
      break;
    case Failure::kNoContext:
      text =
          "The peer accepted none of the presentation contexts proposed (SOP class and "
          "transfer syntax)";
      break;
    case Failure::kNone:
      // Nothing was recorded: the rejection text built from zeros, the text of an
      // unexplained failure.
      return BuildRejectionText(association.GetRejectResult(), association.GetRejectSource(),
                                association.GetRejectReason());
  }
  return text + "\r\n";
}

}  // namespace KESTREL
