#pragma once

// The Query service class (PS3.4 Annex C): C-FIND, with the hooks a query subclass fills in,
// and the query information models of the library.

#include "kestrel/Array.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/Export.h"
#include "kestrel/UID.h"

class DICOMCommandObject;
class DICOMDataObject;
class PDU_Service;

class KESTREL_API StandardQuery : public CFindRQ, public CFindRSP {
 public:
  // This base has no SOP class of its own: an empty UID and 0.
  virtual int GetUID(UID& uid);
  virtual int uGetUID(UID& uid);
  // Acceptor hook: appends one new DICOMDataObject per match of `query` to `matches`; the base
  // then owns, sends and deletes them. 0 fails the query (answered with "unable to process",
  // C000). The base has no matches to give: 0.
  virtual int SearchOn(DICOMDataObject* query, Array<DICOMDataObject*>* matches);
  // Requester hook: each pending response's command set and match. Return 1 to keep the match
  // (the subclass then deletes it), 0 to let the base delete it. The command set stays the
  // base's. The base keeps nothing: 0.
  virtual int CallBack(DICOMCommandObject* response, DICOMDataObject* match);
  virtual ~StandardQuery();

  // Requester: C-FIND-RQ with `identifier` (emptied by the encoding), then every response up
  // to the final one. Pending ones (FF00, FF01) bring a match for CallBack. 0 when the
  // exchange broke or the final status is a failure (A900 or Cxxx).
  int Write(PDU_Service* pdu, DICOMDataObject* identifier);
  // Acceptor: `request` is a C-FIND-RQ already read from `pdu`. Reads the identifier, asks
  // SearchOn, sends one pending response per match and then the final one. 1 when every
  // response went out.
  int Read(PDU_Service* pdu, DICOMCommandObject* request);
};

class KESTREL_API PatientRootQuery : public StandardQuery {
 public:
  int GetUID(UID& uid) override;  // "1.2.840.10008.5.1.4.1.2.1.1"
};

class KESTREL_API StudyRootQuery : public StandardQuery {
 public:
  int GetUID(UID& uid) override;  // "1.2.840.10008.5.1.4.1.2.2.1"
};

class KESTREL_API PatientStudyOnlyQuery : public StandardQuery {
 public:
  int GetUID(UID& uid) override;  // "1.2.840.10008.5.1.4.1.2.3.1" (retired)
};

class KESTREL_API ModalityWorklistInformationQuery : public StandardQuery {
 public:
  int GetUID(UID& uid) override;  // "1.2.840.10008.5.1.4.31"
};

// The report query service of an outside vendor.
class KESTREL_API MitraReportManagementQuery : public StandardQuery {
 public:
  int GetUID(UID& uid) override;  // "1.2.840.113532.3500.8"
};
