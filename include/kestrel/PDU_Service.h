#pragma once

// One DICOM association over one Socket (PS3.8). It proposes presentation contexts and
// negotiates as requester, or reads and answers an association request as acceptor; then it
// carries DIMSE messages in P-DATA-TF PDUs and releases or aborts.
//
// It also owns the codec and the file operations (it is a DICOMCodec), so a program that only
// reads and writes files makes one of these and never connects.
//
// Nothing here throws or writes messages: failures are 0 or false results. One association
// belongs to one thread.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/DICOMCodec.h"
#include "kestrel/Export.h"
#include "kestrel/PresentationContext.h"
#include "kestrel/Socket.h"
#include "kestrel/UID.h"

namespace KESTREL {
namespace pdu {
struct AssociatePDU;
}
}  // namespace KESTREL

class KESTREL_API PDU_Service : public DICOMCodec {
 public:
  // The maximum PDU length announced in every A-ASSOCIATE-RQ and -AC.
  static constexpr uint32_t kMaximumLength = 16384;
  // Encoded messages go out in P-DATA-TF fragments of at most this many bytes, whatever the
  // peer announced.
  static constexpr uint32_t kFragmentLength = 4096;
  // An association PDU (-RQ, -AC, -RJ, release, abort) longer than this is a protocol error.
  static constexpr uint32_t kMaxAssociationPDU = 1 << 20;

  // Reads the acceptance table from the association configuration file `configFile` (the
  // library's clients pass "pdu.txt"); null, "" or a missing file leave it empty, which
  // accepts every peer and context.
  explicit PDU_Service(const char* configFile = nullptr);
  // Closes the connection without a release.
  ~PDU_Service() override;

  // The channel under the PDUs: by default the socket's Recv and Send (same results). Tests and
  // fuzz targets override them to feed and collect bytes.
  virtual int ReadBytes(void* buffer, uint32_t length);
  virtual int SendBytes(const void* buffer, uint32_t length);

  // The acceptor's checks of an association request, against the acceptance table: each
  // accepts everything when its kind has no rows. AE titles are the 16-byte fields as they
  // came, cut at their first white space before the (case-sensitive) comparison.
  virtual bool CheckTransferSyntax(const UID& uid);
  virtual bool CheckRemoteAE(const char* title);  // the calling AE title
  virtual bool CheckLocalAE(const char* title);   // the called AE title
  virtual bool CheckApplicationContext(const UID& uid);
  // A last word on the calling and called AE titles; accepts always.
  virtual bool CheckExtra(const char* callingAE, const char* calledAE);
  virtual bool CheckAbstractSyntax(const UID& uid);
  // The transfer syntaxes proposed when Connect is given none: implicit VR little endian.
  virtual bool AddDefaultTransferSyntaxes(PresentationContext& context);
  // "1.2.804.990417.3" and "Vexa " (with the blank).
  bool GetImplementationClass(std::string& uid) override;
  bool GetImplementationVersion(std::string& name) override;

  // Set-up before Connect. The AE title setters refuse (false) a title longer than 16
  // characters and leave the field as it was; otherwise they blank-fill the 16-byte field and
  // copy the title in.
  int SetApplicationContext(const UID& uid);
  bool SetLocalAddress(const std::string& aeTitle);   // calling AE title
  bool SetRemoteAddress(const std::string& aeTitle);  // called AE title
  int AddAbstractSyntax(const UID& uid);
  // Proposes `uid` with exactly these transfer syntaxes, in this order of preference, whatever
  // Connect is given (an empty list means Connect's choice, as above).
  int AddAbstractSyntax(const UID& uid, const std::vector<UID>& transferSyntaxes);

  // Requester. Proposes one presentation context per abstract syntax added, each with
  // `transferSyntax` alone or, when it is null, the default transfer syntaxes. 1 when the peer
  // accepted at least one context. On a rejection the result, source and reason are kept for
  // the caller's message; they are left as they were when no rejection came.
  int Connect(const char* host, const char* port, const char* transferSyntax = nullptr);
  // Releases (A-RELEASE-RQ, then waits for the -RP) when associated, and closes. Always 1.
  int Close();
  // Encodes the object (which the encoding empties) on the accepted presentation context of
  // `abstractSyntax` and sends it in P-DATA-TF fragments of at most 4096 bytes, one PDU per
  // fragment, whole PDUs handed to SendBytes up to 64 at a time. When several contexts carry the
  // abstract syntax, the one the last message came in on is preferred, so that a response goes back
  // on its request's context. 0 when no context was accepted for it or the encoding failed.
  int Write(DICOMCommandObject* commandSet, const UID& abstractSyntax);
  int Write(DICOMDataObject* dataSet, const UID& abstractSyntax);
  // Reads the next complete message into `object` and gives the transfer syntax of its
  // context. A command set is read into a DICOMCommandObject, a data set into a
  // DICOMDataObject; a message of the other kind is a protocol error. An A-RELEASE-RQ is
  // answered with -RP; a release, an abort, a time-out or a protocol error (answered with
  // A-ABORT) close the connection, and the result is 0.
  int Read(DICOMObject* object, UID& transferSyntax);
  int Read(DICOMObject* object);

  // Acceptor. Listen: listens on `port`, accepts one peer and answers its request. Multiplex:
  // accepts peers one after another until one association is accepted (a refused peer is
  // dropped). ServeSocket: takes over an accepted connection (the handle is closed with this
  // object) and answers its request. 1 when associated; otherwise 0 and the peer's connection
  // is closed.
  int Listen(const char* port);
  int Multiplex(const char* port);
  int ServeSocket(int handle);

