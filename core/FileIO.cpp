// DICOM files: reading with or without preamble, writing with a file meta group of our own.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "File.h"
#include "TransferSyntax.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/FileMapping.h"

namespace {

constexpr uint16_t kTypeOB = MakeTypeCode('O', 'B');
constexpr uint16_t kTypeUI = MakeTypeCode('U', 'I');
constexpr uint16_t kTypeSH = MakeTypeCode('S', 'H');
constexpr uint16_t kTypeAE = MakeTypeCode('A', 'E');
constexpr size_t kPreambleLength = 128;
// Output is handed to the file in blocks of this size; larger values are written directly.
// Kept below the allocator's mmap threshold, so that writing many files reuses heap memory
// instead of mapping (and faulting in) a fresh megabyte for each.
constexpr size_t kWriteBlock = 64 * 1024;

// The old transfer syntaxes a rewritten file keeps: the compressed ones, whose pixel data can
// only be written as it was read, and big endian.
constexpr const char* kKeptSyntaxes[] = {
    "1.2.840.10008.1.2.4.70", "1.2.840.10008.1.2.4.50", "1.2.840.10008.1.2.4.51",
    "1.2.840.10008.1.2.5",    "1.2.840.10008.1.2.4.90", "1.2.840.10008.1.2.4.91",
    "1.2.840.10008.1.2.2",
};

// Reads a file from a given offset on demand.
class FileSource : public ByteBuffer::Source {
 public:
  FileSource(std::FILE* file, uint64_t size, uint64_t position)
      : file_(file), size_(size), position_(position) {}
  size_t Read(void* data, size_t length) override {
    length = static_cast<size_t>(std::min<uint64_t>(length, Remaining()));
    size_t got = length ? std::fread(data, 1, length, file_) : 0;
    position_ += got;
    return got;
  }
  uint64_t Remaining() override { return position_ < size_ ? size_ - position_ : 0; }
  bool Skip(uint64_t length) override {
    if (length > Remaining()) return false;
    if (std::fseek(file_, static_cast<long>(position_ + length), SEEK_SET) != 0) return false;
    position_ += length;
    return true;
  }

 private:
  std::FILE* file_;
  uint64_t size_;
  uint64_t position_;
};

// Reads a mapped file, and tells where its bytes lie so that large values can stay there.
class MappedSource : public ByteBuffer::Source {
 public:
  MappedSource(uint8_t* data, uint64_t size, uint64_t position)
      : data_(data), size_(size), position_(position) {}
  size_t Read(void* data, size_t length) override {
    length = static_cast<size_t>(std::min<uint64_t>(length, Remaining()));
    if (length) std::memcpy(data, data_ + position_, length);
    position_ += length;
    return length;
  }
  uint64_t Remaining() override { return size_ - position_; }
  bool Skip(uint64_t length) override {
    if (length > Remaining()) return false;
    position_ += length;
    return true;
  }
  uint8_t* MappedAt(uint64_t back) override {
    return back <= position_ ? data_ + position_ - back : nullptr;
  }

 private:
  uint8_t* data_;
  uint64_t size_;
  uint64_t position_;
};

// Values at least this long stay in a mapped file rather than being copied out of it.
constexpr uint32_t kBorrowedValue = 64 * 1024;

class FileSink : public ByteBuffer::Sink {
 public:
  FileSink(KESTREL::File& file, const FileMapping* copySource)
      : file_(file), copySource_(copySource) {}
  bool Write(const void* data, size_t length) override {
    const auto* bytes = static_cast<const uint8_t*>(data);
    uint64_t offset = 0;
    if (length >= kPiece && copySource_ && copySource_->OffsetOf(data, length, &offset)) {
      const size_t copied = Copy(offset, length);
      if (copied == kFailed) return false;
      bytes += copied;
      length -= copied;
    }
    // A large value goes in pieces of 1 MiB: the system took about a tenth longer over one
    // write of 419 MB from a mapping than over the same bytes in pieces.
    while (length > kPiece) {
      if (!file_.Write(bytes, kPiece)) return false;
      bytes += kPiece;
      length -= kPiece;
    }
    return file_.Write(bytes, length);
  }

