#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kestrel/Array.h"
#include "kestrel/ByteBuffer.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/Export.h"

class FileMapping;
class RTC;
struct ValueContext;

// What reading a DICOM file came to.
enum class FileReadResult : uint8_t {
  kComplete,       // the whole file was decoded
  kCannotOpen,     // it could not be opened or read: the system's error code tells why
  kNotDICOM,       // nothing in it decodes as DICOM
  kDamaged,        // decoding stopped before its end (a value running past it, say)
  kUnknownSyntax,  // its transfer syntax is one the codec cannot read
};

// The value codec and the DICOM file reader and writer. An association (PDU_Service) is one of
// these; callers use these operations through it.
//
// Modes: 100 implicit VR little endian, 101 explicit VR little endian, 102 explicit VR big
// endian. Meeting (0002,0010) in a stream switches to the mode of that transfer syntax once
// the meta group is over.
class KESTREL_API DICOMCodec {
 public:
  DICOMCodec();
  virtual ~DICOMCodec();
  DICOMCodec(const DICOMCodec&) = delete;
  DICOMCodec& operator=(const DICOMCodec&) = delete;

  // Pops every element of `object` and appends its encoding; the object is empty afterwards.
  // With `dropMeta` group 0002 is discarded (network transfer). False when a transfer syntax
  // met in the stream is unknown.
  bool Encode(DICOMObject* object, ByteBuffer& buffer, int mode, bool dropMeta);
  bool EncodeImplicitItem(DICOMObject* object, ByteBuffer& buffer);
  bool EncodeExplicitItem(DICOMObject* object, ByteBuffer& buffer);
  // The fragments of an encapsulated pixel data element, then the sequence delimiter.
  bool WriteEncapsulated(Array<DICOMDataObject*>* items, ByteBuffer& buffer);

  // Reads elements until the buffer is exhausted (true) or an item or sequence delimiter is
  // met (true). False on a null object, an allocation failure, an unknown transfer syntax, a
  // malformed delimiter or a value that runs past the end of the buffer; what was read so far
  // stays in `object`, which the caller destroys.
  bool Decode(ByteBuffer& buffer, DICOMObject* object, int mode);
  bool DecodeImplicitItems(ByteBuffer& buffer, DICOMObject* object);
  bool DecodeExplicitItems(ByteBuffer& buffer, DICOMObject* object);
  // Fragments into the pixel data element last pushed into `object`.
  bool ReadEncapsulated(ByteBuffer& buffer, DICOMObject* object);
  // A sequence read from an implicit VR stream by a codec without a dictionary keeps the bytes
  // of its items as its value (PS3.5 6.2.2). This reads them into items: the element becomes
  // an SQ holding them, its value freed. True when the element holds items now (or did
  // already); false, the element left as it was, when its bytes are no item stream.
  bool ExpandSequenceValue(VR* element);
  // Bounds what decoding (Decode, LoadFile) holds in memory, for data whose size someone else
  // decides: a value (or encapsulated fragment) longer than `valueBytes` is passed over and its
  // element kept without a value (Length 0, Data null); once `heldBytes` are held (values, plus
  // a small cost per element), the rest is still read, so that damage is found, but dropped,
  // except a top-level Pixel Data element, kept without a value to tell that there was one.
  // 0 means no limit (the default for both).
  void SetHoldLimits(uint32_t valueBytes, uint64_t heldBytes);

  // Detaches (and, when it was owned, destroys) the previous dictionary. With `owned` the
  // dictionary is deleted with this object or at the next attach; otherwise the caller keeps it.
  bool AttachRTC(RTC* dictionary, bool owned);
  RTC* GetRTC() const { return dictionary_; }

