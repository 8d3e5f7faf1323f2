// The C-STORE handler of `kestrel serve`. The data set goes to a file of the store's incoming
// folder as it arrives (nothing of it is held whole in memory, whatever its size); once it is
// all there, it is decoded without its large values (from its first bytes, kept as they went
// by, and the file for anything beyond them), checked against the request, moved into the
// store and indexed in the image database. The response says Success only when
// the file (flushed to the disk, unless --no-sync) and its four rows are there, and otherwise
// carries a failure status with an Error Comment (0000,0902) saying why.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "ServeDispatcher.h"
#include "StoreObject.h"
#include "kestrel/CDBException.h"
#include "kestrel/CDatabase.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMFileWriter.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/PresentationContext.h"

namespace {

// C-STORE statuses, PS3.4 Table B.2-1.
constexpr uint16_t kOutOfResources = 0xA700;
constexpr uint16_t kDataSetDoesNotMatch = 0xA900;
constexpr uint16_t kCannotUnderstand = 0xC000;
constexpr uint16_t kNoDataSet = 0x0101;

// What decoding the received data set may hold: values up to 64 KiB (pixels and other bulk
// are passed over) and 16 MiB in all; the index needs only the leading attributes.
constexpr uint32_t kHeldValue = 64 * 1024;
constexpr uint64_t kHeldInAll = 16 << 20;
// The leading bytes of a data set kept in memory as they go to the file: enough for the
// attributes before the pixels of any ordinary image.
constexpr size_t kKeptHead = 64 * 1024;

// The folder of the store where files are written while their data sets arrive.
std::string IncomingFolder(const std::string& storeDir) { return storeDir + "/.incoming"; }
std::string IncomingFolder(const ServeSettings& settings) {
  return IncomingFolder(settings.storeDir);
}

StoreResult Refusal(uint16_t status, std::string comment, std::string detail = std::string()) {
  StoreResult result;
  result.outcome = status == kOutOfResources ? StoreOutcome::kFailed : StoreOutcome::kRefused;
  result.status = status;
  result.comment = comment.substr(0, 64);
  result.detail = std::move(detail);
  return result;
}

// Writes a file's meta group as a store does: the sender as its Source Application Entity
// Title (PS3.10 7.1), as DCMTK's storescp does.
class SenderCodec : public DICOMCodec {
 public:
  explicit SenderCodec(std::string sender) : sender_(std::move(sender)) {}
  std::string GetLocalAETitle() const override { return sender_; }

 private:
  std::string sender_;
};

// Hands a data set's bytes to its file (or drops them when it is not kept), keeping its first
// kKeptHead bytes: a data set holding file meta information (group 0002) would give a file
// two, and the attributes to check and index are decoded from them.
class DataSetSink : public ByteBuffer::Sink {
 public:
  explicit DataSetSink(ByteBuffer::Sink* file) : file_(file) {}
  bool Write(const void* data, size_t length) override {
    if (head_.size() < kKeptHead) {
      const auto* bytes = static_cast<const uint8_t*>(data);
      head_.insert(head_.end(), bytes, bytes + std::min(length, kKeptHead - head_.size()));
    }
    return !file_ || file_->Write(data, length);
  }
  std::vector<uint8_t> TakeHead() { return std::move(head_); }

 private:
  ByteBuffer::Sink* file_;
  std::vector<uint8_t> head_;
};

// Whether a data set whose first bytes are `head` starts with group 0002.
bool StartsWithMeta(const std::vector<uint8_t>& head, const UID& syntax) {
  const bool big = syntax == UID("1.2.840.10008.1.2.2");
  return head.size() >= 2 && head[big ? 1 : 0] == 2 && head[big ? 0 : 1] == 0;
}

// A received data set of `size` bytes: its kept head from memory, the rest from the end of
// the file it was written to (opened only when decoding reads that far).
class ReceivedDataSet : public ByteBuffer::Source {
 public:
  ReceivedDataSet(std::vector<uint8_t> head, std::string path, uint64_t size)
      : head_(std::move(head)), path_(std::move(path)), size_(size) {}
  size_t Read(void* data, size_t length) override {
    length = static_cast<size_t>(std::min<uint64_t>(length, Remaining()));
    if (position_ < head_.size()) {
      length = std::min<size_t>(length, head_.size() - position_);
      std::memcpy(data, head_.data() + position_, length);
    } else if (length && (!Seek() || std::fread(data, 1, length, file_.get()) != length)) {
      return 0;
    }
    position_ += length;
    return length;
  }
  uint64_t Remaining() override { return size_ - position_; }
  bool Skip(uint64_t length) override {
    if (length > Remaining()) return false;
    position_ += length;
    sought_ = false;
    return true;
  }

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  // Puts the file at the data set's byte position_: the data set ends the file.
  bool Seek() {
    if (sought_) return true;
    if (!file_) file_.reset(std::fopen(path_.c_str(), "rb"));
    long fileSize = -1;
    if (file_ && std::fseek(file_.get(), 0, SEEK_END) == 0) fileSize = std::ftell(file_.get());
    if (fileSize < 0 || static_cast<uint64_t>(fileSize) < size_) return false;
    const uint64_t at = static_cast<uint64_t>(fileSize) - size_ + position_;
    sought_ = std::fseek(file_.get(), static_cast<long>(at), SEEK_SET) == 0;
    return sought_;
  }

