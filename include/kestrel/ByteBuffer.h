#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "kestrel/Export.h"

// The byte queue between the codec and a file or a connection: bytes are appended at the end
// and read from the front, 16- and 32-bit integers in the buffer's current byte order.
//
// A buffer can pull its input from a source (a file, read on demand, so a large value goes
// straight from the file into its element) and push its output to a sink once it holds more
// than a threshold (so a large object is never held twice). A bounded view reads a given number
// of bytes of another buffer without copying them: the codec reads a defined-length sequence
// or item through one.
class KESTREL_API ByteBuffer {
 public:
  class Source {
   public:
    virtual ~Source() = default;
    // Reads up to `length` bytes; returns how many were read, 0 at the end or on error.
    virtual size_t Read(void* data, size_t length) = 0;
    // Bytes still to come.
    virtual uint64_t Remaining() = 0;
    // Passes over `length` bytes; false when fewer were left.
    virtual bool Skip(uint64_t length) = 0;
    // For a source whose bytes stay in memory (a mapped file): where the byte `back` bytes
    // before the next one Read gives lies. Null for any other source.
    virtual uint8_t* MappedAt(uint64_t back) { return nullptr; }
  };
  class Sink {
   public:
    virtual ~Sink() = default;
    // Writes all `length` bytes or returns false.
    virtual bool Write(const void* data, size_t length) = 0;
  };

  ByteBuffer();
  // A view of the next `limit` bytes of `parent` (never more than the parent holds). The parent
  // must not be read directly while the view is in use.
  ByteBuffer(ByteBuffer& parent, uint64_t limit);
  ~ByteBuffer();
  ByteBuffer(const ByteBuffer&) = delete;
  ByteBuffer& operator=(const ByteBuffer&) = delete;

  void SetBigEndian(bool bigEndian) { bigEndian_ = bigEndian; }
  bool IsBigEndian() const { return bigEndian_; }

  // Not deleted: the caller keeps the source or sink alive while the buffer uses it.
  void AttachSource(Source* source) { source_ = source; }
  void AttachSink(Sink* sink, size_t threshold);
  // Hands everything held to the sink; false when a sink write failed (then or earlier).
  bool Flush();

  void Write8(uint8_t value);
  void Write16(uint16_t value);
  void Write32(uint32_t value);
  void WriteBytes(const void* data, size_t length);
  void WriteZeros(size_t length);
  // Overwrites a 32-bit integer written earlier at `offset` bytes from the start of what is
  // held; false when those bytes are no longer held (already read or flushed).
  bool Patch32(size_t offset, uint32_t value);
  bool Peek32(size_t offset, uint32_t& value) const;

  // False (and nothing consumed) when fewer bytes remain.
  [[nodiscard]] bool Read16(uint16_t& value);
  [[nodiscard]] bool Read32(uint32_t& value);
  [[nodiscard]] bool ReadBytes(void* data, size_t length);
  [[nodiscard]] bool Skip(uint64_t length);
  // Passes over the next `length` bytes and gives where they lie in the source's memory, when
  // the source is mapped; null, and nothing consumed, otherwise or when fewer bytes remain.
  [[nodiscard]] uint8_t* Borrow(uint64_t length);
  // Passes over whatever is left (for a view, what is left of its limit).
  void SkipRest();
  bool HasBytes() { return Remaining() != 0; }
  // Bytes left to read: what is held plus what the source has still to give.
  uint64_t Remaining();

  // The bytes held and not read yet (empty for a view).
  const uint8_t* Data() const { return data_.get() + begin_; }
  size_t Size() const { return end_ - begin_; }
  // Bytes written since the buffer was made or cleared (for Patch32 offsets).
  size_t Written() const { return written_; }
  void Clear();

 private:
  bool Fill(size_t wanted);
  void Reserve(size_t more);
  bool ReadRaw(void* data, size_t length);

  std::unique_ptr<uint8_t[]> data_;
  size_t capacity_ = 0;
  size_t begin_ = 0;  // next byte to read
  size_t end_ = 0;    // next byte to write
  size_t written_ = 0;
  size_t base_ = 0;  // value of written_ at data_[0]
  bool bigEndian_ = false;
  Source* source_ = nullptr;
  Sink* sink_ = nullptr;
  size_t sinkThreshold_ = 0;
  bool sinkFailed_ = false;
  ByteBuffer* parent_ = nullptr;
  uint64_t limit_ = 0;
};
