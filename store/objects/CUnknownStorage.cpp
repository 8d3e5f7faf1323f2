#include "kestrel/CUnknownStorage.h"

CUnknownStorage::CUnknownStorage() = default;
CUnknownStorage::~CUnknownStorage() = default;

int CUnknownStorage::GetUID(UID& uid) {
  uid.Set(GetSOPCommonModule()->SOPClassUID());
  return 1;
}

ImageIODModule* CUnknownStorage::GetIOD() { return this; }
