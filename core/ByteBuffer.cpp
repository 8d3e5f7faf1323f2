#include "kestrel/ByteBuffer.h"

#include <algorithm>
#include <cstring>

namespace {

// Input is pulled from a source in blocks of this size; larger reads go straight through.
constexpr size_t kFillBlock = 50000;

uint16_t Swap16(uint16_t v) { return static_cast<uint16_t>((v << 8) | (v >> 8)); }
uint32_t Swap32(uint32_t v) { return __builtin_bswap32(v); }

}  // namespace

ByteBuffer::ByteBuffer() = default;

ByteBuffer::ByteBuffer(ByteBuffer& parent, uint64_t limit)
    : bigEndian_(parent.bigEndian_),
      parent_(&parent),
      limit_(std::min(limit, parent.Remaining())) {}

ByteBuffer::~ByteBuffer() = default;

void ByteBuffer::AttachSink(Sink* sink, size_t threshold) {
  sink_ = sink;
  sinkThreshold_ = threshold;
}

bool ByteBuffer::Flush() {
  if (sink_ && Size() && !sinkFailed_) {
    if (!sink_->Write(Data(), Size())) sinkFailed_ = true;
    base_ += end_;
    begin_ = end_ = 0;
  }
  return !sinkFailed_;
}

void ByteBuffer::Reserve(size_t more) {
  if (end_ + more <= capacity_) return;
  // Move unread bytes to the front before growing.
  if (begin_ && end_ - begin_ + more <= capacity_) {
    std::memmove(data_.get(), data_.get() + begin_, end_ - begin_);
    base_ += begin_;
    end_ -= begin_;
    begin_ = 0;
    return;
  }
  size_t held = end_ - begin_;
  size_t capacity = std::max<size_t>({capacity_ * 2, held + more, 4096});
  std::unique_ptr<uint8_t[]> grown(new uint8_t[capacity]);
  if (held) std::memcpy(grown.get(), data_.get() + begin_, held);
  data_ = std::move(grown);
  capacity_ = capacity;
  base_ += begin_;
  begin_ = 0;
  end_ = held;
}

void ByteBuffer::Write8(uint8_t value) { WriteBytes(&value, 1); }

void ByteBuffer::Write16(uint16_t value) {
  if (bigEndian_) value = Swap16(value);
  WriteBytes(&value, 2);
}

void ByteBuffer::Write32(uint32_t value) {
  if (bigEndian_) value = Swap32(value);
  WriteBytes(&value, 4);
}

void ByteBuffer::WriteBytes(const void* data, size_t length) {
  if (!length) return;
  if (sink_ && Size() + length > sinkThreshold_) {
    Flush();
    // A large value goes to the sink as it is, without passing through the buffer.
    if (length > sinkThreshold_) {
      if (!sinkFailed_ && !sink_->Write(data, length)) sinkFailed_ = true;
      base_ += length;
      written_ += length;
      return;
    }
  }
  Reserve(length);
  std::memcpy(data_.get() + end_, data, length);
  end_ += length;
  written_ += length;
}

void ByteBuffer::WriteZeros(size_t length) {
  static const uint8_t kZeros[256] = {};
  while (length) {
    size_t n = std::min(length, sizeof kZeros);
    WriteBytes(kZeros, n);
    length -= n;
  }
}

bool ByteBuffer::Patch32(size_t offset, uint32_t value) {
  if (offset < base_ + begin_ || offset + 4 > base_ + end_) return false;
  if (bigEndian_) value = Swap32(value);
  std::memcpy(data_.get() + (offset - base_), &value, 4);
  return true;
}

bool ByteBuffer::Peek32(size_t offset, uint32_t& value) const {
  if (offset < base_ + begin_ || offset + 4 > base_ + end_) return false;
  std::memcpy(&value, data_.get() + (offset - base_), 4);
  if (bigEndian_) value = Swap32(value);
  return true;
}