 private:
  static constexpr size_t kPiece = 1 << 20;
  static constexpr size_t kFailed = SIZE_MAX;

  // Copies `length` bytes of the source file from `offset` to the end of this one: how many
  // were copied, less than `length` when the system cannot copy between these files (the
  // rest is then written from memory), or kFailed.
  size_t Copy(uint64_t offset, size_t length) {
    const int target = fileno(file_.get());
    size_t done = 0;
    while (done < length) {
      loff_t from = static_cast<loff_t>(offset + done);
      const ssize_t n =
          copy_file_range(copySource_->GetHandle(), &from, target, nullptr, length - done, 0);
      if (n > 0) {
        done += static_cast<size_t>(n);
      } else if (n < 0 && errno == EINTR) {
        continue;
      } else if (n < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS ||
                           errno == EOPNOTSUPP || errno == EBADF)) {
        return done;
      } else {
        if (n == 0) errno = EIO;  // the source file was cut short
        return kFailed;
      }
    }
    return done;
  }

  KESTREL::File& file_;
  const FileMapping* copySource_;
};

// A new element holding a copy of `length` bytes, rounded up to even with a zero byte.
VR* TextElement(uint16_t element, const void* data, uint32_t length, uint16_t typeCode) {
  auto* vr = new (std::nothrow) VR(2, element, length, true);
  if (!vr) return nullptr;
  if (length && !vr->Data) {
    delete vr;
    return nullptr;
  }
  if (length) std::memcpy(vr->Data, data, length);
  vr->TypeCode = typeCode;
  return vr;
}

bool PushOrDrop(DICOMObject* object, VR* element) {
  if (!element) return false;
  if (object->Push(element)) return true;
  delete element;
  return false;
}

// Whether an old (0002,0010) is one of the syntaxes kept: its value up to the padding NUL must
// be the UID exactly (a trailing blank is not forgiven here).
const char* KeptSyntax(const VR* element) {
  if (!element->Data) return nullptr;
  const char* data = static_cast<const char*>(element->Data);
  std::string value(data, strnlen(data, element->Length));
  for (const char* uid : kKeptSyntaxes) {
    if (value == uid) return uid;
  }
  return nullptr;
}

// Groups 0000 and 0001 have no place in a data set, but they do occur in files; in tag order
// they would come before the meta group, where no reader looks for them.
bool HasGroupBelowMeta(DICOMObject* object) {
  for (uint32_t i = 0; i < object->Groups.GetSize(); ++i) {
    VRGroupPQueue* group = object->Groups.Get(i);
    if (group && group->Group < 2) return true;
  }
  return false;
}

}  // namespace

// Writes the meta group, then everything else, groups 0000 and 0001 included, in the mode of
// the meta group's transfer syntax.
bool DICOMCodec::EncodeMetaFirst(DICOMObject* object, ByteBuffer& buffer, int metaMode) {
  DICOMDataObject meta, rest;
  int dataMode = kModeImplicitLittle;
  while (VR* element = object->Pop()) {
    if (element->Group == 2 && element->Element == 0x0010)
      dataMode = ModeOfTransferSyntax(TransferSyntaxText(element).c_str());
    DICOMObject* target = element->Group == 2 ? static_cast<DICOMObject*>(&meta) : &rest;
    if (element->Element == 0 && element->Group == 2) {
      delete element;  // recomputed when the meta group is popped
      continue;
    }
    if (!target->Push(element)) delete element;
  }
  if (!dataMode) return false;
  return Encode(&meta, buffer, metaMode, false) && Encode(&rest, buffer, dataMode, false);
}

namespace {

// The mode of a file's data set, from the bytes after its preamble: the sixth byte is the
// second VR letter of an explicit stream, or the second byte of the 32-bit length of an
// implicit one. Without a meta group a big endian stream shows its group number high byte
// first: (0008,xxxx) reads as group 0x0800 in little endian.
int ModeOfHead(const uint8_t head[6], bool hasPreamble) {
  if (head[5] < 11) return kModeImplicitLittle;
  if (!hasPreamble && head[0] == 0 && head[1] != 0 && head[4] >= 'A' && head[4] <= 'Z')
    return kModeExplicitBig;
  return kModeExplicitLittle;
}

// Why a decode that stopped early stopped: a transfer syntax the codec cannot read, or damage.
FileReadResult WhyIncomplete(DICOMDataObject* object) {
  VR* syntax = object->Find(0x0002, 0x0010);
  if (syntax && !ModeOfTransferSyntax(TransferSyntaxText(syntax).c_str()))
    return FileReadResult::kUnknownSyntax;
  return object->Groups.GetSize() == 0 ? FileReadResult::kNotDICOM : FileReadResult::kDamaged;
}

}  // namespace

