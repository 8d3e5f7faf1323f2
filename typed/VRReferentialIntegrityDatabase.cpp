#include "kestrel/VRReferentialIntegrityDatabase.h"

#include <new>
#include <unordered_map>

namespace {

struct Entry {
  uint16_t Group;
  uint16_t Element;
  uint32_t Length;
  uint16_t TypeCode;
};

}  // namespace

struct VRReferentialIntegrityDatabase::Entries {
  std::unordered_map<const void*, Entry> byBuffer;
  uint64_t totalLength = 0;
};

VRReferentialIntegrityDatabase::VRReferentialIntegrityDatabase() : entries_(new Entries) {}

VRReferentialIntegrityDatabase::~VRReferentialIntegrityDatabase() {
  // Buffers come from `new char[]`, as every value buffer of the library does.
  for (auto& [buffer, entry] : entries_->byBuffer)
    delete[] static_cast<char*>(const_cast<void*>(buffer));
}

bool VRReferentialIntegrityDatabase::Report(uint16_t group, uint16_t element, void* data,
                                            uint32_t length, uint16_t typeCode) {
  if (!data) return false;
  try {
    auto [where, added] = entries_->byBuffer.emplace(data, Entry{group, element, length, typeCode});
    if (added) entries_->totalLength += length;
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool VRReferentialIntegrityDatabase::Holds(const void* data) const {
  return entries_->byBuffer.count(data) != 0;
}

uint32_t VRReferentialIntegrityDatabase::GetCount() const {
  return static_cast<uint32_t>(entries_->byBuffer.size());
}

uint64_t VRReferentialIntegrityDatabase::GetTotalLength() const { return entries_->totalLength; }
