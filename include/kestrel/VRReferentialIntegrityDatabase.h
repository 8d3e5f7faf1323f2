#pragma once

#include <cstdint>
#include <memory>

#include "kestrel/Export.h"

// Owns the value buffers that typed elements hand it, so that a buffer stays alive after the
// element that used it has moved on to a new value or has been destroyed: whoever still points
// at an old value (a pixel data pointer handed out earlier, a plain element that borrowed the
// buffer) keeps a valid pointer for as long as the database lives. Every buffer is freed when
// the database is destroyed, and only then.
//
// An element points here through VR::Database. The IOD module classes give all their elements
// one database and report every buffer they take in.
class KESTREL_API VRReferentialIntegrityDatabase {
 public:
  VRReferentialIntegrityDatabase();
  // Frees every buffer reported.
  ~VRReferentialIntegrityDatabase();

  VRReferentialIntegrityDatabase(const VRReferentialIntegrityDatabase&) = delete;
  VRReferentialIntegrityDatabase& operator=(const VRReferentialIntegrityDatabase&) = delete;

  // Takes over `data`, a `new char[]` buffer that the element (group, element, VR code
  // `typeCode`) now uses as its `length`-byte value. True when the database owns the buffer
  // (also when it already did: a buffer is never owned twice). False, and the caller keeps the
  // buffer, for null `data` or when memory runs out.
  bool Report(uint16_t group, uint16_t element, void* data, uint32_t length, uint16_t typeCode);

  // Whether `data` is a buffer this database owns.
  bool Holds(const void* data) const;
  // Number of buffers owned.
  uint32_t GetCount() const;
  // Sum of the lengths reported with the buffers owned.
  uint64_t GetTotalLength() const;

 private:
  struct Entries;
  std::unique_ptr<Entries> entries_;
};
