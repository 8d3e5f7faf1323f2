#include "ServeDispatcher.h"

#include <cstdio>

#include "ServeConnections.h"
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

// Only transfer syntaxes the codec can read are accepted: a data set in any other could not be
// decoded, and the peer should rather use one of its other proposals. A request that would be
// accepted takes a slot of the server, or is refused as busy.
class ServePDU : public PDU_Service {
 public:
  ServePDU(const char* configFile, Connections& connections, uint64_t id)
      : PDU_Service(configFile), connections_(connections), id_(id) {}
  bool CheckTransferSyntax(const UID& uid) override {
    return TransferSyntaxMode(uid.GetBuffer()) != 0 && PDU_Service::CheckTransferSyntax(uid);
  }
  bool CheckCapacity() override {
    busy_ = !connections_.TakeSlot(id_);
    return !busy_;
  }
  bool WasBusy() const { return busy_; }

 private:
  Connections& connections_;
  uint64_t id_;
  bool busy_ = false;
};

// Takes the connection out of the server's list before the association (declared earlier)
// closes its handle.
class LeaveFirst {
 public:
  LeaveFirst(Connections& connections, uint64_t id) : connections_(connections), id_(id) {}
  ~LeaveFirst() { connections_.Leave(id_); }
  LeaveFirst(const LeaveFirst&) = delete;
  LeaveFirst& operator=(const LeaveFirst&) = delete;

 private:
  Connections& connections_;
  uint64_t id_;
};

}  // namespace

std::string Printable(const std::string& text) {
  std::string out;
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7F && byte != '\\') {
      out += c;
      continue;
    }
    char escaped[5];
    std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
    out += escaped;
  }
  return out;
}

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

void Dispatcher::Serve(int handle, Connections& connections, uint64_t id) {
  ServePDU pdu(settings_.configFile.c_str(), connections, id);
  LeaveFirst leave(connections, id);
  // A connection that sends no association request holds its thread only as long as the
  // request timer of PS3.8 9.1.5 (ARTIM) allows.
  pdu.SetTimeout(settings_.requestTimeout);
  if (!pdu.ServeSocket(handle)) {
    ++counters_.refused;
    if (pdu.WasBusy()) ++counters_.busy;
    return;
  }
  ++counters_.associations;
  pdu.SetTimeout(settings_.timeout);
  pdu.SetMessageLimit(settings_.messageLimit);
  const uint64_t requests = ServeAssociation(pdu, connections, id);
  if (settings_.verbose)
    std::fprintf(stderr, "kestrel serve: association %s -> %s ended after %llu requests\n",
                 Printable(pdu.GetCallingAETitle()).c_str(),
                 Printable(pdu.GetCalledAETitle()).c_str(),
                 static_cast<unsigned long long>(requests));
}

// Requests until the association ends: an association silent for the idle time-out, or still
// idle when the server stops, is aborted (PS3.8 7.3.1); one stopped while a message was read
// gets its answer first.
uint64_t Dispatcher::ServeAssociation(PDU_Service& pdu, Connections& connections, uint64_t id) {
  uint64_t requests = 0;
  for (;;) {
    if (!pdu.WaitForInput(settings_.idleTimeout * 1000) || !connections.StartMessage(id)) {
      pdu.Abort();
      break;
    }
    const bool answered = AnswerNext(pdu);
    const bool goOn = connections.EndMessage(id);
    if (!answered) break;
    ++requests;
    if (!goOn) {
      pdu.Abort();
      break;
    }
  }
  return requests;
}

// Reads the next request and answers it; false when the association is over.
bool Dispatcher::AnswerNext(PDU_Service& pdu) {
  DICOMCommandObject request;
  if (!pdu.Read(&request)) return false;  // released, aborted, timed out or broken
  uint16_t unsupported = 0;
  const Handler* handler = FindHandler(request, unsupported);
  const bool ok =
      handler ? (*handler)(pdu, &request) : AnswerUnsupported(pdu, &request, unsupported);
  if (!ok) pdu.Abort();
  return ok;
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
