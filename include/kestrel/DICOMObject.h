#pragma once

#include <cstdint>

#include "kestrel/Array.h"
#include "kestrel/Export.h"

class DICOMObject;
class DICOMDataObject;
class VRReferentialIntegrityDatabase;

// Packs a two-letter value representation the way TypeCode holds it: first letter high.
constexpr uint16_t MakeTypeCode(char first, char second) {
  return static_cast<uint16_t>((static_cast<uint8_t>(first) << 8) | static_cast<uint8_t>(second));
}

// One data element. Value buffers handed to or made by a VR are allocated with `new char[]`; a
// VR that owns its buffer frees it with `delete[]`.
class KESTREL_API VR {
 public:
  uint16_t Group = 0;
  uint16_t Element = 0;
  uint32_t Length = 0;   // bytes of value; 0xFFFFFFFF (undefined) becomes 0 when pushed
  void* Data = nullptr;  // exactly Length bytes in host byte order, or null
  int32_t OwnsData = 1;  // when true the buffer is freed with the element
  uint32_t Reserved = 0;
  // Items of a sequence element; owned by the element, destroyed with it.
  Array<DICOMDataObject*>* SequenceItems = nullptr;
  // When set, a typed element reports a replaced buffer here instead of taking it over.
  VRReferentialIntegrityDatabase* Database = nullptr;
  uint16_t TypeCode = 0;  // "UL" is 0x554C; 0 when unknown

  // For the decoder: no value; group and element are filled in by the reader.
  VR();
  // Rounds an odd length up by one. With `allocate` a buffer of that length is made (its extra
  // byte, if any, set to 0); otherwise Data is null.
  VR(uint16_t group, uint16_t element, uint32_t length, bool allocate);
  // Adopts the caller's `new char[]` buffer as it is: no copy, no rounding. Taken over.
  VR(uint16_t group, uint16_t element, uint32_t length, void* data);
  // As above, but with `ownsData` false the element only points at memory the caller keeps
  // alive (a string literal, a member buffer).
  VR(uint16_t group, uint16_t element, uint32_t length, void* data, bool ownsData);
  // Virtual because the typed elements derive from VR and are held, pushed, popped and
  // destroyed through VR* like any other element.
  virtual ~VR();

  VR(const VR&) = delete;
  VR& operator=(const VR&) = delete;

  // Tag order only: value, length and VR take no part.
  bool operator>(const VR& other) const;
  bool operator<(const VR& other) const;
  bool operator==(const VR& other) const;
};

// The elements of one group, as a heap in tag order, with the encoded length of the group.
class KESTREL_API VRGroupPQueue : public PQueueOfPtr<VR*> {
 public:
  uint16_t Group = 0;
  uint32_t Length = 0;  // the value of this group's group length element
  // The group length element made when the group was first popped. Only remembered: the
  // caller of DICOMObject::Pop owns it.
  VR* GroupLengthVR = nullptr;

  explicit VRGroupPQueue(uint16_t group);
  ~VRGroupPQueue() override;

  // False for an element of another group. Taken over on success.
  bool Push(VR* element);
  // The smallest element, or null when empty; the caller owns it.
  VR* Pop();

  bool operator>(const VRGroupPQueue& other) const { return Group > other.Group; }
  bool operator<(const VRGroupPQueue& other) const { return Group < other.Group; }
};

// A data set or command set. Elements pushed in any order come out of Pop in ascending tag
// order, each group led by a group length element computed while the elements went in.
//
// Two states: filling (Push, PushItem, Find, GetUInt16 work) and draining, entered by the
// first Pop, in which pushes are refused and Find sees nothing. Popping the last element
// returns the object to filling, empty.
class KESTREL_API DICOMObject : public PQueueOfPtr<VRGroupPQueue*> {
 public:
  VRGroupPQueue* PopGroup = nullptr;   // the group now being popped
  VRGroupPQueue* LastGroup = nullptr;  // the group that took the last push
  VR* LastVR = nullptr;                // the element last pushed
  uint32_t Reserved1 = 0;
  uint32_t Length = 0;                 // encoded length of the whole object, group lengths included
  int32_t Sealed = 0;                  // true once popping has begun
  PQueueOfPtr<VRGroupPQueue*> Groups;  // the groups while the object is being filled
  DICOMObject* Forward = nullptr;      // when set, pushes go there instead
  uint32_t Reserved2 = 0;
  uint32_t Reserved3 = 0;
  uint32_t Reserved4 = 0;

  DICOMObject();
  // Destroys every element and sequence item still inside.
  ~DICOMObject() override;

  // Makes `item` the next item of the sequence element last pushed; the element's item list
  // owns it from then on. False (and the caller keeps `item`) when sealed or nothing was pushed.
  virtual bool PushItem(DICOMObject* item);
  // Takes `element` over and returns true, or returns false (the caller keeps it) when the
  // object is sealed or out of memory. Group length elements of groups other than 0000 and
  // 0002 are destroyed (they are always recomputed) and reported as taken.
  virtual bool Push(VR* element);
  // The next element in ascending tag order, or null at the end; the caller owns it.
  virtual VR* Pop();
  // Pops and destroys everything.
  virtual bool Clear();

  // Looks an element up without removing it; null when absent or once popping has begun.
  VR* Find(uint16_t group, uint16_t element);
  // The 16-bit value of an element whose length is exactly 2; otherwise 0.
  uint16_t GetUInt16(uint16_t group, uint16_t element);

 protected:
  bool Seal();
};

class KESTREL_API DICOMDataObject : public DICOMObject {
 public:
  ~DICOMDataObject() override;
};

class KESTREL_API DICOMCommandObject : public DICOMObject {
 public:
  ~DICOMCommandObject() override;
};
