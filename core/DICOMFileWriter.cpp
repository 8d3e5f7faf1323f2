#include "kestrel/DICOMFileWriter.h"

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <system_error>

#include "File.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t kPreambleLength = 128;
constexpr int kModeExplicitLittle = 101;
constexpr uint16_t kTypeUI = MakeTypeCode('U', 'I');
// The stream's buffer: a network data set arrives in fragments of a few KB, which reach the
// file in writes of this size.
constexpr size_t kBufferSize = 256 * 1024;
constexpr char kSuffix[] = ".partial";
// "<16 hex digits>-<number>.partial": a name only this writer makes.
constexpr size_t kTagLength = 16;

std::string UniqueName() {
  static const uint64_t process = (uint64_t{std::random_device{}()} << 32) | std::random_device{}();
  static std::atomic<uint64_t> next{0};
  char name[64];
  std::snprintf(name, sizeof name, "%016llx-%llu%s", static_cast<unsigned long long>(process),
                static_cast<unsigned long long>(next++), kSuffix);
  return name;
}

bool IsWriterName(const std::string& name) {
  const size_t suffix = sizeof kSuffix - 1;
  if (name.size() < kTagLength + 2 + suffix || name.compare(name.size() - suffix, suffix, kSuffix))
    return false;
  for (size_t i = 0; i < name.size() - suffix; ++i) {
    const char c = name[i];
    const bool ok = i < kTagLength    ? std::isxdigit(static_cast<unsigned char>(c)) != 0
                    : i == kTagLength ? c == '-'
                                      : c >= '0' && c <= '9';
    if (!ok) return false;
  }
  return true;
}

// A UI element holding `text`, for the meta group AddFileMeta builds from it.
bool PushUID(DICOMObject& object, uint16_t element, const std::string& text) {
  auto* vr = new (std::nothrow) VR(0x0008, element, static_cast<uint32_t>(text.size()), true);
  if (!vr || (!text.empty() && !vr->Data)) {
    delete vr;
    return false;
  }
  if (!text.empty()) std::memcpy(vr->Data, text.data(), text.size());
  vr->TypeCode = kTypeUI;
  if (object.Push(vr)) return true;
  delete vr;
  return false;
}

// Makes the missing directories of `directory` from the top down; with `sync` each one made
// is flushed into its parent.
bool MakeDirectories(const fs::path& directory, bool sync) {
  std::error_code error;
  if (directory.empty() || fs::is_directory(directory, error)) return true;
  if (!MakeDirectories(directory.parent_path(), sync)) return false;
  if (!fs::create_directory(directory, error) && !fs::is_directory(directory)) {
    errno = error.value();
    return false;
  }
  const std::string parent = directory.has_parent_path() ? directory.parent_path().string() : ".";
  return !sync || KESTREL::GetFileOperations().syncDirectory(parent.c_str()) == 0;
}

}  // namespace

struct DICOMFileWriter::State {
  std::unique_ptr<char[]> buffer;  // the stream's; outlives it
  std::unique_ptr<KESTREL::File> file;
  std::string path;
  uint64_t bytes = 0;
  uint64_t behind = 0;  // WriteBehind: the data set bytes handed to the disk so far,
  off_t behindAt = 0;   // and where they end in the file
  bool writeBehind = false;
  int error = 0;
  bool failed = false;
};

DICOMFileWriter::DICOMFileWriter() : state_(std::make_unique<State>()) {}

DICOMFileWriter::~DICOMFileWriter() { Discard(); }

bool DICOMFileWriter::Fail(int error) {
  if (!state_->failed) state_->error = error ? error : EIO;
  state_->failed = true;
  return false;
}

bool DICOMFileWriter::Open(const std::string& directory, DICOMCodec& codec,
                           const std::string& sopClass, const std::string& sopInstance,
                           const std::string& transferSyntax) {
  Discard();
  State& state = *state_;
  state.failed = false;
  state.error = 0;
  state.bytes = 0;
  state.behind = 0;
  state.behindAt = 0;
  const std::string path = directory + "/" + UniqueName();
  errno = 0;
  state.file = std::make_unique<KESTREL::File>(path.c_str(), "wbx");  // never another's file
  if (!*state.file) {
    state.file.reset();
    return Fail(errno);
  }
  state.path = path;
  if (!KESTREL::TryLock(state.file->get())) {
    Fail(errno);
    Discard();
    return false;
  }
  if (!state.buffer) state.buffer.reset(new char[kBufferSize]);
  std::setvbuf(state.file->get(), state.buffer.get(), _IOFBF, kBufferSize);
  if (!WriteHead(codec, sopClass, sopInstance, transferSyntax)) {
    Discard();
    return false;
  }
  state.bytes = 0;
  return true;
}

