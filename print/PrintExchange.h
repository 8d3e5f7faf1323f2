#pragma once

// What the print objects share: the presentation context they use, reading a DIMSE-N
// response while the printer's N-EVENT-REPORTs come in between, turning a status into a
// CDICOMPrintException, the last-error text of a failed exchange, and the data set elements
// they build.

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/DICOMObject.h"
#include "kestrel/UID.h"
#include "kestrel/VR_XXTYPED.h"

class PDU_Service;

namespace KESTREL {
namespace print {

// The first of `candidates` (abstract syntaxes) that the association accepted a presentation
// context for; empty when none was accepted or `pdu` is null.
UID AcceptedSyntax(PDU_Service* pdu, std::initializer_list<const char*> candidates);

// One DIMSE-N response and the data set that came with it (empty when none came).
struct Response {
  DICOMCommandObject command;
  DICOMDataObject dataSet;
  uint16_t status = 0;
};

// The Read of a response class of DIMSEN.h (NCreateRSP::Read ...).
using ResponseCheck = int (*)(DICOMCommandObject*, PDU_Service*, DICOMDataObject*);

// Reads the response to the request `messageID` just sent on `pdu`. N-EVENT-REPORT requests
// the printer sends first are logged and answered with success. False when the association
// failed (it is closed then), or the message read is not the response `check` accepts for
// that request; `detail` then says why.
[[nodiscard]] bool ReadResponse(PDU_Service* pdu, ResponseCheck check, uint16_t messageID,
                                Response& response, std::string& detail);

// The abstract syntax a print object of `sopClass` sends on: the Basic Grayscale Print
// Management Meta SOP class when its context was accepted, else the object's own class;
// empty when neither was.
UID PrintSyntax(PDU_Service* pdu, const UID& sopClass);

// One request and its response: `send` writes the request on `pdu` (returning the Write's
// result and filling in the message ID), then the response is read into `response`. 1 when
// both worked; otherwise 0 after ExchangeFailed.
int Exchange(PDU_Service* pdu, int objectKind, int operation, ResponseCheck check,
             const std::function<int(uint16_t* messageID)>& send, Response& response);

// N-ACTION "print" (action type 1) of `instance`, and N-DELETE of `instance`, which is
// emptied once the printer answered. The results and exceptions of the print objects; an
// empty `instance` fails without a request ("the <what> was not created").
int PrintInstance(PDU_Service* pdu, int objectKind, const UID& sopClass, const UID& instance,
                  const char* what);
int DeleteInstance(PDU_Service* pdu, int objectKind, const UID& sopClass, UID& instance,
                   const char* what);

// Does nothing for a success status. Otherwise throws a CDICOMPrintException made from the
// response command set and interpreted for the object kind and operation.
void ThrowOnStatus(Response& response, int objectKind, int operation);

// For an exchange that failed (no context, nothing sent, no valid response): logs and sets the
// last-error text "ERROR: Unable to write DICOM object.\r\n" followed by the request's name
// and `detail`. Returns 0.
int ExchangeFailed(int objectKind, int operation, const std::string& detail);

// Element builders. Each makes a typed element of `Typed`, gives it to `object` and returns
// true; false (nothing pushed) when memory ran out or `object` refused it. An empty text is
// not pushed at all (true): the printer then applies its default.
[[nodiscard]] bool PushValue(DICOMObject* object, std::unique_ptr<VR_XXTYPED> element,
                             const std::string& text);
template <class Typed>
[[nodiscard]] bool PushText(DICOMObject* object, uint16_t group, uint16_t element,
                            const std::string& text) {
  return text.empty() || PushValue(object, std::make_unique<Typed>(group, element), text);
}
[[nodiscard]] bool PushUS(DICOMObject* object, uint16_t group, uint16_t element, uint16_t value);
// A sequence of the one item `item`, which is taken over when the push succeeds.
[[nodiscard]] bool PushSequence(DICOMObject* object, uint16_t group, uint16_t element,
                                std::unique_ptr<DICOMDataObject>& item);
// A sequence with one item holding Referenced SOP Class and Instance UIDs (PS3.3 10.8).
[[nodiscard]] bool PushReference(DICOMObject* object, uint16_t group, uint16_t element,
                                 const UID& sopClass, const UID& sopInstance);

// The Referenced SOP Instance UIDs (0008,1155) of the items of a sequence in a response, in
// order (an item without one gives an empty UID). A sequence of defined length that came in
// an implicit VR stream is only bytes to a codec without a data dictionary: those bytes are
// read as implicit VR little endian items here (PS3.5 7.5). Empty when the element is
// missing or its bytes are not items.
std::vector<UID> ReferencedInstances(DICOMObject* dataSet, uint16_t group, uint16_t element);

// The text of an element without its padding; empty when absent.
std::string TextOf(DICOMObject* object, uint16_t group, uint16_t element);

}  // namespace print
}  // namespace KESTREL
