#pragma once

#include <cstdint>
#include <string>

#include "kestrel/Export.h"
#include "kestrel/UID.h"

enum class FileReadResult : uint8_t;
class CSCStorage;
class CStorage;
class DICOMDataObject;
class VR;

// Opens DICOM image files and makes the storage object of their SOP class. It remembers, of
// the files it opened, the SOP Class UID of the last one, the length of its pixel data and
// whether any of them was marked as lossy-compressed.
class KESTREL_API CStandardStorage {
 public:
  CStandardStorage();
  virtual ~CStandardStorage();

  // Reads the file into a new data object, which the caller deletes; null when the file cannot
  // be read or holds no Pixel Data (7FE0,0010): a file without pixel data is not an image.
  // Keeps the pixel data's value length (0 when it is encapsulated), updates the lossy flag
  // and takes the SOP Class UID (0008,0016).
  DICOMDataObject* Open(const std::string& path);

  // Reads the file and returns a new storage object of its SOP class holding the instance;
  // the caller deletes it. Null when the file cannot be read, holds no Pixel Data, or its SOP
  // class is none of the per-modality classes (use CUnknownStorage then). A Digital X-Ray or
  // Mammography image "for processing" is made into the class "for presentation" (CDXStorage,
  // CMGStorage) and so handled with that class's modules.
  //
  // When `pszTransferSyntaxUID` is not null, the file's Transfer Syntax UID (0002,0010) is
  // copied into it, at most `nLength` bytes: a terminating zero follows when there is room for
  // it, none when the UID fills the buffer. The lossy flag is updated even when no object is
  // made; the pixel data length only when it is not 0.
  CStorage* Load(const std::string& path, char* pszTransferSyntaxUID, int nLength);

  // Reads the file once and returns a storage object holding the whole instance: the
  // per-modality class of its SOP class when Load would make one (an image of a known class
  // with Pixel Data), else a CUnknownStorage, which takes any instance. The caller deletes it.
  // Null when the file was not read whole: `result` (when not null) says why, and for a file
  // that cannot be opened `error` receives the system's error code. `heldSyntax` (when not
  // null) receives the file's Transfer Syntax UID, empty when it names none. The lossy flag,
  // the pixel data length and the SOP class are kept as by Load. Nothing checks that the
  // instance has its SOP UIDs: that is the caller's to decide.
  CStorage* LoadStorage(const std::string& path, UID* heldSyntax, FileReadResult* result,
                        int* error = nullptr);

  // True once a file opened or loaded by this object carried "1" in the value of Lossy Image
  // Compression (0028,2110). The flag is never cleared: it stays set for later files, whatever
  // they say, and a file without the element leaves it as it is.
  bool IsImageLossy() const { return lossy_; }
  // The value length of Pixel Data of the last file opened.
  uint32_t GetPixelDataLength() const { return pixelDataLength_; }

  bool SetUID(const UID& uid);
  // From SOP Class UID (0008,0016) of `pDDO`; false (the UID emptied) when it has none.
  bool SetUID(DICOMDataObject* pDDO);
  // From the value of an element holding a UID, without its padding.
  bool SetUID(VR* vr);
  // The SOP class UID last set; 1.
  virtual int GetUID(UID& uid);

  // A new, empty secondary capture storage object, which the caller deletes.
  static CSCStorage* CreateSCStorage();

  // A new, empty storage object of the per-modality class Load makes for `sopClassUID` (the
  // class "for presentation" for a processing image), which the caller deletes; null for a
  // SOP class none of them stores (CUnknownStorage takes those).
  static CStorage* CreateStorage(const UID& sopClassUID);

 private:
  void NoteLossy(DICOMDataObject* dataSet);

  UID uid_;
  uint32_t pixelDataLength_ = 0;
  bool lossy_ = false;
};
