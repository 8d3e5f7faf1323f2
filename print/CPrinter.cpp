#include "kestrel/CPrinter.h"

#include <vector>

#include "PrintExchange.h"
#include "kestrel/CDICOMPrintException.h"
#include "kestrel/CO_Modules.h"
#include "kestrel/ConnectFailure.h"
#include "kestrel/DIMSEN.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/PrintServiceClasses.h"
#include "vxCommon.h"

namespace {

constexpr char kConfigFile[] = "pdu.txt";
constexpr char kApplicationContext[] = "1.2.840.10008.3.1.1.1";
// Each answer is kept in a buffer of this many characters, its terminating zero included.
constexpr size_t kValueBuffer = 128;

void SetStatus(KESTREL::KESTREL_STATUS* status, KESTREL::KESTREL_STATUS value) {
  if (status) *status = value;
}

int Fail(KESTREL::KESTREL_STATUS* status, KESTREL::KESTREL_STATUS value, const std::string& text) {
  Log(text, 1);
  KESTREL::SetLastErrorText(text);
  SetStatus(status, value);
  return 0;
}

// All values of a text attribute, joined by "\" as they are held.
bool ValueOf(VR_XXTYPED* attribute, std::string& value) {
  auto* text = dynamic_cast<VR_XXMULTISTRING*>(attribute);
  if (!text || !attribute->Data || attribute->Length == 0) return false;
  value.clear();
  std::string one;
  for (uint32_t i = 0; i < text->GetCount(); ++i) {
    if (i) value += '\\';
    if (text->Get(i, one)) value += one;
  }
  return true;
}

}  // namespace

CPrinter::CPrinter() : module_(std::make_unique<CO_PrinterModule>()) {}

CPrinter::~CPrinter() = default;

// The module only carries a request and an answer through Write and Get; a copy starts with
// its own, empty.
CPrinter::CPrinter(const CPrinter& other)
    : module_(std::make_unique<CO_PrinterModule>()),
      statusLine_(other.statusLine_),
      status_(other.status_) {
  for (int i = 0; i < kAttributeCount; ++i) values_[i] = other.values_[i];
}

CPrinter& CPrinter::operator=(const CPrinter& other) {
  if (this == &other) return *this;
  for (int i = 0; i < kAttributeCount; ++i) values_[i] = other.values_[i];
  statusLine_ = other.statusLine_;
  status_ = other.status_;
  return *this;
}

int CPrinter::GetUID(UID& uid) {
  uid = PrintSOPClass::kPrinter;
  return 1;
}

int CPrinter::Client(const std::string& localAE, const std::string& remoteAE,
                     const std::string& host, const std::string& port,
                     KESTREL::KESTREL_STATUS* status) {
  const std::string connectError = "ERROR: Unable to connect to " + host + "\r\n";
  PDU_Service association(kConfigFile);
  association.SetApplicationContext(kApplicationContext);
  UID printer;
  GetUID(printer);
  association.AddAbstractSyntax(printer);
  association.AddAbstractSyntax(PrintSOPClass::kPrinterInstance);
  association.AddAbstractSyntax(PrintSOPClass::kBasicGrayscalePrintManagementMeta);
  for (const std::string* title : {&localAE, &remoteAE}) {
    if (title->size() > 16)
      return Fail(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED,
                  connectError + "The AE title " + *title + " is longer than 16 characters");
  }
  association.SetLocalAddress(localAE);
  association.SetRemoteAddress(remoteAE);
  if (!association.Connect(host.c_str(), port.c_str(), nullptr)) {
    return Fail(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED,
                connectError + KESTREL::BuildConnectFailureText(association, host, port));
  }
  if (!Get(&association)) {
    association.Close();
    return Fail(status, KESTREL::KESTREL_STATUS_WRITE_FAILED,
                "ERROR: Unable to write DICOM object.\r\n");
  }
  association.Close();
  SetStatus(status, KESTREL::KESTREL_STATUS_OK);
  return 1;
}

int CPrinter::Write(PDU_Service* association, DICOMDataObject* dataObject, const UID& uid) {
  if (!association || !dataObject) return 0;
  UID printer;
  GetUID(printer);
  UID syntax = KESTREL::print::AcceptedSyntax(
      association, {printer.GetBuffer(), PrintSOPClass::kBasicGrayscalePrintManagementMeta,
                    PrintSOPClass::kPrinterInstance});
  if (syntax.IsEmpty()) return 0;
  // An empty list asks for every attribute. Printers answer a list naming one attribute they
  // do not keep with 0105 (No such attribute) and nothing else, and most keep only some of
  // the nine; the module picks the nine out of the answer instead.
  const std::vector<uint32_t> attributes;
  uint16_t messageID = 0;
  if (!NGetRQ::Write(association, syntax, printer, uid, attributes, &messageID)) return 0;
  KESTREL::print::Response response;
  std::string detail;
  if (!KESTREL::print::ReadResponse(association, &NGetRSP::Read, messageID, response, detail))
    return 0;
  status_ = response.status;
  statusLine_ = KESTREL::InterpretDimseStatus(status_);
  Log("KESTREL.dll : CPrinter::Write : " + statusLine_, status_ == 0 ? 3 : 2);
  dataObject->Clear();
  while (VR* element = response.dataSet.Pop()) {
    if (!dataObject->Push(element)) delete element;
  }
  return 1;
}

int CPrinter::Get(PDU_Service* association) {
  DICOMDataObject answer;
  if (!Write(association, &answer, PrintSOPClass::kPrinterInstance)) return 0;
  if (!module_->ReadFrom(&answer)) return 1;
  std::string value;
  for (int i = 0; i < kAttributeCount; ++i) {
    if (ValueOf(module_->GetAttributeAt(i), value)) values_[i] = value.substr(0, kValueBuffer - 1);
  }
  module_->Clear();
  return 1;
}

std::string CPrinter::GetPrinterStatus() const { return values_[0]; }
std::string CPrinter::GetPrinterStatusInfo() const { return values_[1]; }
std::string CPrinter::GetPrinterName() const { return values_[2]; }
std::string CPrinter::GetManufacturer() const { return values_[3]; }
std::string CPrinter::GetManufacturerModelName() const { return values_[4]; }
std::string CPrinter::GetDeviceSerialNumber() const { return values_[5]; }
std::string CPrinter::GetSoftwareVersions() const { return values_[6]; }
std::string CPrinter::GetDateOfLastCalibration() const { return values_[7]; }
std::string CPrinter::GetTimeOfLastCalibration() const { return values_[8]; }
std::string CPrinter::GetStatusLine() const { return statusLine_; }
uint16_t CPrinter::GetStatus() const { return status_; }