  // A new data object read from the file (the caller deletes it), or null when the file cannot
  // be opened. A damaged file gives whatever could be decoded; WasLastLoadComplete tells which.
  DICOMDataObject* LoadFile(const char* path);
  bool WasLastLoadComplete() const { return lastLoadComplete_; }
  // The same, telling why a file was not read whole: `result` (and, for kCannotOpen, the
  // system's error code in `error`) when those are not null. Null only for kCannotOpen; for the
  // other failures the object holds what was decoded.
  DICOMDataObject* LoadFile(const char* path, FileReadResult* result, int* error = nullptr);
  // As LoadFile, but reads no more than the first `bytes` bytes after the preamble: the meta
  // group and the leading attributes of a file, for a caller that only needs to tell what a
  // file is, at a fixed cost however large its pixel data. An element cut by the limit is
  // left out, and the load counts as incomplete unless the whole file fitted.
  DICOMDataObject* LoadFileHead(const char* path, uint32_t bytes);
  // As LoadFile, from a mapped file: values of 64 KiB or more that need no byte swapping are
  // not copied but point into the mapping (their elements do not own them), so `file` must
  // outlive the object. Null when nothing is mapped (kCannotOpen).
  DICOMDataObject* LoadMapped(const FileMapping& file, FileReadResult* result = nullptr);
  // Writes `object`, which the encoding empties. Form 1: no preamble nor meta group, implicit
  // VR little endian. Forms 2 and 3: preamble, "DICM", the meta group in explicit VR little
  // endian, then the rest in the transfer syntax of (0002,0010) (form 2 is kept for callers
  // that name it; no reader accepts an implicit meta group). The file appears only once
  // completely written. `transferSyntaxUID` may be null or empty.
  bool SaveFile(const char* path, int form, DICOMObject* object, const char* transferSyntaxUID);
  // For SaveFile: values of 1 MiB or more that lie in `mapping` are copied from its file to
  // the new one by the system (copy_file_range) instead of being written from memory, which
  // spares the system the page faults and the copy through the mapping. Only for values no one
  // wrote into through the mapping: the file's own bytes are what is copied. Null: none.
  void SetCopySource(const FileMapping* mapping) { copySource_ = mapping; }
  // Replaces the group 0002 of `object` with a new file meta group.
  bool AddFileMeta(DICOMObject* object, const char* transferSyntaxUID);

  // The mode (100, 101 or 102) in which the codec reads and writes a transfer syntax, or 0 for
  // one it cannot handle.
  static int TransferSyntaxMode(const char* uid);

  virtual bool GetImplementationClass(std::string& uid);
  virtual bool GetImplementationVersion(std::string& name);
  // The local application entity title, without padding; empty when none is set.
  virtual std::string GetLocalAETitle() const;

 private:
  DICOMDataObject* ReadFile(const char* path, uint64_t limit, FileReadResult* result, int* error);
  bool EncodeElements(DICOMObject* object, ByteBuffer& buffer, int mode, bool dropMeta, bool top);
  bool EncodeElement(VR* element, ByteBuffer& buffer, int mode);
  bool EncodeItems(Array<DICOMDataObject*>* items, ByteBuffer& buffer, int mode);
  bool EncodeRawSequence(VR* element, ByteBuffer& buffer, int mode);
  uint16_t TypeCodeToWrite(const VR* element) const;
  bool EncodeMetaFirst(DICOMObject* object, ByteBuffer& buffer, int metaMode);
  bool EncodeFile(DICOMObject* object, ByteBuffer& buffer, int form, const char* transferSyntaxUID);
  struct DecodeLevel;
  bool DecodeElements(ByteBuffer& buffer, DICOMObject* object, int mode, bool top);
  bool SwitchSyntax(ByteBuffer& buffer, DecodeLevel& level, uint16_t& group);
  bool DecodeItemTag(ByteBuffer& buffer, DICOMObject* object, int mode, uint16_t number, bool& end);
  bool ReadElementHeader(ByteBuffer& buffer, DecodeLevel& level, bool metaEnds, VR& element,
                         uint32_t& length, bool& explicitVR);
  uint16_t LookUpTypeCode(const VR& element) const;
  bool DecodeValue(ByteBuffer& buffer, DICOMObject* object, DecodeLevel& level,
                   std::unique_ptr<VR>& element, uint32_t length, bool explicitVR);
  bool DecodeUndefinedLength(ByteBuffer& buffer, DICOMObject* object, int mode,
                             std::unique_ptr<VR>& element, bool explicitVR);
  bool ReadValue(ByteBuffer& buffer, VR& element, uint32_t length);
  static bool ReadValueBytes(ByteBuffer& buffer, VR& element, uint32_t length);
  bool DecodeItem(ByteBuffer& buffer, DICOMObject* object, int mode, uint32_t length);
  bool DecodeSequenceItems(ByteBuffer& buffer, DICOMObject* object, int mode);
  bool HoldsValue(uint32_t length);
  bool HoldsElement(const VR* element, bool top);

  RTC* dictionary_ = nullptr;
  bool ownsDictionary_ = false;
  bool lastLoadComplete_ = false;
  int depth_ = 0;            // levels of sequences and items being decoded
  uint32_t valueLimit_ = 0;  // SetHoldLimits; 0: none
  uint32_t borrowFrom_ = 0;  // LoadMapped: values this long stay in the mapping; 0: none
  const FileMapping* copySource_ = nullptr;  // SetCopySource
  uint64_t heldLimit_ = 0;
  uint64_t held_ = 0;  // bytes held by the decode in progress
  // What the level being read or written has said about its pixels (Pixel Representation,
  // Bits Allocated), which decides the VR of some attributes when the stream does not.
  std::unique_ptr<ValueContext> context_;
};
