#pragma once

// The Storage service class (PS3.4 Annex B): C-STORE for one storage SOP class, and the
// storage bases of each SOP class the library knows. The storage objects of the library
// derive from these.

#include <cstdint>
#include <string>
#include <vector>

#include "kestrel/DIMSEC.h"
#include "kestrel/Export.h"
#include "kestrel/UID.h"

class DICOMCommandObject;
class DICOMDataObject;
class PDU_Service;
class PresentationContext;

// The transfer syntaxes in which an instance held in `heldSyntax` can be sent, in order of
// preference: for uncompressed data (or an unknown syntax) the three uncompressed ones,
// explicit VR little endian first, since the codec writes a data set in any of them; for any
// other syntax exactly that one, since compressed pixel data can only go as it is.
KESTREL_API std::vector<UID> StorageTransferSyntaxes(const UID& heldSyntax);
// Whether `syntax` is one of the three uncompressed transfer syntaxes (an empty UID counts as
// implicit VR little endian).
KESTREL_API bool IsUncompressedTransferSyntax(const UID& syntax);
// The accepted presentation context of `pdu` that carries `sopClass` for an instance held in
// `heldSyntax`: its abstract syntax is the class and its transfer syntax one of
// StorageTransferSyntaxes(heldSyntax). Null when the peer accepted none.
KESTREL_API const PresentationContext* FindStorageContext(PDU_Service& pdu, const UID& sopClass,
                                                          const UID& heldSyntax);

class KESTREL_API StandardStorage : public CStoreRQ, public CStoreRSP {
 public:
  // This base has no SOP class of its own: an empty UID and 0.
  virtual int GetUID(UID& uid);
  // The one implementation shared by every storage class: GetUID's UID and result.
  virtual int uGetUID(UID& uid);
  virtual ~StandardStorage();

  // A hook beside GetUID, called by the acceptor flow (Read) with each object
  // received and the transfer syntax it came in: the status to answer with (PS3.4 Table
  // B.2-1). The object stays the caller of Read's. By default it takes the object as it is and
  // answers Success; a store overrides it to keep the object.
  virtual uint16_t StoreOn(DICOMCommandObject* request, DICOMDataObject* dataSet,
                           const UID& transferSyntax);

  // 1 when the object's SOP Class UID (0008,0016) is this class's, or this class has none
  // (it then takes any object, as UnknownStorage does).
  int CheckObject(DICOMDataObject* dataSet);

  // Requester: C-STORE-RQ of `dataSet` (emptied by the encoding) under this class's SOP class
  // (the object's own when the class has none) and the object's SOP Instance UID, then the
  // response. The context is the one FindStorageContext gives for the syntax the data set
  // names in (0002,0010) (uncompressed when it names none), so the data set goes in whichever
  // syntax the peer accepted for it. 1 when a C-STORE-RSP arrived; its Status is written to
  // `status` when not null.
  int Write(PDU_Service* pdu, DICOMDataObject* dataSet, uint16_t* status = nullptr);
  // The one C-STORE exchange of the library's requesters (the storage objects, retrieve
  // sub-operations): the request for `sopInstance` of `sopClass` on the accepted context
  // `contextID`, `dataSet` encoded in that context's transfer syntax (and emptied), then its
  // response. 1 when the response to this request arrived: its Status goes to `status` and
  // its Error Comment to `errorComment` when those are not null. 0 when the request could
  // not be sent or no fitting response came.
  static int Store(PDU_Service* pdu, uint8_t contextID, const UID& sopClass, const UID& sopInstance,
                   DICOMDataObject* dataSet, const CStoreRQ::Options& options, uint16_t* status,
                   std::string* errorComment = nullptr);
  // Acceptor: `request` is a C-STORE-RQ already read from `pdu`. Reads its data set into
  // `dataSet` (the caller's; pass an empty object), hands it to StoreOn and answers
  // C-STORE-RSP; a request for another SOP class is answered with
  // "Refused: SOP class not supported" (0122). 1 when the response went out.
  int Read(PDU_Service* pdu, DICOMCommandObject* request, DICOMDataObject* dataSet);

 protected:
  // For StoreOn: an Error Comment to send with the status it returns (PS3.7 C.4), cleared
  // after each response.
  void SetErrorComment(const std::string& comment) { errorComment_ = comment; }

 private:
  std::string errorComment_;
};

// Takes any storage SOP class: GetUID gives an empty UID (and 1).
class KESTREL_API UnknownStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};

// Whether `uid` is one of the storage SOP classes the library knows: those of the classes
// below, the standalone overlay, curve, modality LUT and VOI LUT storage, and the two private
// storage classes of an outside vendor.
KESTREL_API bool IsStorageSOPClassUID(const UID& uid);

class KESTREL_API CRStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API DXStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API DXRStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API MGStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API MGRStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API CTStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API USMultiframeStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API USNMultiframeStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API MRStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API NMStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API USStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API USNStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API SCStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API XAStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API RFStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API XABiStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API NMNStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
class KESTREL_API PETStorage : public StandardStorage {
 public:
  int GetUID(UID& uid) override;
};
