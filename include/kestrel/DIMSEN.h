#pragma once

// The DIMSE-N messages (PS3.7 section 10), in the shape of the DIMSE-C classes of DIMSEC.h:
// Write builds and sends a command set and, when given one, its data set; Read checks a
// command set already read and reads the data set that follows when asked to.
//
// The N- services of a meta SOP class (print management) run on the presentation context of
// the meta class while their commands name the SOP class of each object, so the request Writes
// take the abstract syntax of the context apart from the SOP class.

#include <cstdint>
#include <vector>

#include "kestrel/Export.h"
#include "kestrel/UID.h"

class PDU_Service;
class DICOMCommandObject;
class DICOMDataObject;

class KESTREL_API NEventReportRQ {
 public:
  static constexpr uint16_t kCommandField = 0x0100;
  static int Write(PDU_Service* pdu, const UID& abstractSyntax, const UID& sopClass,
                   const UID& sopInstance, uint16_t eventTypeID, DICOMDataObject* dataSet,
                   uint16_t* messageID = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API NEventReportRSP {
 public:
  static constexpr uint16_t kCommandField = 0x8100;
  // Carries the request's Event Type ID.
  static int Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                   DICOMDataObject* dataSet = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API NGetRQ {
 public:
  static constexpr uint16_t kCommandField = 0x0110;
  // `attributes`: the tags wanted (group << 16 | element); empty asks for all.
  static int Write(PDU_Service* pdu, const UID& abstractSyntax, const UID& sopClass,
                   const UID& sopInstance, const std::vector<uint32_t>& attributes,
                   uint16_t* messageID = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API NGetRSP {
 public:
  static constexpr uint16_t kCommandField = 0x8110;
  // Affected SOP Instance UID is the request's Requested SOP Instance UID.
  static int Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                   DICOMDataObject* dataSet = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API NSetRQ {
 public:
  static constexpr uint16_t kCommandField = 0x0120;
  static int Write(PDU_Service* pdu, const UID& abstractSyntax, const UID& sopClass,
                   const UID& sopInstance, DICOMDataObject* dataSet, uint16_t* messageID = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API NSetRSP {
 public:
  static constexpr uint16_t kCommandField = 0x8120;
  static int Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                   DICOMDataObject* dataSet = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API NActionRQ {
 public:
  static constexpr uint16_t kCommandField = 0x0130;
  static int Write(PDU_Service* pdu, const UID& abstractSyntax, const UID& sopClass,
                   const UID& sopInstance, uint16_t actionTypeID, DICOMDataObject* dataSet,
                   uint16_t* messageID = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API NActionRSP {
 public:
  static constexpr uint16_t kCommandField = 0x8130;
  // Carries the request's Action Type ID.
  static int Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                   DICOMDataObject* dataSet = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API NCreateRQ {
 public:
  static constexpr uint16_t kCommandField = 0x0140;
  // An empty `sopInstance` leaves the instance UID to the performer (the element is left
  // out).
  static int Write(PDU_Service* pdu, const UID& abstractSyntax, const UID& sopClass,
                   const UID& sopInstance, DICOMDataObject* dataSet, uint16_t* messageID = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API NCreateRSP {
 public:
  static constexpr uint16_t kCommandField = 0x8140;
  // `sopInstance`: the instance created (the request's when it named one).
  static int Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                   const UID& sopInstance, DICOMDataObject* dataSet = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API NDeleteRQ {
 public:
  static constexpr uint16_t kCommandField = 0x0150;
  static int Write(PDU_Service* pdu, const UID& abstractSyntax, const UID& sopClass,
                   const UID& sopInstance, uint16_t* messageID = nullptr);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};

class KESTREL_API NDeleteRSP {
 public:
  static constexpr uint16_t kCommandField = 0x8150;
  // Carries the request's SOP class and instance as the affected ones.
  static int Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status);
  static int Read(DICOMCommandObject* command, PDU_Service* pdu = nullptr,
                  DICOMDataObject* dataSet = nullptr);
};
