#pragma once

// The Verification service class (PS3.4 Annex A): C-ECHO.

#include "kestrel/DIMSEC.h"
#include "kestrel/Export.h"
#include "kestrel/UID.h"

class DICOMCommandObject;
class PDU_Service;

class KESTREL_API Verification : public CEchoRQ, public CEchoRSP {
 public:
  static constexpr const char* kSOPClassUID = "1.2.840.10008.1.1";

  virtual ~Verification();
  // "1.2.840.10008.1.1"; 1.
  virtual int GetUID(UID& uid);

  // Requester: sends C-ECHO-RQ and reads the response; 1 when a C-ECHO-RSP arrived (its Status
  // is not looked at).
  int Write(PDU_Service* pdu);
  // Acceptor: `request` is a command set already read from `pdu`; answers a C-ECHO-RQ with
  // Success. 0 when the request is no C-ECHO-RQ or the answer could not be sent.
  int Read(PDU_Service* pdu, DICOMCommandObject* request);
};
