#pragma once

// The status of a DICOM printer (Printer SOP class, PS3.4 H.4.6): an N-GET of the well-known
// Printer SOP instance, whose nine answers (the Printer module, PS3.3 C.13.9) are kept as
// strings.

#include <cstdint>
#include <memory>
#include <string>

#include "kestrel/Export.h"
#include "kestrel/Status.h"
#include "kestrel/UID.h"

class CO_PrinterModule;
class DICOMDataObject;
class PDU_Service;

class KESTREL_API CPrinter {
 public:
  // The nine attributes in the order of the getters.
  static constexpr int kAttributeCount = 9;

  CPrinter();
  virtual ~CPrinter();
  CPrinter(const CPrinter& other);
  CPrinter& operator=(const CPrinter& other);

  // One association to `host` and `port`, with the association configuration file "pdu.txt",
  // proposing the Printer SOP class, the Printer SOP instance UID and the Basic Grayscale
  // Print Management Meta SOP class (each in implicit VR little endian); one N-GET (Write);
  // a release; then the answers are kept (Get). Returns 1, whatever status the printer
  // answered (see GetStatusLine). Otherwise 0 with `status` (when not null):
  //  - KESTREL_STATUS_CONNECT_FAILED and the last-error text (also logged)
  //    "ERROR: Unable to connect to <host>\r\n" followed by the rejection text, or by why no
  //    request could be made (an AE title longer than 16 characters);
  //  - KESTREL_STATUS_WRITE_FAILED and "ERROR: Unable to write DICOM object.\r\n".
  // Never throws.
  int Client(const std::string& localAE, const std::string& remoteAE, const std::string& host,
             const std::string& port, KESTREL::KESTREL_STATUS* status);

  // Sends the N-GET of the Printer SOP instance `uid` (for the nine attributes) on the open
  // `association` and reads the answer's data set into `dataObject` (the caller's; cleared
  // first). The request goes on the first accepted context of: the Printer SOP class, the
  // Basic Grayscale Print Management Meta SOP class, the Printer SOP instance UID proposed as
  // an abstract syntax. N-EVENT-REPORTs arriving before the answer are logged and
  // acknowledged. The answer's status is worded by the generic interpreter into the status
  // line, which is logged. 1 when the exchange worked, whatever the status; 0 when
  // `association` or `dataObject` is null, no context serves the printer, or sending or
  // reading failed.
  int Write(PDU_Service* association, DICOMDataObject* dataObject, const UID& uid);

  // Write of the well-known instance, then the answers are kept as Client keeps them: each
  // attribute the answer carries with a value replaces its string (cut to 127 characters,
  // multiple values joined by "\"); the others keep what they held. Same result as Write.
  int Get(PDU_Service* association);

  // "1.2.840.10008.5.1.1.16" (Printer SOP class); 1.
  virtual int GetUID(UID& uid);

  std::string GetPrinterStatus() const;
  std::string GetPrinterStatusInfo() const;
  std::string GetPrinterName() const;
  std::string GetManufacturer() const;
  std::string GetManufacturerModelName() const;
  std::string GetDeviceSerialNumber() const;
  std::string GetSoftwareVersions() const;
  std::string GetDateOfLastCalibration() const;
  std::string GetTimeOfLastCalibration() const;

  // The generic interpreter's line (KESTREL::InterpretDimseStatus) for the last answer's
  // status, and that status; "" and 0 before the first answer.
  std::string GetStatusLine() const;
  uint16_t GetStatus() const;

 private:
  // Builds the request's attribute list and reads the answer.
  std::unique_ptr<CO_PrinterModule> module_;
  std::string values_[kAttributeCount];
  std::string statusLine_;
  uint16_t status_ = 0;
};
