#pragma once

// The byte queues between PDUs and the connection. Receiving: a read of n bytes waits until n
// bytes are queued, filling the queue from the channel at most 64 KiB at a time (asking again
// while the channel gives 0 bytes); a negative result fails the read. Sending: bytes are
// appended to blocks of the block size (32600 by default), and Flush hands every block to the
// channel in order; Send hands a caller's buffer over whole.
//
// Nothing is allocated ahead of the bytes that arrive: a peer announcing a large length makes
// the queue grow only as its bytes come in.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "kestrel/ByteBuffer.h"

namespace KESTREL {

class TransportBuffer {
 public:
  static constexpr uint32_t kDefaultBlockSize = 32600;
  static constexpr uint32_t kMaxRead = 64 * 1024;

  // `read` and `send` behave as PDU_Service::ReadBytes and SendBytes.
  using ReadFunction = std::function<int(void*, uint32_t)>;
  using SendFunction = std::function<int(const void*, uint32_t)>;

  TransportBuffer(ReadFunction read, SendFunction send, uint32_t blockSize = kDefaultBlockSize);

  // Exactly `length` bytes, or false.
  [[nodiscard]] bool Read(void* data, size_t length);
  [[nodiscard]] bool Read8(uint8_t& value);
  [[nodiscard]] bool ReadBig32(uint32_t& value);
  // Appends exactly `length` bytes to `out` as they arrive.
  [[nodiscard]] bool ReadInto(std::vector<uint8_t>& out, size_t length);
  [[nodiscard]] bool ReadInto(ByteBuffer& out, size_t length);
  // Hands exactly `length` bytes to `sink` as they arrive while `taking`; a refusal clears
  // `taking`, and the rest is read and dropped. False only when the channel failed.
  [[nodiscard]] bool ReadTo(ByteBuffer::Sink& sink, size_t length, bool& taking);
  // Passes over `length` bytes.
  [[nodiscard]] bool Skip(size_t length);
  // Whether received bytes wait to be read.
  [[nodiscard]] bool HasQueuedInput() const { return Queued() != 0; }
  // Drops what is queued for reading (after a broken connection).
  void DiscardInput();

  void Write(const void* data, size_t length);
  // False when the channel refused a block (not connected); the send queue is emptied anyway.
  [[nodiscard]] bool Flush();
  // Flushes, then hands `length` bytes to the channel in one call, without copying them.
  [[nodiscard]] bool Send(const void* data, size_t length);

 private:
  [[nodiscard]] bool Fill();
  size_t Queued() const { return inEnd_ - inBegin_; }

  ReadFunction read_;
  SendFunction send_;
  uint32_t blockSize_;
  std::vector<uint8_t> in_;  // kMaxRead bytes once anything was read
  size_t inBegin_ = 0;
  size_t inEnd_ = 0;
  std::vector<std::vector<uint8_t>> out_;
};

}  // namespace KESTREL
