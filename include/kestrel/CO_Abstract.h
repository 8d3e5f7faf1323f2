#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kestrel/DICOMObject.h"
#include "kestrel/Export.h"
#include "kestrel/VR_XXTYPED.h"

class VRReferentialIntegrityDatabase;

// A new data object holding copies of every element of `source` (a plain data object while it
// is filling, or a typed one), sequence items included; the caller deletes it. Null when
// `source` is null or being popped, or memory ran out.
KESTREL_API DICOMDataObject* CopyDataObject(DICOMObject* source);

// One attribute of a module's table (generated from the data dictionary, CO_ModuleTable.h).
struct CO_AttributeInfo {
  uint16_t Group;
  uint16_t Element;
  uint16_t TypeCode;        // the attribute's VR in the data dictionary
  const char* Keyword;      // the DICOM keyword, also the accessor's name
  VR_XXTYPED* (*Create)();  // a new, empty element of the attribute's typed class
};

// Base of the IOD module classes (CO_*Module) and of the IOD classes (*ImageIODModule): a data
// object whose content is a fixed list of attributes, each held by a typed element of its VR
// that exists whether or not the attribute has a value.
//
// As a data object:
// - Push takes an attribute's element: its value buffer (and sequence items, and VR when the
//   element knows it) go into the typed element, the pushed element is destroyed, the result is
//   true. An element that is no attribute of the object is refused (false, the caller keeps
//   it); the IOD classes take it instead, among their other attributes. Group length elements
//   are destroyed and reported as taken, as a data object does. Plain and typed elements may
//   both be pushed.
// - PushItem adds a sequence item to the attribute last pushed.
// - Pop hands out plain copies of the attributes that have a value, in tag order with group
//   lengths as any data object, and empties the object; Clear empties it.
// - Find and GetUInt16 see nothing: use GetAttribute or the typed accessors.
//
// Every value buffer the object takes in is reported to its referential-integrity database,
// which owns it until the database is destroyed: values read through `Data` stay valid after
// the attribute is changed or cleared, for as long as this object (or the IOD holding it)
// lives. A module made on its own has a database of its own; the modules of an IOD share the
// IOD's.
class KESTREL_API CO_Abstract : public DICOMDataObject {
 public:
  ~CO_Abstract() override;
  CO_Abstract(const CO_Abstract&) = delete;
  CO_Abstract& operator=(const CO_Abstract&) = delete;

  bool Push(VR* element) override;
  bool PushItem(DICOMObject* item) override;
  VR* Pop() override;
  bool Clear() override;

  // Empties the object, then copies into it every element of `source` that it takes (all of
  // them for an IOD, its attributes for a module). `source` is left as it was; it is read
  // through its groups, so it must not be being popped, or it is a typed data object itself.
  // False when `source` is null or could not be read, or memory ran out.
  virtual bool ReadFrom(DICOMObject* source);
  // Pushes a plain copy of every attribute that has a value (sequence items included) into
  // `target`. This object is left as it was. False when `target` refused an element.
  virtual bool WriteTo(DICOMObject* target);
  // Empties the object, then pops everything out of `source` and pushes it here, taking the
  // value buffers over instead of copying them. What this object does not take is destroyed.
  // Returns the number of elements taken.
  uint32_t MoveFrom(DICOMObject* source);

  // The typed element of an attribute, or null when the tag is no attribute of this object.
  // Owned by this object (or by the IOD module that shares it); never delete it or push it
  // into another data object.
  virtual VR_XXTYPED* GetAttribute(uint16_t group, uint16_t element);

  // The module's name ("Patient", "CT Image").
  const char* GetName() const { return name_; }
  // The module's own attribute table, in PS3.3 order (empty for an IOD).
  uint32_t GetAttributeCount() const { return static_cast<uint32_t>(slots_.size()); }
  const CO_AttributeInfo& GetAttributeInfo(uint32_t index) const { return *slots_[index].info; }
  VR_XXTYPED* GetAttributeAt(uint32_t index) const { return slots_[index].element; }
  // The database that owns the value buffers; owned by this object or its IOD.
  VRReferentialIntegrityDatabase* GetDatabase() const { return database_; }

 protected:
  // `table` must outlive the object (the generated tables are static). With a null `database`
  // the object makes its own.
  CO_Abstract(const char* name, const CO_AttributeInfo* table, uint32_t count,
              VRReferentialIntegrityDatabase* database);

  // Whether ReadFrom copies an element of this tag.
  virtual bool Accepts(uint16_t group, uint16_t element);
  // Takes an element that is no attribute (a plain one, or a typed one to be copied); false
  // leaves it with the caller. Modules take none.
  virtual bool PushOther(VR* element);
  virtual bool PushOtherItem(DICOMObject* item);
  // Drops every value; the elements stay.
  virtual void ClearValues();

 private:
  friend class ImageIODModule;

  struct Slot {
    const CO_AttributeInfo* info;
    VR_XXTYPED* element;                // owned below, or shared with another module of an IOD
    std::unique_ptr<VR_XXTYPED> owned;  // null when the element is shared
  };

  // Makes the attribute at `index` use `shared` (another module's element of the same tag and
  // class) instead of its own. False, and nothing changed, when the classes differ.
  bool ShareAttribute(uint32_t index, VR_XXTYPED* shared);
  // Moves the value of `source` into `target` and destroys `source`. False (nothing changed,
  // the caller keeps `source`) when memory runs out.
  bool TakeValue(VR_XXTYPED* target, VR* source);

  const char* name_;
  std::unique_ptr<VRReferentialIntegrityDatabase> ownDatabase_;
  VRReferentialIntegrityDatabase* database_;
  std::vector<Slot> slots_;
  VR_XXTYPED* lastAttribute_ = nullptr;  // where PushItem puts items
  bool lastWasOther_ = false;
  std::unique_ptr<DICOMDataObject> popping_;  // the copies Pop hands out
};
