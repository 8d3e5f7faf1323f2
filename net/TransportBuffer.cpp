#include "TransportBuffer.h"

#include <algorithm>
#include <cstring>

#include "kestrel/ByteBuffer.h"

namespace KESTREL {

TransportBuffer::TransportBuffer(ReadFunction read, SendFunction send, uint32_t blockSize)
    : read_(std::move(read)), send_(std::move(send)), blockSize_(blockSize ? blockSize : 1) {}

// Queues what the channel gives, up to kMaxRead bytes in one call: large reads straight into
// the queue, so that a large data set arrives in few calls and one copy. Called only once the
// queue is empty, so it never holds more than one read.
bool TransportBuffer::Fill() {
  if (in_.size() < kMaxRead) in_.resize(kMaxRead);
  inBegin_ = inEnd_ = 0;
  const uint32_t ask = std::min(kMaxRead, blockSize_);
  for (;;) {
    int got = read_(in_.data(), ask);
    if (got < 0) return false;
    if (got == 0) continue;  // a zero time-out polls until something comes
    inEnd_ = std::min<uint32_t>(static_cast<uint32_t>(got), ask);
    return true;
  }
}

bool TransportBuffer::Read(void* data, size_t length) {
  auto* out = static_cast<uint8_t*>(data);
  while (length) {
    if (!Queued() && !Fill()) return false;
    size_t n = std::min(length, Queued());
    std::memcpy(out, in_.data() + inBegin_, n);
    inBegin_ += n;
    out += n;
    length -= n;
  }
  return true;
}

bool TransportBuffer::Read8(uint8_t& value) { return Read(&value, 1); }

bool TransportBuffer::ReadBig32(uint32_t& value) {
  uint8_t bytes[4];
  if (!Read(bytes, 4)) return false;
  value = static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
          static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
  return true;
}

bool TransportBuffer::ReadInto(std::vector<uint8_t>& out, size_t length) {
  while (length) {
    if (!Queued() && !Fill()) return false;
    size_t n = std::min(length, Queued());
    out.insert(out.end(), in_.data() + inBegin_, in_.data() + inBegin_ + n);
    inBegin_ += n;
    length -= n;
  }
  return true;
}

bool TransportBuffer::ReadInto(ByteBuffer& out, size_t length) {
  while (length) {
    if (!Queued() && !Fill()) return false;
    size_t n = std::min(length, Queued());
    out.WriteBytes(in_.data() + inBegin_, n);
    inBegin_ += n;
    length -= n;
  }
  return true;
}

bool TransportBuffer::ReadTo(ByteBuffer::Sink& sink, size_t length, bool& taking) {
  while (length) {
    if (!Queued() && !Fill()) return false;
    size_t n = std::min(length, Queued());
    if (taking && !sink.Write(in_.data() + inBegin_, n)) taking = false;
    inBegin_ += n;
    length -= n;
  }
  return true;
}

bool TransportBuffer::Skip(size_t length) {
  while (length) {
    if (!Queued() && !Fill()) return false;
    size_t n = std::min(length, Queued());
    inBegin_ += n;
    length -= n;
  }
  return true;
}

void TransportBuffer::DiscardInput() { inBegin_ = inEnd_ = 0; }

void TransportBuffer::Write(const void* data, size_t length) {
  const auto* in = static_cast<const uint8_t*>(data);
  while (length) {
    if (out_.empty() || out_.back().size() == blockSize_) {
      out_.emplace_back();
      out_.back().reserve(std::min<size_t>(blockSize_, std::max<size_t>(length, 64)));
    }
    std::vector<uint8_t>& block = out_.back();
    size_t n = std::min(length, blockSize_ - block.size());
    block.insert(block.end(), in, in + n);
    in += n;
    length -= n;
  }
}

bool TransportBuffer::Flush() {
  bool ok = true;
  for (const std::vector<uint8_t>& block : out_) {
    if (ok && send_(block.data(), static_cast<uint32_t>(block.size())) == 0) ok = false;
  }
  out_.clear();
  return ok;
}

bool TransportBuffer::Send(const void* data, size_t length) {
  bool ok = Flush();
  return send_(data, static_cast<uint32_t>(length)) != 0 && ok;
}

}  // namespace KESTREL
