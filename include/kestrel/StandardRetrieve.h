#pragma once

// The Retrieve service class (PS3.4 Annex C, C-MOVE), with the hooks a retrieve subclass fills
// in, and the retrieve information models of the library.

#include <cstddef>
#include <string>

#include "kestrel/Array.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/Export.h"
#include "kestrel/UID.h"

class DICOMCommandObject;
class DICOMDataObject;
class PDU_Service;
class StandardStorage;

class KESTREL_API StandardRetrieve : public CMoveRQ, public CMoveRSP {
 public:
  // Sizes of the four byte strings QualifyOn receives; each comes zero-filled and is read up to
  // its first NUL (the last byte is forced to NUL after the call).
  static constexpr size_t kAETitleBytes = 65;
  static constexpr size_t kHostBytes = 256;
  static constexpr size_t kPortBytes = 64;

  // This base has no SOP class of its own: an empty UID and 0.
  virtual int GetUID(UID& uid);
  virtual int uGetUID(UID& uid);
  // Acceptor hook: appends one new DICOMDataObject per match of `identifier` to `matches`; the
  // base owns and deletes them. 0 fails the move ("unable to process", C000). Base: 0.
  virtual int SearchOn(DICOMDataObject* identifier, Array<DICOMDataObject*>* matches);
  // Acceptor hook, once per match: the object to send (a new object, deleted by the base) and
  // the storage class to send it with (not deleted: the subclass keeps it alive until Read
  // returns). 0 skips the match, which counts as a failed sub-operation. Base: 0.
  virtual int RetrieveOn(DICOMDataObject* match, DICOMDataObject** objectToSend,
                         StandardStorage** storageClass);
  // Acceptor hook: where the Move Destination is. `moveDestinationAE` holds the AE title of
  // the request (blanks removed); `localAE` comes holding this association's called AE title,
  // the calling AE title of the sub-association, which the hook may change; `host` and `port`
  // are to be filled (text, as Socket::Open takes them). 0 refuses the move ("move destination
  // unknown", A801). Base: 0.
  virtual int QualifyOn(unsigned char* moveDestinationAE, unsigned char* localAE,
                        unsigned char* host, unsigned char* port);
  // Requester hook: each response's command set, and the identifier it carried (null when it
  // carried none). Return 1 to keep the identifier (the subclass deletes it). Base: 0.
  virtual int CallBack(DICOMCommandObject* response, DICOMDataObject* identifier);
  virtual ~StandardRetrieve();

  // Requester: C-MOVE-RQ of `identifier` (emptied by the encoding) to `moveDestination`, then
  // every response up to the final one. 0 when the exchange broke or the final status is a
  // failure (Axxx or Cxxx); warnings (B000) and success give 1.
  int Write(PDU_Service* pdu, DICOMDataObject* identifier, const char* moveDestination);
  // Acceptor: `request` is a C-MOVE-RQ already read from `pdu`. Reads the identifier, asks
  // QualifyOn and SearchOn, and stores each object RetrieveOn gives to the destination (PS3.4
  // C.4.2.3.1) with StandardStorage::Store, naming this request's calling AE title and Message
  // ID as the move originator. The sub-operations share one association, opened by this side
  // as requester, which proposes every SOP class the matches name in (0008,0016), each with
  // the transfer syntaxes StorageTransferSyntaxes gives for the syntax the match names in
  // (0002,0010); an object of a class or syntax not proposed opens it again with that one
  // added. Each object goes on the context FindStorageContext finds for it: in its own syntax
  // or, for uncompressed data, whichever uncompressed one the destination accepted; an object
  // whose class the destination refused fails. A pending C-MOVE-RSP after each sub-operation
  // but the last carries the counts; a C-CANCEL-RQ between them ends the move with Cancel
  // (FE00). The final response carries the counts and, when some failed, the Failed SOP
  // Instance UID List (0008,0058); its status is success, B000 when some failed or gave a
  // warning, or A702 when all failed. 1 when every response went out.
  int Read(PDU_Service* pdu, DICOMCommandObject* request);
};

class KESTREL_API PatientRootRetrieve : public StandardRetrieve {
 public:
  int GetUID(UID& uid) override;  // "1.2.840.10008.5.1.4.1.2.1.2"
};

class KESTREL_API StudyRootRetrieve : public StandardRetrieve {
 public:
  int GetUID(UID& uid) override;  // "1.2.840.10008.5.1.4.1.2.2.2"
};

class KESTREL_API PatientStudyOnlyRetrieve : public StandardRetrieve {
 public:
  int GetUID(UID& uid) override;  // "1.2.840.10008.5.1.4.1.2.3.2" (retired)
};
