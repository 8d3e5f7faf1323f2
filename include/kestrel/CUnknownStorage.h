#pragma once

#include "kestrel/CStorage.h"
#include "kestrel/Export.h"
#include "kestrel/ImageIODModule.h"
#include "kestrel/UID.h"

// The storage object of an instance whose SOP class is none of the per-modality classes. It
// holds the modules every image IOD has, and keeps everything else among the IOD's other
// attributes, so any instance goes through it whole.
class KESTREL_API CUnknownStorage : public CStorage, public GenericImageIODModule {
 public:
  CUnknownStorage();
  ~CUnknownStorage() override;
  using CStorage::Get;
  using CStorage::GetUID;

  // The SOP Class UID (0008,0016) of the instance held, or an empty UID when it has none; 1.
  int GetUID(UID& uid) override;
  ImageIODModule* GetIOD() override;
};
