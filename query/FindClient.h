#pragma once

// The requester's association for the query services: set up, opened and closed as every
// Client operation of the library does it (CVerification::Client), with the same statuses and
// last-error texts.

#include <string>

#include "kestrel/PDU_Service.h"
#include "kestrel/Status.h"

class DICOMDataObject;
class StandardQuery;

namespace KESTREL::query_client {

class FindAssociation {
 public:
  // `capitals`: the texts begin "ERROR: " as those of the patient- and study-root queries do,
  // rather than "Error: ".
  explicit FindAssociation(bool capitals = false) : capitals_(capitals) {}

  // Connects to `host` and `port` proposing the query's SOP class in implicit VR little
  // endian. False with `status` KESTREL_STATUS_CONNECT_FAILED and the last-error text
  // "Error: Unable to connect to <host>\r\n" (or "ERROR: ...") and the reason.
  [[nodiscard]] bool Open(StandardQuery& query, const std::string& host, const std::string& port,
                          const std::string& callingAE, const std::string& calledAE,
                          KESTREL::KESTREL_STATUS* status);
  // One C-FIND with `identifier` (emptied); the answers go to the query's CallBack. False with
  // status KESTREL_STATUS_WRITE_FAILED and "Error: Unable to write DICOM object.\r\n" when the
  // exchange failed or ended with a failure status; the association is closed then.
  [[nodiscard]] bool Find(StandardQuery& query, DICOMDataObject* identifier,
                          KESTREL::KESTREL_STATUS* status);
  // Releases; status OK.
  void Close(KESTREL::KESTREL_STATUS* status);

 private:
  bool capitals_;
  PDU_Service association_{"pdu.txt"};
};

}  // namespace KESTREL::query_client
