#include "ServeDispatcher.h"

#include <cstdio>

#include "kestrel/DICOMObject.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/Verification.h"

namespace {

constexpr uint16_t kCommandGroup = 0x0000;
constexpr uint16_t kAffectedSOPClassUID = 0x0002;
constexpr uint16_t kCommandField = 0x0100;
constexpr uint16_t kDataSetType = 0x0800;
constexpr uint16_t kNoDataSet = 0x0101;
constexpr uint16_t kCancelField = 0x0FFF;
constexpr uint16_t kResponseBit = 0x8000;
constexpr uint32_t kRequestTimeout = 30;  // seconds

// Only transfer syntaxes the codec can read are accepted: a data set in any other could not be
// decoded, and the peer should rather use one of its other proposals.
class ServePDU : public PDU_Service {
 public:
  using PDU_Service::PDU_Service;
  bool CheckTransferSyntax(const UID& uid) override {
    return TransferSyntaxMode(uid.GetBuffer()) != 0 && PDU_Service::CheckTransferSyntax(uid);
  }
};

}  // namespace

Dispatcher::Dispatcher(ServeSettings settings, ServeCounters& counters)
    : settings_(std::move(settings)), counters_(counters) {}

void Dispatcher::Add(uint16_t commandField, Handler handler, const std::string& sopClass) {
  handlers_[{commandField, sopClass}] = std::move(handler);
}

// The handler of the request's command field and SOP class, else the one of its command field
// alone. Null with the status to refuse the request with when there is none.
const Dispatcher::Handler* Dispatcher::FindHandler(DICOMCommandObject& request,
                                                   uint16_t& unsupported) const {
  const uint16_t field = request.GetUInt16(kCommandGroup, kCommandField);
  UID sopClass;
  sopClass.Set(request.Find(kCommandGroup, kAffectedSOPClassUID));
  for (const std::string& key : {sopClass.ToString(), std::string()}) {
    auto handler = handlers_.find({field, key});
    if (handler != handlers_.end()) return &handler->second;
  }
  auto any = handlers_.lower_bound({field, std::string()});
  unsupported = any != handlers_.end() && any->first.first == field
                    ? DIMSEStatus::kSOPClassNotSupported
                    : DIMSEStatus::kUnrecognizedOperation;
  return nullptr;
}

void Dispatcher::LockName(const std::string& name) {
  std::unique_lock<std::mutex> lock(namesMutex_);
  namesFree_.wait(lock, [&] { return namesInUse_.count(name) == 0; });
  namesInUse_.insert(name);
}

void Dispatcher::UnlockName(const std::string& name) {
  {
    std::lock_guard<std::mutex> lock(namesMutex_);
    namesInUse_.erase(name);
  }
  namesFree_.notify_all();
}

// A request no handler takes: its data set (if any) is read and dropped, and it is answered
// with `status` on its own context. A C-CANCEL needs no answer.
bool Dispatcher::AnswerUnsupported(PDU_Service& pdu, DICOMCommandObject* request, uint16_t status) {
  uint16_t field = request->GetUInt16(kCommandGroup, kCommandField);
  if (request->Find(kCommandGroup, kDataSetType) &&
      request->GetUInt16(kCommandGroup, kDataSetType) != kNoDataSet) {
    DICOMDataObject ignored;
    if (!pdu.Read(&ignored)) return false;
  }
  if (field == kCancelField) return true;
  if (field & kResponseBit) return false;  // a response nobody asked for
  return WriteStatusResponse(&pdu, request, status) != 0;
}

void Dispatcher::Serve(int handle) {
  ServePDU pdu(settings_.configFile.c_str());
  // A connection that sends no association request holds a worker only as long as the
  // request timer of PS3.8 9.1.5 (ARTIM) allows, not the whole receive time-out.
  pdu.SetTimeout(settings_.timeout < kRequestTimeout ? settings_.timeout : kRequestTimeout);
  if (!pdu.ServeSocket(handle)) {
    ++counters_.refused;
    return;
  }
  pdu.SetTimeout(settings_.timeout);
  ++counters_.associations;
  uint64_t requests = 0;
  for (;;) {
    DICOMCommandObject request;
    if (!pdu.Read(&request)) break;  // released, aborted, timed out or broken
    ++requests;
    uint16_t unsupported = 0;
    const Handler* handler = FindHandler(request, unsupported);
    bool ok = handler ? (*handler)(pdu, &request) : AnswerUnsupported(pdu, &request, unsupported);
    if (!ok) {
      pdu.Abort();
      break;
    }
  }
  if (settings_.verbose)
    std::fprintf(stderr, "kestrel serve: association %s -> %s ended after %llu requests\n",
                 pdu.GetCallingAETitle().c_str(), pdu.GetCalledAETitle().c_str(),
                 static_cast<unsigned long long>(requests));
}

void AddEchoHandler(Dispatcher& dispatcher) {
  dispatcher.Add(CEchoRQ::kCommandField,
                 [&dispatcher](PDU_Service& pdu, DICOMCommandObject* request) {
                   Verification verification;
                   if (!verification.Read(&pdu, request)) return false;
                   ++dispatcher.Counters().echoes;
                   return true;
                 });
}