  std::vector<uint8_t> head_;
  std::string path_;
  uint64_t size_;
  uint64_t position_ = 0;
  std::unique_ptr<std::FILE, Closer> file_;
  bool sought_ = false;
};

// Each worker thread serves one association and keeps its own connection to the image
// database for it; it closes when the thread ends.
thread_local std::unique_ptr<CDatabase> workerDatabase;

CDatabase* WorkerDatabase(const ServeSettings& settings, std::string* error) {
  if (workerDatabase && workerDatabase->IsOpen()) return workerDatabase.get();
  workerDatabase = std::make_unique<CDatabase>();
  try {
    workerDatabase->Open(settings.dbConnect);
    // SQLite's driver commits with synchronous=NORMAL, which a power loss may undo in WAL mode.
    if (workerDatabase->GetDBMSName() == "SQLite")
      workerDatabase->ExecuteSQL(settings.sync ? "PRAGMA synchronous = FULL"
                                               : "PRAGMA synchronous = OFF");
  } catch (const CDBException& e) {
    *error = e.GetErrorMessage();
    workerDatabase.reset();
    return nullptr;
  }
  return workerDatabase.get();
}

// One C-STORE being received: the request's SOP class and instance, the file its data set
// goes to, and why it cannot be stored when that is known already.
struct Incoming {
  std::string sopClass, sopInstance;
  UID syntax;
  DICOMFileWriter file;
  std::vector<uint8_t> head;  // the data set's first kKeptHead bytes
  StoreResult refusal;        // status 0: none
  uint64_t bytes = 0;
};

// The request must name a class and an instance, each a UID, and carry a data set.
void CheckRequest(DICOMCommandObject* request, Incoming& in) {
  if (request->GetUInt16(0x0000, 0x0800) == kNoDataSet)
    in.refusal = Refusal(kCannotUnderstand, "The request carries no data set");
  else if (!UIDValue(request->Find(0x0000, 0x0002), &in.sopClass))
    in.refusal = Refusal(kDataSetDoesNotMatch, "Invalid Affected SOP Class UID");
  else if (!UIDValue(request->Find(0x0000, 0x1000), &in.sopInstance))
    in.refusal = Refusal(kDataSetDoesNotMatch, "Invalid Affected SOP Instance UID");
}

// Reads the data set into a new file of the incoming folder (or drops it when the request is
// refused already); false when the association broke.
bool Receive(const ServeSettings& settings, PDU_Service& pdu, DICOMCommandObject* request,
             Incoming& in) {
  CheckRequest(request, in);
  if (in.refusal.status == kCannotUnderstand) return true;  // nothing follows the request
  const PresentationContext* context = pdu.FindAcceptedContext(pdu.GetLastPresentationContextID());
  const std::string syntax = context && !context->TransferSyntaxes.empty()
                                 ? context->TransferSyntaxes[0].ToString()
                                 : std::string("1.2.840.10008.1.2");
  SenderCodec codec(pdu.GetCallingAETitle());
  if (!in.refusal.status &&
      !in.file.Open(IncomingFolder(settings), codec, in.sopClass, in.sopInstance, syntax))
    in.refusal = Refusal(kOutOfResources, "Could not write the image file",
                         std::strerror(in.file.GetError()));
  in.file.WriteBehind(settings.sync);
  DataSetSink sink(in.refusal.status ? nullptr : &in.file);
  if (!pdu.ReadInto(sink, in.syntax)) return false;
  in.bytes = in.file.GetDataSetBytes();
  if (in.refusal.status) return true;
  in.head = sink.TakeHead();
  if (in.file.Failed() || !in.file.Flush())
    in.refusal = Refusal(kOutOfResources, "Could not write the image file",
                         std::strerror(in.file.GetError()));
  else if (StartsWithMeta(in.head, in.syntax))
    in.refusal = Refusal(kCannotUnderstand, "The data set holds file meta information");
  return true;
}

// The received data set without its large values, checked against the request.
std::unique_ptr<DICOMDataObject> DecodeReceived(Incoming& in) {
  DICOMCodec reader;
  reader.SetHoldLimits(kHeldValue, kHeldInAll);
  const int mode = DICOMCodec::TransferSyntaxMode(in.syntax.GetBuffer());
  ReceivedDataSet source(std::move(in.head), in.file.GetPath(), in.bytes);
  ByteBuffer buffer;
  buffer.AttachSource(&source);
  auto header = std::make_unique<DICOMDataObject>();
  if (!mode || !reader.Decode(buffer, header.get(), mode) || buffer.HasBytes()) {
    in.refusal = Refusal(kCannotUnderstand, "The data set cannot be read");
    return nullptr;
  }
  const VR* sopClass = header->Find(0x0008, 0x0016);
  const VR* sopInstance = header->Find(0x0008, 0x0018);
  std::string classUID, instanceUID;
  if (sopClass && !UIDValue(sopClass, &classUID))
    in.refusal = Refusal(kDataSetDoesNotMatch, "Invalid SOP Class UID", "not a UID: " + classUID);
  else if (sopInstance && !UIDValue(sopInstance, &instanceUID))
    in.refusal =
        Refusal(kDataSetDoesNotMatch, "Invalid SOP Instance UID", "not a UID: " + instanceUID);
  else if (sopClass && classUID != in.sopClass)
    in.refusal = Refusal(kDataSetDoesNotMatch, "SOP Class UID differs from the request's");
  else if (sopInstance && instanceUID != in.sopInstance)
    in.refusal = Refusal(kDataSetDoesNotMatch, "SOP Instance UID differs from the request's");
  return header;
}

StoreResult Keep(Dispatcher& dispatcher, Incoming& in) {
  const ServeSettings& settings = dispatcher.Settings();
  std::unique_ptr<DICOMDataObject> header = DecodeReceived(in);
  if (in.refusal.status) return in.refusal;
  std::string error;
  CDatabase* database = WorkerDatabase(settings, &error);
  if (!database) return Refusal(kOutOfResources, "The image database cannot be reached", error);
  // Two peers sending the same instance at once take turns.
  dispatcher.LockName(in.sopInstance);
  StoreResult result = StoreWrittenFile(in.file, header.get(), in.syntax.ToString(),
                                        settings.storeDir, *database, settings.sync);
  dispatcher.UnlockName(in.sopInstance);
  // A connection that failed may be broken: the next object gets a fresh one.
  if (result.outcome == StoreOutcome::kFailed) workerDatabase.reset();
  return result;
}

void Count(Dispatcher& dispatcher, PDU_Service& pdu, const Incoming& in,
           const StoreResult& result) {
  ServeCounters& counters = dispatcher.Counters();
  if (result.outcome == StoreOutcome::kStored) {
    ++counters.stored;
    counters.bytes += in.bytes;
    return;
  }
  ++counters.failed;
  std::fprintf(stderr, "kestrel serve: C-STORE of %s from %s failed (status %04X): %s%s%s\n",
               Printable(in.sopInstance).c_str(), Printable(pdu.GetCallingAETitle()).c_str(),
               result.status, result.comment.c_str(), result.detail.empty() ? "" : ": ",
               Printable(result.detail).c_str());
}

bool AnswerStore(Dispatcher& dispatcher, PDU_Service& pdu, DICOMCommandObject* request) {
  Incoming in;
  if (!Receive(dispatcher.Settings(), pdu, request, in)) return false;  // the peer went away
  StoreResult result = in.refusal.status ? in.refusal : Keep(dispatcher, in);
  Count(dispatcher, pdu, in, result);
  return CStoreRSP::Write(&pdu, request, result.status, result.comment) != 0;
}

}  // namespace

void AddStoreHandler(Dispatcher& dispatcher) {
  dispatcher.Add(CStoreRQ::kCommandField,
                 [&dispatcher](PDU_Service& pdu, DICOMCommandObject* request) {
                   return AnswerStore(dispatcher, pdu, request);
                 });
}

bool PrepareIncoming(const std::string& storeDir, int* removed) {
  const std::string incoming = IncomingFolder(storeDir);
  std::error_code error;
  std::filesystem::create_directories(incoming, error);
  if (!std::filesystem::is_directory(incoming)) return false;
  const int stale = DICOMFileWriter::RemoveStale(incoming);
  if (removed) *removed = stale;
  return true;
}
