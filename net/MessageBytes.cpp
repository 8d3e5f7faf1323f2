#include "MessageBytes.h"

#include <algorithm>
#include <cstring>

#include "TransportBuffer.h"

namespace KESTREL {

bool MessageBytes::Append(TransportBuffer& in, size_t length) {
  while (length) {
    if (blocks_.empty() || blocks_.back().size() == kBlock) {
      blocks_.emplace_back();
      blocks_.back().reserve(std::min(kBlock, length));
    }
    std::vector<uint8_t>& block = blocks_.back();
    size_t n = std::min(length, kBlock - block.size());
    if (!in.ReadInto(block, n)) return false;
    size_ += n;
    length -= n;
  }
  return true;
}

size_t MessageBytes::Take(void* data, size_t length) {
  length = static_cast<size_t>(std::min<uint64_t>(length, Remaining()));
  auto* out = static_cast<uint8_t*>(data);
  size_t done = 0;
  while (done < length) {
    std::vector<uint8_t>& block = blocks_[block_];
    size_t n = std::min(length - done, block.size() - offset_);
    if (out) std::memcpy(out + done, block.data() + offset_, n);
    done += n;
    offset_ += n;
    if (offset_ == block.size()) {
      std::vector<uint8_t>().swap(block);  // passed: give the memory back at once
      ++block_;
      offset_ = 0;
    }
  }
  position_ += done;
  return done;
}

size_t MessageBytes::Read(void* data, size_t length) { return Take(data, length); }

bool MessageBytes::Skip(uint64_t length) {
  if (length > Remaining()) return false;
  Take(nullptr, static_cast<size_t>(length));
  return true;
}

}  // namespace KESTREL
