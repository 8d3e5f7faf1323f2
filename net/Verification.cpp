#include "kestrel/Verification.h"

#include "kestrel/DICOMObject.h"
#include "kestrel/PDU_Service.h"

Verification::~Verification() = default;

int Verification::GetUID(UID& uid) {
  uid = kSOPClassUID;
  return 1;
}

int Verification::Write(PDU_Service* pdu) {
  UID uid;
  GetUID(uid);
  if (!CEchoRQ::Write(pdu, uid)) return 0;
  DICOMCommandObject response;
  if (!pdu->Read(&response)) return 0;
  return CEchoRSP::Read(&response);
}

int Verification::Read(PDU_Service* pdu, DICOMCommandObject* request) {
  if (!CEchoRQ::Read(request)) return 0;
  return CEchoRSP::Write(pdu, request, DIMSEStatus::kSuccess);
}
