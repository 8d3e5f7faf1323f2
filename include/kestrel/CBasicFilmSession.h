#pragma once

// A Basic Film Session SOP instance (PS3.4 H.4.1) on a printer: the root of one print job's
// films. A film session lives no longer than the association it was created on (PS3.4 Annex H), so
// this class also makes and ends the print association.
//
// The operations run on an association the caller gives. Each returns 1 when the printer
// answered Success. A warning or failure status is thrown as a CDICOMPrintException,
// interpreted for "BasicFilmSession" and the operation; on a warning the operation's effect is
// kept before the throw (the instance created stays known), so a caller may carry on. 0 means
// the exchange itself failed (no association, no print context accepted, nothing sent, no
// valid response): the last-error text says why and nothing is thrown.

#include <cstdint>
#include <string>

#include "kestrel/Export.h"
#include "kestrel/PrintServiceClasses.h"
#include "kestrel/Status.h"
#include "kestrel/UID.h"

class PDU_Service;

class KESTREL_API CBasicFilmSession : public BasicFilmSession {
 public:
  CBasicFilmSession();
  ~CBasicFilmSession() override;
  // "1.2.840.10008.5.1.1.1"; 1.
  int GetUID(UID& uid) override;

  // Basic Film Session Presentation Module attributes (PS3.3 C.13.1) that Create sends. A
  // number below 1 or an empty text is not sent, and the printer uses its default.
  int NumberOfCopies = 1;
  std::string PrintPriority;    // HIGH, MED or LOW
  std::string MediumType;       // PAPER, CLEAR FILM, BLUE FILM, ...
  std::string FilmDestination;  // MAGAZINE, PROCESSOR, BIN_i, ...
  std::string FilmSessionLabel;

  // A print association: to `host` and `port`, with the association configuration file
  // "pdu.txt", proposing the Basic Grayscale Print Management Meta SOP class in implicit VR
  // little endian. The caller deletes it with ReleaseAssociation. Null when no association was
  // made, with `status` (when not null) KESTREL_STATUS_CONNECT_FAILED and the last-error text
  // "ERROR: Unable to connect to <host>\r\n" followed by the rejection text (or by why no
  // request could be made).
  static PDU_Service* CreateAssociation(const std::string& host, const std::string& port,
                                        const std::string& callingAE, const std::string& calledAE,
                                        KESTREL::KESTREL_STATUS* status);
  // Releases the association and deletes it; null is allowed.
  static void ReleaseAssociation(PDU_Service* pdu);

  // N-CREATE of a film session with the attributes above; the printer names the instance.
  int Create(PDU_Service* pdu);
  // N-ACTION "print" (action type 1) of the session: every film of the session.
  int Print(PDU_Service* pdu);
  // N-DELETE of the session, with its films and image boxes. The instance is forgotten once
  // the printer answered.
  int Delete(PDU_Service* pdu);

  // The instance the printer created; empty before Create and after Delete.
  const UID& GetSOPInstanceUID() const { return instance_; }

 private:
  UID instance_;
};