  // For servers, tests and the requesters that need more than the calls above.
  //
  // The acceptor's last check, once a request would be accepted: whether there is room for
  // one more association now. A refusal answers A-ASSOCIATE-RJ with result 2 (transient),
  // source 3 (service provider, presentation function) and reason 2 (local limit exceeded),
  // PS3.8 Table 9-21. Accepts always.
  virtual bool CheckCapacity();
  // Like Read for a data set, but nothing of the message is held: its bytes are handed to
  // `sink` as they arrive. After the sink refuses bytes (a full disk, say) the rest of the
  // message is still read, and dropped, so that the association stays in step: the caller's
  // sink knows of its own failure. 1 when the whole message was read, with the transfer
  // syntax of its context; 0 as Read fails (a command set arriving instead is a protocol
  // error).
  int ReadInto(ByteBuffer::Sink& sink, UID& transferSyntax);
  // The most bytes a message read by Read may have, since Read holds it whole; a longer one is
  // answered with A-ABORT and Read gives 0. 0 (the default) means no limit.
  void SetMessageLimit(uint64_t bytes);
  // Waits up to `milliseconds` for something Read would take (HasInput); false when the time
  // passed first.
  bool WaitForInput(uint32_t milliseconds) const;
  // Sends A-ABORT (service user, no reason) when connected, and closes. Always 1.
  int Abort();
  // Like Write, on the presentation context `contextID`; `command` chooses the command-set
  // encoding (implicit VR little endian) and the command bit of the fragments.
  int WriteOnContext(DICOMObject* object, uint8_t contextID, bool command);
  bool IsAssociated() const;
  // Why the last Connect gave 0; the words for it are the caller's (BuildConnectFailureText).
  enum class ConnectFailure : uint8_t {
    kNone,             // the last Connect succeeded, or none was made
    kNothingProposed,  // no abstract syntax was added
    kHostUnknown,      // the host name is not known
    kServiceUnknown,   // the port is neither a number nor a known service name
    kConnect,          // no TCP connection: GetConnectError() gives the system's error code
    kTimedOut,         // no answer to the request within the time-out
    kClosed,           // the peer closed the connection without answering
    kRejected,         // A-ASSOCIATE-RJ: see the Reject getters
    kAborted,          // A-ABORT instead of an answer
    kBadAnswer,        // the answer was not a valid A-ASSOCIATE-AC
    kNoContext,        // accepted, but with no presentation context that was proposed
  };
  ConnectFailure GetConnectFailure() const;
  int GetConnectError() const;
  // Whether the peer has sent something that Read would take without waiting (part of a
  // message, a release or abort, or its close). Never blocks: a provider polls it between the
  // responses of a long answer to notice a C-CANCEL.
  bool HasInput() const;
  // The A-ASSOCIATE-RJ fields kept from the last rejection (0 when none came).
  int GetRejectResult() const;
  int GetRejectSource() const;
  int GetRejectReason() const;
  // The AE titles of the association, without their padding. On the acceptor side the calling
  // title is the peer's.
  std::string GetCallingAETitle() const;
  std::string GetCalledAETitle() const;
  // The calling AE title (what DICOMCodec writes as the source AE of a file).
  std::string GetLocalAETitle() const override;
  // The contexts of the last request: the ones proposed (requester) or received (acceptor).
  const std::vector<PresentationContext>& GetProposedContexts() const;
  // The accepted contexts, each with its abstract syntax and its one transfer syntax.
  const std::vector<PresentationContext>& GetAcceptedContexts() const;
  // The accepted context for `abstractSyntax`, as Write chooses it; null when none.
  const PresentationContext* FindAcceptedContext(const UID& abstractSyntax) const;
  const PresentationContext* FindAcceptedContext(uint8_t contextID) const;
  // The presentation context ID of the last message read (0 before the first).
  uint8_t GetLastPresentationContextID() const;
  // The maximum length the peer announced (0 when it announced none).
  uint32_t GetPeerMaximumLength() const;
  // The receive time-out of the socket, in seconds.
  int SetTimeout(uint32_t seconds);
  uint32_t GetTimeout() const;

 private:
  struct State;
  friend struct State;

  int AnswerRequest();
  bool ReadRequest();
  uint8_t CheckRequest();
  bool NegotiateContexts(KESTREL::pdu::AssociatePDU& answer);
  void SendAccept(KESTREL::pdu::AssociatePDU& answer);
  int Failed(ConnectFailure why);
  static ConnectFailure OpenFailureOf(Socket::OpenFailure failure);
  void BuildRequest(const char* transferSyntax);
  void KeepAcceptedContexts(const KESTREL::pdu::AssociatePDU& answer);
  bool ReadAssociationBody(std::vector<uint8_t>& body);
  // False when the connection is gone; a send that fails on a live one shows at the next read.
  [[nodiscard]] bool SendPDU(const std::vector<uint8_t>& pdu);
  void Drop();
  void AbortAndDrop(uint8_t source, uint8_t reason);
  bool ReadMessage(ByteBuffer::Sink* sink);
  int ReadValue(ByteBuffer::Sink* sink, bool& complete);
  UID SyntaxOfContext(uint8_t contextID) const;
  int FinishMessage(DICOMObject* object, UID& transferSyntax);
  int ReadOtherPDU(uint8_t type);

  Socket socket_;
  std::unique_ptr<State> state_;
};
