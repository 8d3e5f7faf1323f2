#pragma once

// Verification of a remote DICOM node (C-ECHO): the simplest complete use of the association
// and DIMSE layers, and the pattern of every exported Client operation.

#include <string>

#include "kestrel/Export.h"
#include "kestrel/Status.h"
#include "kestrel/Verification.h"

class KESTREL_API CVerification : public Verification {
 public:
  ~CVerification() override;
  // "1.2.840.10008.1.1"; 1.
  int GetUID(UID& uid) override;

  // One association to `host` and `port` (texts as Socket::Open takes them) proposing the
  // Verification SOP class in implicit VR little endian, built from the configuration file
  // "pdu.txt" of the current directory; one C-ECHO; a release. 1 on success. Otherwise 0, with
  // `status` (when not null) KESTREL_STATUS_CONNECT_FAILED and the last-error text
  // "Error: Unable to connect to <host>\r\n" followed by the rejection text (or, when an AE
  // title longer than 16 characters prevented the request, by "The AE title <title> is longer
  // than 16 characters"), or KESTREL_STATUS_WRITE_FAILED and
  // "Error: Unable to write DICOM object.\r\n" when the exchange failed.
  int Client(const std::string& host, const std::string& port, const std::string& callingAE,
             const std::string& calledAE, KESTREL::KESTREL_STATUS* status);
};
