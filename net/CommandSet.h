#pragma once

// Building and reading DIMSE command sets (PS3.7 Annex E): the command elements, the helpers
// that push them, and the common send and check steps of the command classes.

#include <cstdint>
#include <string>
#include <vector>

#include "kestrel/DICOMObject.h"
#include "kestrel/UID.h"

class PDU_Service;

namespace KESTREL {
namespace command {

// Command elements of group 0000, PS3.7 Table E.1-1.
constexpr uint16_t kAffectedSOPClassUID = 0x0002;
constexpr uint16_t kRequestedSOPClassUID = 0x0003;
constexpr uint16_t kCommandField = 0x0100;
constexpr uint16_t kMessageID = 0x0110;
constexpr uint16_t kMessageIDBeingRespondedTo = 0x0120;
constexpr uint16_t kMoveDestination = 0x0600;
constexpr uint16_t kPriority = 0x0700;
constexpr uint16_t kDataSetType = 0x0800;
constexpr uint16_t kStatus = 0x0900;
constexpr uint16_t kErrorComment = 0x0902;
constexpr uint16_t kAffectedSOPInstanceUID = 0x1000;
constexpr uint16_t kRequestedSOPInstanceUID = 0x1001;
constexpr uint16_t kEventTypeID = 0x1002;
constexpr uint16_t kAttributeIdentifierList = 0x1005;
constexpr uint16_t kActionTypeID = 0x1008;
constexpr uint16_t kRemainingSubOperations = 0x1020;
constexpr uint16_t kCompletedSubOperations = 0x1021;
constexpr uint16_t kFailedSubOperations = 0x1022;
constexpr uint16_t kWarningSubOperations = 0x1023;
constexpr uint16_t kMoveOriginatorAETitle = 0x1030;
constexpr uint16_t kMoveOriginatorMessageID = 0x1031;

// Data Set Type: 0101 means no data set follows; anything else means one does.
constexpr uint16_t kNoDataSet = 0x0101;
constexpr uint16_t kDataSetFollows = 0x0102;
constexpr uint16_t kPriorityMedium = 0x0000;

// Each push makes a new element and gives it to `command`; false when it was refused.
[[nodiscard]] bool PushUS(DICOMObject* command, uint16_t element, uint16_t value);
// A UID, padded to even length with a NUL (PS3.5 9.1).
[[nodiscard]] bool PushUID(DICOMObject* command, uint16_t element, const UID& uid);
// An AE title as a 16-byte value padded with blanks.
[[nodiscard]] bool PushAE(DICOMObject* command, uint16_t element, const std::string& title);
// Text (LO) of at most `limit` characters, padded to even length with a blank.
[[nodiscard]] bool PushText(DICOMObject* command, uint16_t element, const std::string& text,
                            size_t limit);
// The text of an element without its trailing blanks; empty when absent.
std::string GetText(DICOMObject* command, uint16_t element);
// A list of tags (group << 16 | element), each as two 16-bit halves.
[[nodiscard]] bool PushAT(DICOMObject* command, uint16_t element,
                          const std::vector<uint32_t>& tags);
// Copies an element of `from` (if present) into `to` under `toElement`.
[[nodiscard]] bool CopyElement(DICOMObject* from, uint16_t fromElement, DICOMObject* to,
                               uint16_t toElement);

// The value of a UID element without padding; empty when absent.
UID GetUID(DICOMObject* command, uint16_t element);
// Whether the command announces a data set.
[[nodiscard]] bool HasDataSet(DICOMObject* command);

// A new command set with the elements every command carries: SOP class (affected or
// requested, `sopClassElement`), Command Field, and the Message ID drawn from the process-wide
// counter (written to `messageID` when not null).
[[nodiscard]] DICOMCommandObject* NewRequest(uint16_t commandField, uint16_t sopClassElement,
                                             const UID& sopClass, uint16_t* messageID);
// A new response to `request`: Affected SOP Class UID (from the request's affected or requested
// SOP class), Command Field, Message ID Being Responded To and Status.
[[nodiscard]] DICOMCommandObject* NewResponse(uint16_t commandField, DICOMCommandObject* request,
                                              uint16_t status);

// Adds Data Set Type and sends the command, then the data set when there is one, both on the
// accepted context of `abstractSyntax`. The command set is always deleted; the data set is
// emptied by the encoding. 1 on success.
int SendRequest(PDU_Service* pdu, const UID& abstractSyntax, DICOMCommandObject* command,
                DICOMDataObject* dataSet);
// The same for a response: it goes back on the context the request came in on.
int SendResponse(PDU_Service* pdu, DICOMCommandObject* request, DICOMCommandObject* response,
                 DICOMDataObject* dataSet);

enum class DataSetRule {
  kNever,     // the message never carries a data set
  kOptional,  // Data Set Type decides
  kRequired,  // a request that is invalid without its data set
};
// Sends a command set (and its data set, if any) on the context `contextID`; the command set
// is always deleted. 1 on success.
int SendOnContext(PDU_Service* pdu, uint8_t contextID, DICOMCommandObject* command,
                  DICOMDataObject* dataSet);

// The Read of every command class: checks the command field (and, for kRequired, that a data
// set is announced); then, when both `pdu` and `dataSet` are given and a data set is announced,
// reads it.
int CheckAndRead(DICOMCommandObject* command, uint16_t commandField, DataSetRule rule,
                 PDU_Service* pdu, DICOMDataObject* dataSet);

}  // namespace command
}  // namespace KESTREL
