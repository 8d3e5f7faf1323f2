// The C-STORE handler of `kestrel serve`: every object received is saved in the image store and
// indexed in the image database before the response goes out; the response says Success only
// when the file and its four rows are there, and otherwise carries a failure status with an
// Error Comment (0000,0902) saying why.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "ServeDispatcher.h"
#include "StoreObject.h"
#include "kestrel/CDatabase.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/PresentationContext.h"

namespace {

constexpr char kImplicitLittle[] = "1.2.840.10008.1.2";

// The transfer syntax the data set came in: that of the context its request used.
std::string ReceivedSyntax(PDU_Service& pdu) {
  const PresentationContext* context = pdu.FindAcceptedContext(pdu.GetLastPresentationContextID());
  return context && !context->TransferSyntaxes.empty() ? context->TransferSyntaxes[0].ToString()
                                                       : std::string(kImplicitLittle);
}

// Records the sender as the file's Source Application Entity Title (PS3.10 7.1).
void NameSender(PDU_Service& pdu, DICOMDataObject* dataSet) {
  const std::string sender = pdu.GetCallingAETitle();
  if (sender.empty()) return;
  auto vr = std::make_unique<VR>(0x0002, 0x0016, static_cast<uint32_t>(sender.size()), true);
  if (!vr->Data) return;
  std::memcpy(vr->Data, sender.data(), sender.size());
  if (vr->Length > sender.size()) static_cast<char*>(vr->Data)[sender.size()] = ' ';
  vr->TypeCode = MakeTypeCode('A', 'E');
  if (dataSet->Push(vr.get())) vr.release();
}

// Each worker thread serves one association and keeps its own connection to the image
// database for it; it closes when the thread ends.
thread_local std::unique_ptr<CDatabase> workerDatabase;

CDatabase* WorkerDatabase(const std::string& connect, std::string* error) {
  if (workerDatabase && workerDatabase->IsOpen()) return workerDatabase.get();
  workerDatabase = std::make_unique<CDatabase>();
  try {
    workerDatabase->Open(connect);
  } catch (const CDBException& e) {
    *error = e.GetErrorMessage();
    workerDatabase.reset();
    return nullptr;
  }
  return workerDatabase.get();
}

StoreResult Store(Dispatcher& dispatcher, PDU_Service& pdu, DICOMDataObject* dataSet) {
  const ServeSettings& settings = dispatcher.Settings();
  std::string error;
  CDatabase* database = WorkerDatabase(settings.dbConnect, &error);
  if (!database) {
    StoreResult result;
    result.status = DIMSEStatus::kOutOfResources;
    result.comment = "The image database cannot be reached";
    result.detail = error;
    return result;
  }
  NameSender(pdu, dataSet);
  VR* instance = dataSet->Find(0x0008, 0x0018);
  const std::string name =
      instance && instance->Data
          ? std::string(static_cast<const char*>(instance->Data),
                        strnlen(static_cast<const char*>(instance->Data), instance->Length))
          : std::string();
  // Two peers sending the same instance at once take turns.
  dispatcher.LockName(name);
  StoreResult result = StoreObject(dataSet, ReceivedSyntax(pdu), settings.storeDir, *database,
                                   SetAside::kImagesWithoutPixels);
  dispatcher.UnlockName(name);
  // A connection that failed may be broken: the next object gets a fresh one.
  if (result.outcome == StoreOutcome::kFailed) workerDatabase.reset();
  return result;
}

}  // namespace

void AddStoreHandler(Dispatcher& dispatcher) {
  dispatcher.Add(
      CStoreRQ::kCommandField, [&dispatcher](PDU_Service& pdu, DICOMCommandObject* request) {
        DICOMDataObject dataSet;
        if (!CStoreRQ::Read(request, &pdu, &dataSet)) return false;  // the peer went away
        const uint64_t bytes = dataSet.Length;
        StoreResult result = Store(dispatcher, pdu, &dataSet);
        ServeCounters& counters = dispatcher.Counters();
        if (result.outcome == StoreOutcome::kStored) {
          ++counters.stored;
          counters.bytes += bytes;
        } else {
          ++counters.failed;
          std::fprintf(stderr, "kestrel serve: C-STORE from %s failed (status %04X): %s%s%s\n",
                       pdu.GetCallingAETitle().c_str(), result.status, result.comment.c_str(),
                       result.detail.empty() ? "" : ": ", result.detail.c_str());
        }
        return CStoreRSP::Write(&pdu, request, result.status, result.comment) != 0;
      });
}