DICOMDataObject* DICOMCodec::LoadFile(const char* path) { return LoadFile(path, nullptr); }

DICOMDataObject* DICOMCodec::LoadFile(const char* path, FileReadResult* result, int* error) {
  return ReadFile(path, UINT64_MAX, result, error);
}

DICOMDataObject* DICOMCodec::LoadFileHead(const char* path, uint32_t bytes) {
  return ReadFile(path, bytes, nullptr, nullptr);
}

DICOMDataObject* DICOMCodec::ReadFile(const char* path, uint64_t limit, FileReadResult* result,
                                      int* error) {
  lastLoadComplete_ = false;
  FileReadResult ignored;
  if (!result) result = &ignored;
  *result = FileReadResult::kCannotOpen;
  if (error) *error = 0;
  KESTREL::File file(path ? path : "", "rb");
  long size = -1;
  if (file && std::fseek(file.get(), 0, SEEK_END) == 0) size = std::ftell(file.get());
  if (size < 0) {
    if (error) *error = errno;
    return nullptr;
  }
  std::setvbuf(file.get(), nullptr, _IONBF, 0);
  uint64_t start = 0;
  char magic[4];
  if (std::fseek(file.get(), kPreambleLength, SEEK_SET) == 0 &&
      std::fread(magic, 1, 4, file.get()) == 4 && std::memcmp(magic, "DICM", 4) == 0)
    start = kPreambleLength + 4;
  uint8_t head[6] = {};
  int mode = kModeImplicitLittle;
  if (std::fseek(file.get(), static_cast<long>(start), SEEK_SET) == 0 &&
      std::fread(head, 1, 6, file.get()) == 6)
    mode = ModeOfHead(head, start != 0);
  if (std::fseek(file.get(), static_cast<long>(start), SEEK_SET) != 0) return nullptr;

  auto* object = new (std::nothrow) DICOMDataObject;
  if (!object) return nullptr;
  // A head read stops `limit` bytes into the data: what lies beyond is not even looked at.
  uint64_t end = static_cast<uint64_t>(size);
  if (limit < end - start) end = start + limit;
  FileSource source(file.get(), end, start);
  ByteBuffer buffer;
  buffer.AttachSource(&source);
  bool decoded = Decode(buffer, object, mode);
  lastLoadComplete_ = decoded && !buffer.HasBytes() && end == static_cast<uint64_t>(size);
  *result = lastLoadComplete_ ? FileReadResult::kComplete : WhyIncomplete(object);
  return object;
}

DICOMDataObject* DICOMCodec::LoadMapped(const FileMapping& file, FileReadResult* result) {
  lastLoadComplete_ = false;
  FileReadResult ignored;
  if (!result) result = &ignored;
  *result = FileReadResult::kCannotOpen;
  uint8_t* data = file.Data();
  const uint64_t size = file.Size();
  if (!data) return nullptr;
  uint64_t start = 0;
  if (size >= kPreambleLength + 4 && std::memcmp(data + kPreambleLength, "DICM", 4) == 0)
    start = kPreambleLength + 4;
  int mode = size - start >= 6 ? ModeOfHead(data + start, start != 0) : kModeImplicitLittle;
  auto* object = new (std::nothrow) DICOMDataObject;
  if (!object) return nullptr;
  MappedSource source(data, size, start);
  ByteBuffer buffer;
  buffer.AttachSource(&source);
  borrowFrom_ = kBorrowedValue;
  bool decoded = Decode(buffer, object, mode);
  borrowFrom_ = 0;
  lastLoadComplete_ = decoded && !buffer.HasBytes();
  *result = lastLoadComplete_ ? FileReadResult::kComplete : WhyIncomplete(object);
  return object;
}