void ByteBuffer::Clear() {
  begin_ = end_ = 0;
  base_ = written_ = 0;
  sinkFailed_ = false;
}

uint64_t ByteBuffer::Remaining() {
  if (parent_) return limit_;
  return (end_ - begin_) + (source_ ? source_->Remaining() : 0);
}

// Makes at least `wanted` bytes available in memory, pulling from the source.
bool ByteBuffer::Fill(size_t wanted) {
  if (end_ - begin_ >= wanted) return true;
  if (!source_) return false;
  while (end_ - begin_ < wanted) {
    size_t block = std::max(kFillBlock, wanted - (end_ - begin_));
    Reserve(block);
    size_t got = source_->Read(data_.get() + end_, block);
    if (!got) return false;
    end_ += got;
  }
  return true;
}

bool ByteBuffer::ReadRaw(void* data, size_t length) {
  if (parent_) {
    if (length > limit_) return false;
    if (!parent_->ReadRaw(data, length)) return false;
    limit_ -= length;
    return true;
  }
  size_t held = end_ - begin_;
  if (length <= held || !source_) {
    if (length > held) return false;
    std::memcpy(data, data_.get() + begin_, length);
    begin_ += length;
    return true;
  }
  if (length - held > source_->Remaining()) return false;
  // Take what is held, then read the rest from the source straight into place.
  auto* out = static_cast<uint8_t*>(data);
  std::memcpy(out, data_.get() + begin_, held);
  begin_ = end_ = 0;
  size_t done = held;
  while (done < length) {
    size_t got = source_->Read(out + done, length - done);
    if (!got) return false;
    done += got;
  }
  return true;
}

bool ByteBuffer::Read16(uint16_t& value) {
  uint16_t raw;
  if (!parent_ && end_ - begin_ >= 2) {
    std::memcpy(&raw, data_.get() + begin_, 2);
    begin_ += 2;
  } else if (!(parent_ ? ReadRaw(&raw, 2) : Fill(2) && ReadRaw(&raw, 2))) {
    return false;
  }
  value = bigEndian_ ? Swap16(raw) : raw;
  return true;
}

bool ByteBuffer::Read32(uint32_t& value) {
  uint32_t raw;
  if (!parent_ && end_ - begin_ >= 4) {
    std::memcpy(&raw, data_.get() + begin_, 4);
    begin_ += 4;
  } else if (!(parent_ ? ReadRaw(&raw, 4) : Fill(4) && ReadRaw(&raw, 4))) {
    return false;
  }
  value = bigEndian_ ? Swap32(raw) : raw;
  return true;
}

bool ByteBuffer::ReadBytes(void* data, size_t length) {
  if (!length) return true;
  return ReadRaw(data, length);
}

bool ByteBuffer::Skip(uint64_t length) {
  if (parent_) {
    if (length > limit_ || !parent_->Skip(length)) return false;
    limit_ -= length;
    return true;
  }
  size_t held = end_ - begin_;
  if (length <= held) {
    begin_ += length;
    return true;
  }
  if (!source_ || length - held > source_->Remaining()) return false;
  begin_ = end_ = 0;
  return source_->Skip(length - held);
}

uint8_t* ByteBuffer::Borrow(uint64_t length) {
  if (parent_) {
    if (length > limit_) return nullptr;
    uint8_t* at = parent_->Borrow(length);
    if (at) limit_ -= length;
    return at;
  }
  const size_t held = end_ - begin_;
  uint8_t* at = source_ ? source_->MappedAt(held) : nullptr;
  if (!at || length > Remaining()) return nullptr;
  if (length <= held) {
    begin_ += length;
    return at;
  }
  if (!source_->Skip(length - held)) return nullptr;
  begin_ = end_ = 0;
  return at;
}

void ByteBuffer::SkipRest() {
  if (parent_) {
    if (parent_->Skip(limit_)) limit_ = 0;
    return;
  }
  begin_ = end_ = 0;
  if (source_) source_->Skip(source_->Remaining());
}
