#include "kestrel/PDU_Service.h"

#include <cstring>

PDU_Service::PDU_Service() = default;
PDU_Service::~PDU_Service() = default;

bool PDU_Service::SetLocalAddress(const std::string& aeTitle) {
  // The field is 16 bytes filled with spaces; a longer title would overflow it.
  if (aeTitle.size() > 16) return false;
  std::memset(localAE_, ' ', 16);
  std::memcpy(localAE_, aeTitle.data(), aeTitle.size());
  localAE_[16] = 0;
  return true;
}

std::string PDU_Service::GetLocalAETitle() const {
  std::string title(localAE_);
  while (!title.empty() && title.back() == ' ') title.pop_back();
  return title;
}