bool DICOMCodec::AddFileMeta(DICOMObject* object, const char* transferSyntaxUID) {
  if (!object) return false;
  std::string implementationClass, implementationVersion;
  GetImplementationClass(implementationClass);
  GetImplementationVersion(implementationVersion);
  std::string localAE = GetLocalAETitle();

  // Everything but group 0002 goes through a second object and back, which also drops the
  // group length elements.
  const char* oldSyntax = nullptr;
  DICOMDataObject kept;
  while (VR* element = object->Pop()) {
    if (element->Group == 2) {
      if (element->Element == 0x0010) oldSyntax = KeptSyntax(element);
      delete element;
      continue;
    }
    if (!kept.Push(element)) delete element;
  }
  while (VR* element = kept.Pop()) {
    if (!object->Push(element)) delete element;
  }
  if (object->Find(2, 1)) return true;

  const char* syntax = "1.2.840.10008.1.2";
  if (transferSyntaxUID && *transferSyntaxUID)
    syntax = transferSyntaxUID;
  else if (oldSyntax)
    syntax = oldSyntax;

  static const uint8_t kVersion[2] = {0x01, 0x00};
  bool ok = PushOrDrop(object, TextElement(0x0001, kVersion, 2, kTypeOB));
  if (VR* sopClass = object->Find(8, 0x0016))
    ok &= PushOrDrop(object, TextElement(0x0002, sopClass->Data, sopClass->Length, kTypeUI));
  if (VR* sopInstance = object->Find(8, 0x0018))
    ok &= PushOrDrop(object, TextElement(0x0003, sopInstance->Data, sopInstance->Length, kTypeUI));
  ok &= PushOrDrop(object, TextElement(0x0010, syntax, std::strlen(syntax), kTypeUI));
  ok &= PushOrDrop(
      object, TextElement(0x0012, implementationClass.data(), implementationClass.size(), kTypeUI));
  ok &= PushOrDrop(object, TextElement(0x0013, implementationVersion.data(),
                                       implementationVersion.size(), kTypeSH));
  ok &= PushOrDrop(object, TextElement(0x0016, localAE.data(), localAE.size(), kTypeAE));
  return ok;
}

bool DICOMCodec::SaveFile(const char* path, int form, DICOMObject* object,
                          const char* transferSyntaxUID) {
  if (!path || !object || form < 1 || form > 3) return false;
  // Written beside the target and renamed into place, so that a failed write never leaves a
  // half-written file under the name a reader expects.
  const KESTREL::FileOperations& files = KESTREL::GetFileOperations();
  std::string partial = std::string(path) + ".partial";
  KESTREL::File file(partial.c_str(), "wb");
  if (!file) return false;
  std::setvbuf(file.get(), nullptr, _IONBF, 0);
  FileSink sink(file, copySource_);
  ByteBuffer buffer;
  buffer.AttachSink(&sink, kWriteBlock);
  bool ok = EncodeFile(object, buffer, form, transferSyntaxUID);
  ok = buffer.Flush() && ok;
  ok = file.Close() && ok;
  if (ok) ok = files.rename(partial.c_str(), path) == 0;
  if (!ok) files.remove(partial.c_str());
  return ok;
}

// Form 1: the data set alone in implicit VR little endian. Forms 2 and 3: preamble, "DICM",
// the meta group in explicit VR little endian, the rest in the syntax of (0002,0010).
bool DICOMCodec::EncodeFile(DICOMObject* object, ByteBuffer& buffer, int form,
                            const char* transferSyntaxUID) {
  if (form == 1) return Encode(object, buffer, kModeImplicitLittle, false);
  bool ok = AddFileMeta(object, transferSyntaxUID);
  buffer.WriteZeros(kPreambleLength);
  buffer.WriteBytes("DICM", 4);
  // Form 2 once wrote its meta group with the implicit encoder; every reader expects the meta
  // group in explicit VR (PS3.10 7.1), and the group length counts the explicit header of
  // (0002,0001), so both forms now write it that way.
  const int metaMode = kModeExplicitLittle;
  return (HasGroupBelowMeta(object) ? EncodeMetaFirst(object, buffer, metaMode)
                                    : Encode(object, buffer, metaMode, false)) &&
         ok;
}
