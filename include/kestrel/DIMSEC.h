#pragma once

// The DIMSE-C messages (PS3.7 section 9): one small class per primitive and direction. Write
// builds the command set (group 0000, sent in implicit VR little endian with its group length)
// and sends it, followed by the data set when the message carries one; Read checks a command
// set already read and, when given an association and a data set object, reads the data set
// that follows.
//
// Requests go out on the accepted presentation context whose abstract syntax is the SOP class
// UID; responses go back on the context their request came in on. Every Write and Read gives 1
// on success and 0 on failure (no such context, a failed send, a command field or data set type
// that does not fit), and never throws.
//
// Ownership: a data set given to Write is emptied by the encoding (the caller still deletes
// it). Command sets and data sets given to Read stay the caller's. Request Writes draw the
// next Message ID from the process-wide counter (odd; the first of a process is 3) and give it
// through `messageID` when that is not null.

#include <cstdint>
#include <string>

#include "kestrel/Export.h"
#include "kestrel/UID.h"

class PDU_Service;
class DICOMCommandObject;
class DICOMDataObject;

// DIMSE status values used by the service classes, PS3.7 Annex C and PS3.4.
namespace DIMSEStatus {
constexpr uint16_t kSuccess = 0x0000;
constexpr uint16_t kPending = 0xFF00;
constexpr uint16_t kPendingWarning = 0xFF01;  // C-FIND: optional keys not supported
constexpr uint16_t kCancel = 0xFE00;
constexpr uint16_t kSOPClassNotSupported = 0x0122;
constexpr uint16_t kUnrecognizedOperation = 0x0211;
constexpr uint16_t kOutOfResources = 0xA700;
constexpr uint16_t kOutOfResourcesSubOperations = 0xA702;  // C-MOVE
constexpr uint16_t kMoveDestinationUnknown = 0xA801;
constexpr uint16_t kIdentifierDoesNotMatch = 0xA900;
constexpr uint16_t kUnableToProcess = 0xC000;
constexpr uint16_t kSubOperationsWithFailures = 0xB000;  // C-MOVE warning
}  // namespace DIMSEStatus

class KESTREL_API CEchoRQ {
 public:
  static constexpr uint16_t kCommandField = 0x0030;
  static int Write(PDU_Service* pdu, const UID& sopClass, uint16_t* messageID = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API CEchoRSP {
 public:
  static constexpr uint16_t kCommandField = 0x8030;
  static int Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API CStoreRQ {
 public:
  static constexpr uint16_t kCommandField = 0x0001;
  // The optional fields of a request (PS3.7 9.1.1.1): its priority and, for a store made as a
  // C-MOVE sub-operation, the move originator (PS3.4 C.4.2.3.1), sent when the title is set.
  struct Options {
    uint16_t Priority = 0x0000;  // medium
    std::string MoveOriginatorAETitle;
    uint16_t MoveOriginatorMessageID = 0;
  };
  // The Affected SOP Instance UID is the data set's (0008,0018); without one the write fails.
  static int Write(PDU_Service* pdu, const UID& sopClass, DICOMDataObject* dataSet,
                   uint16_t* messageID = nullptr);
  // The request on the accepted presentation context `contextID`, for `sopInstance` of
  // `sopClass`, with `dataSet` encoded in that context's transfer syntax. 0 when the context
  // was not accepted, a UID is empty or the write failed.
  static int Write(PDU_Service* pdu, uint8_t contextID, const UID& sopClass, const UID& sopInstance,
                   DICOMDataObject* dataSet, const Options& options, uint16_t* messageID = nullptr);
  // Refuses a request whose Data Set Type says no data set follows.
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API CStoreRSP {
 public:
  static constexpr uint16_t kCommandField = 0x8001;
  // Carries the request's Affected SOP Class and Instance UIDs, and the Error Comment
  // (0000,0902) when one is given (PS3.7 C.4: at most 64 characters are sent).
  static int Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                   const std::string& errorComment = std::string());
  // Reads the next message from `pdu` as the response to the request `messageID`: 1 when it
  // is a C-STORE-RSP to that request with a Status, written to `status`, and its Error
  // Comment to `errorComment` (empty when none) when that is not null. 0 on anything else.
  static int ReadFor(PDU_Service* pdu, uint16_t messageID, uint16_t* status,
                     std::string* errorComment = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

// Answers any request with a response carrying only a status (and an Error Comment when one is
// given): the request's command field with the response bit, its SOP class, its Message ID,
// no data set; on the context the request came in on. For refusals and failures of requests
// whose own response class has nothing more to say. 0 when the response could not be sent or
// `request` is itself a response.
KESTREL_API int WriteStatusResponse(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                                    const std::string& errorComment = std::string());

class KESTREL_API CFindRQ {
 public:
  static constexpr uint16_t kCommandField = 0x0020;
  static int Write(PDU_Service* pdu, const UID& sopClass, DICOMDataObject* identifier,
                   uint16_t* messageID = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API CFindRSP {
 public:
  static constexpr uint16_t kCommandField = 0x8020;
  // A pending response carries its `match`; the final one passes null.
  static int Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                   DICOMDataObject* match);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API CMoveRQ {
 public:
  static constexpr uint16_t kCommandField = 0x0021;
  // `moveDestination` goes out as a 16-byte AE title.
  static int Write(PDU_Service* pdu, const UID& sopClass, const std::string& moveDestination,
                   DICOMDataObject* identifier, uint16_t* messageID = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API CMoveRSP {
 public:
  static constexpr uint16_t kCommandField = 0x8021;
  struct Counts {
    uint16_t Remaining = 0;
    uint16_t Completed = 0;
    uint16_t Failed = 0;
    uint16_t Warning = 0;
  };
  // `identifier` (may be null) follows when given, e.g. the failed SOP instances.
  static int Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                   const Counts& counts, DICOMDataObject* identifier = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};
