#pragma once

#include <string>

#include "kestrel/DICOMCodec.h"
#include "kestrel/Export.h"

// One DICOM association. It owns the codec and the file operations, so a program that only
// reads and writes files makes one of these and never connects.
class KESTREL_API PDU_Service : public DICOMCodec {
 public:
  PDU_Service();
  ~PDU_Service() override;

  // The calling AE title: at most 16 characters; a longer one is refused (false).
  bool SetLocalAddress(const std::string& aeTitle);
  std::string GetLocalAETitle() const override;

 private:
  char localAE_[17] = {};
};