bool DICOMFileWriter::WriteHead(DICOMCodec& codec, const std::string& sopClass,
                                const std::string& sopInstance, const std::string& transferSyntax) {
  DICOMDataObject object, meta;
  if (!PushUID(object, 0x0016, sopClass) || !PushUID(object, 0x0018, sopInstance) ||
      !codec.AddFileMeta(&object, transferSyntax.c_str()))
    return Fail(ENOMEM);
  // Only group 0002 is written; its group length is computed again when it is encoded.
  while (VR* element = object.Pop()) {
    if (element->Group != 2 || element->Element == 0 || !meta.Push(element)) delete element;
  }
  ByteBuffer head;
  head.WriteZeros(kPreambleLength);
  head.WriteBytes("DICM", 4);
  if (!codec.Encode(&meta, head, kModeExplicitLittle, false)) return Fail(EINVAL);
  return Write(head.Data(), head.Size());
}

void DICOMFileWriter::WriteBehind(bool on) { state_->writeBehind = on; }

bool DICOMFileWriter::Write(const void* data, size_t length) {
  State& state = *state_;
  if (state.failed || !state.file) return false;
  errno = 0;
  if (!state.file->Write(data, length)) return Fail(errno);
  state.bytes += length;
  if (state.writeBehind && state.bytes - state.behind >= kBufferSize) {
    // Starts the disk writing what the file holds, without waiting for it: the received bytes
    // go to the disk while the next ones arrive.
    if (std::fflush(state.file->get()) != 0) return Fail(errno);
    const off_t end = ftello(state.file->get());
#ifdef SYNC_FILE_RANGE_WRITE
    if (end > state.behindAt)
      (void)sync_file_range(fileno(state.file->get()), state.behindAt, end - state.behindAt,
                            SYNC_FILE_RANGE_WRITE);
#endif
    state.behindAt = std::max<off_t>(end, 0);
    state.behind = state.bytes;
  }
  return true;
}

bool DICOMFileWriter::Flush() {
  if (state_->failed || !state_->file) return false;
  if (std::fflush(state_->file->get()) != 0) return Fail(errno);
  return true;
}

bool DICOMFileWriter::Commit(const std::string& target, bool sync) {
  State& state = *state_;
  const KESTREL::FileOperations& files = KESTREL::GetFileOperations();
  const fs::path directory = fs::path(target).parent_path();
  errno = 0;
  bool ok = !state.failed && state.file && MakeDirectories(directory, sync);
  if (ok && sync) ok = files.sync(state.file->get()) == 0;
  if (ok && !sync) ok = std::fflush(state.file->get()) == 0;
  // Renamed while still open, and so still locked: a sweep cannot take it in between.
  if (ok) ok = files.rename(state.path.c_str(), target.c_str()) == 0;
  if (!ok) {
    Fail(errno);
    Discard();
    return false;
  }
  state.path.clear();
  const std::string parent = directory.empty() ? std::string(".") : directory.string();
  const bool closed = state.file->Close();
  state.file.reset();
  if (!closed || (sync && files.syncDirectory(parent.c_str()) != 0)) {
    // In place, but perhaps not whole on the disk: not kept.
    Fail(errno);
    files.remove(target.c_str());
    return false;
  }
  return true;
}

void DICOMFileWriter::Discard() {
  State& state = *state_;
  if (state.file) (void)state.file->Close();
  state.file.reset();
  if (!state.path.empty()) KESTREL::GetFileOperations().remove(state.path.c_str());
  state.path.clear();
}

const std::string& DICOMFileWriter::GetPath() const { return state_->path; }
uint64_t DICOMFileWriter::GetDataSetBytes() const { return state_->bytes; }
bool DICOMFileWriter::Failed() const { return state_->failed; }
int DICOMFileWriter::GetError() const { return state_->error; }

int DICOMFileWriter::RemoveStale(const std::string& directory) {
  std::error_code error;
  int removed = 0;
  for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error)) {
    if (!IsWriterName(it->path().filename().string())) continue;
    const std::string path = it->path().string();
    KESTREL::File file(path.c_str(), "rb");
    // A live writer holds its lock until its file is renamed or removed.
    if (file && KESTREL::TryLock(file.get()) &&
        KESTREL::GetFileOperations().remove(path.c_str()) == 0)
      ++removed;
  }
  return removed;
}
