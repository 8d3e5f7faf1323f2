#pragma once

// The bytes of one DIMSE message as its fragments arrive, kept in blocks, and read back by the
// decoder as a ByteBuffer source. Blocks spare the copies a growing contiguous buffer makes
// (a 64 MB data set would otherwise be copied about twice over while it arrives); a large
// value is read from the blocks straight into its element, and each block is freed once the
// decoder has passed it.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestrel/ByteBuffer.h"

namespace KESTREL {

class TransportBuffer;

class MessageBytes : public ByteBuffer::Source {
 public:
  static constexpr size_t kBlock = 64 * 1024;

  // Appends `length` bytes read from `in`. Room is made for at most one block (64 KiB) ahead
  // of the bytes that arrive, whatever length a peer announced.
  [[nodiscard]] bool Append(TransportBuffer& in, size_t length);
  uint64_t Size() const { return size_; }

  size_t Read(void* data, size_t length) override;
  uint64_t Remaining() override { return size_ - position_; }
  [[nodiscard]] bool Skip(uint64_t length) override;

 private:
  // Moves the read position by `length` (at most what remains), copying to `data` if not null.
  size_t Take(void* data, size_t length);

  std::vector<std::vector<uint8_t>> blocks_;
  uint64_t size_ = 0;
  uint64_t position_ = 0;
  size_t block_ = 0;   // block holding the read position
  size_t offset_ = 0;  // within that block
};

}  // namespace KESTREL
