#pragma once

// Typed data elements: elements that know their value representation. Each reports its VR code
// and the width of one value, turns a value between its stored form (padded) and its text form
// (trimmed), and reads or writes the n-th value of a multi-valued element.
//
//   VR_XXTYPED            the four operations every typed element has
//     VR_XXMULTISTRING    values separated by "\", read and written by index
//       VR_XXSTRING       ... with the text padding rules
//         VR_AS VR_CS VR_DA VR_DS VR_IS VR_LO VR_PN VR_SH VR_TM VR_UI
//     VR_XXMULTIBINARY    fixed-width binary values laid end to end
//       VR_XXBINARY       ... with no storage conversion
//         VR_AT VR_FD VR_OW VR_OX VR_SL VR_SS VR_UL VR_US VR_XS
//     VR_LT VR_ST VR_SQ   one text value, or a sequence: no indexed access
//
// Values are held as the core holds them: `Data` is `Length` bytes in host byte order, made
// with `new char[]`. Whenever an operation replaces the value buffer, the old buffer is freed
// when the element owned it (OwnsData). The new one is then owned by the element when its
// `Database` is null; otherwise it is reported to that VRReferentialIntegrityDatabase, which
// owns it from then on and frees it when it is destroyed. A pointer taken from `Data` before a
// change therefore stays valid for as long as the database lives.

#include <cstdint>
#include <string>

#include "kestrel/DICOMObject.h"
#include "kestrel/Export.h"

class KESTREL_API VR_XXTYPED : public VR {
 public:
  VR_XXTYPED();
  // Adopts `data` (a `new char[]` buffer of `length` bytes, or null) as VR's adopting
  // constructor does: no copy, no rounding, owned by the element.
  VR_XXTYPED(uint16_t group, uint16_t element, uint32_t length, void* data);

  // Byte width of one value; 0 for variable width.
  virtual uint32_t GetSize() const;
  // Turns `length` bytes at `data` into their stored form in place. False for length 0.
  virtual bool ToStorage(uint32_t length, void* data) const;
  // Turns `length` stored bytes at `data` into their text form in place. False for length 0.
  // A text rule that cuts trailing padding writes its terminating zero inside the `length`
  // bytes; when nothing is cut it writes nothing, so a caller that wants a C string puts a zero
  // after the `length` bytes itself.
  virtual bool FromStorage(uint32_t length, void* data) const;
  // The two-letter VR code, first letter in the high byte.
  virtual uint16_t GetTypeCode() const;
  virtual ~VR_XXTYPED();

  // `element` as a typed element, or null when it is a plain VR.
  static VR_XXTYPED* Cast(VR* element);
  // Deletes `element`, typed or plain (the destructor is virtual). Null is allowed.
  static void Destroy(VR* element);

  // Drops the value and any sequence items: Data null, Length 0.
  void ClearValue();
  // Replaces the whole value with a copy of `length` bytes of `data`, then applies ToStorage.
  // Length 0 leaves an empty value that is still there (Data not null), which is how a present
  // but empty attribute is told from an absent one. False only when memory runs out.
  bool SetValue(const void* data, uint32_t length);
  // True when the element holds a value, an empty one or sequence items.
  bool HasValue() const { return Data != nullptr || SequenceItems != nullptr; }
  // Makes `buffer` (a `new char[]` of at least one byte, `length` of them the value) the value,
  // following the ownership rule above; no conversion is applied. Taken over in every case.
  void AdoptBuffer(char* buffer, uint32_t length);
};

class KESTREL_API VR_XXMULTISTRING : public VR_XXTYPED {
 public:
  using VR_XXTYPED::VR_XXTYPED;

  // Value `index` (0-based), with FromStorage applied and cut at the first zero byte. False
  // when the element has no value bytes or fewer than index + 1 values.
  virtual bool Get(uint32_t index, std::string& out) const;
  // Replaces value `index`, or adds it. The value is put in a field of GetSize() bytes (its own
  // length when that is 0), filled with blanks and cut to the width, and ToStorage is applied.
  // Adding past the end keeps the old bytes and adds one "\" fewer than the positions skipped:
  // a value added right after the last one joins it ("A", Set(1, "B") gives "AB"), one added a
  // position further starts a new value ("A", Set(2, "B") gives "A\B"). A "\" inside `value`
  // is stored as it is and so separates values. Always true, unless memory runs out.
  virtual bool Set(uint32_t index, const std::string& value);
  virtual bool Get(std::string& out) const;
  virtual bool Set(const std::string& value);

  // Number of values: 0 without value bytes, else one more than the number of "\".
  uint32_t GetCount() const;
};

// Text with the padding rules: ToStorage turns trailing zero bytes into blanks, FromStorage
// cuts trailing blanks.
class KESTREL_API VR_XXSTRING : public VR_XXMULTISTRING {
 public:
  using VR_XXMULTISTRING::VR_XXMULTISTRING;
  bool ToStorage(uint32_t length, void* data) const override;
  bool FromStorage(uint32_t length, void* data) const override;
};

class KESTREL_API VR_XXMULTIBINARY : public VR_XXTYPED {
 public:
  using VR_XXTYPED::VR_XXTYPED;

  // Copies the GetSize() bytes of value `index` to `out` and applies FromStorage to them.
  // False without a value, for an index at or past the number of values, or a null `out`.
  virtual bool Get(uint32_t index, void* out) const;
  // Copies GetSize() bytes of `value` into value `index` and applies ToStorage to them. An
  // index at or past the number of values first grows the value to (index + 1) values,
  // keeping the old bytes and zero-filling the new ones. False for a null `value` or when
  // memory runs out.
  virtual bool Set(uint32_t index, const void* value);
  virtual bool Get(void* out) const;
  virtual bool Set(const void* value);

  // Number of whole values: Length / GetSize().
  uint32_t GetCount() const;
};

class KESTREL_API VR_XXBINARY : public VR_XXMULTIBINARY {
 public:
  using VR_XXMULTIBINARY::VR_XXMULTIBINARY;
};

// The concrete classes. Each stores its own VR code in TypeCode when constructed; the second
// constructor adopts `data` like VR_XXTYPED's.
#define KESTREL_TYPED_CONSTRUCTORS(Class) \
  Class();                                \
  Class(uint16_t group, uint16_t element, uint32_t length = 0, void* data = nullptr);

class KESTREL_API VR_AS : public VR_XXSTRING {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_AS)
  uint32_t GetSize() const override;  // 4: "045Y"
  uint16_t GetTypeCode() const override;
};

class KESTREL_API VR_CS : public VR_XXSTRING {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_CS)
  uint16_t GetTypeCode() const override;
};

// Dates. Get returns a value of exactly 8 characters as it is and any other with its "."
// removed, so the old form "2004.01.31" reads as "20040131". Set drops the "." characters of
// its input (keeping at most 10 others) and stores the first 8 of what is left.
class KESTREL_API VR_DA : public VR_XXSTRING {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_DA)
  using VR_XXSTRING::Get;
  using VR_XXSTRING::Set;
  uint32_t GetSize() const override;  // 8
  uint16_t GetTypeCode() const override;
  bool Get(uint32_t index, std::string& out) const override;
  bool Set(uint32_t index, const std::string& value) override;
};

class KESTREL_API VR_DS : public VR_XXSTRING {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_DS)
  uint16_t GetTypeCode() const override;
};

class KESTREL_API VR_IS : public VR_XXSTRING {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_IS)
  uint16_t GetTypeCode() const override;
};

class KESTREL_API VR_LO : public VR_XXSTRING {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_LO)
  uint16_t GetTypeCode() const override;
};

// Person names. Get reads through a 200-byte work buffer: a value longer than 199 characters
// comes back cut there (a valid name has at most 3 x 64 characters and two "=").
//
// The two conversions turn a name as a person types it into the component form
// "Last^First^Middle^Prefix^Suffix" and back, with the components of the library's patient
// name parser. Case is kept. See docs/typed.md for every rule; in short:
//   "John Paul Doe"         -> "Doe^John^Paul"   (first, middle words, last)
//   "Doe, John Paul"        -> "Doe^John^Paul"   (last name before the comma)
//   "Doe, John, Jr."        -> "Doe^John^^^Jr."  (a second comma leads to the suffix)
//   "Dr. John Doe, Ph.D."   -> "Doe^John^^Dr.^Ph.D."  (a leading title is the prefix; a last
//                              comma followed only by degrees or generational words is the
//                              suffix)
//   "Doe"                   -> "Doe"             (a single word is the last name)
// and ComponentsToFreeForm gives "Last, Prefix First Middle, Suffix" with the empty parts left
// out ("Doe, Dr. John Paul, Ph.D."), which FreeFormToComponents reads back to the same
// components.
class KESTREL_API VR_PN : public VR_XXSTRING {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_PN)
  using VR_XXSTRING::Get;
  using VR_XXSTRING::Set;
  uint16_t GetTypeCode() const override;
  bool Get(uint32_t index, std::string& out) const override;
  virtual std::string FreeFormToComponents(const std::string& name) const;
  virtual std::string ComponentsToFreeForm(const std::string& name) const;

  // Set(0, FreeFormToComponents(name)) and its reverse.
  bool SetFreeForm(const std::string& name);
  bool GetFreeForm(std::string& out) const;
};

class KESTREL_API VR_SH : public VR_XXSTRING {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_SH)
  uint16_t GetTypeCode() const override;
};

class KESTREL_API VR_TM : public VR_XXSTRING {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_TM)
  uint16_t GetTypeCode() const override;
};

// UIDs are padded with a zero byte, not a blank: ToStorage turns trailing blanks into zeros.
class KESTREL_API VR_UI : public VR_XXSTRING {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_UI)
  uint16_t GetTypeCode() const override;
  bool ToStorage(uint32_t length, void* data) const override;
};

// Attribute tags. ToStorage and FromStorage reverse the bytes of a value: the halves are
// swapped, then each half the same way, down to single bytes (4 bytes: order 3 2 1 0).
class KESTREL_API VR_AT : public VR_XXBINARY {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_AT)
  uint32_t GetSize() const override;  // 4
  uint16_t GetTypeCode() const override;
  bool ToStorage(uint32_t length, void* data) const override;
  bool FromStorage(uint32_t length, void* data) const override;
};

class KESTREL_API VR_FD : public VR_XXBINARY {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_FD)
  uint32_t GetSize() const override;  // 8
  uint16_t GetTypeCode() const override;
};

// Words, counted in bytes: the width is 1, so indexes count bytes.
class KESTREL_API VR_OW : public VR_XXBINARY {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_OW)
  uint32_t GetSize() const override;  // 1
  uint16_t GetTypeCode() const override;
};

// An "OB or OW" value (Pixel Data) or another "other" VR: it keeps the VR it actually has. Its
// width is 2 when that is OW, else 1.
class KESTREL_API VR_OX : public VR_XXBINARY {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_OX)
  uint32_t GetSize() const override;
  uint16_t GetTypeCode() const override;  // OXTypeCode
  // Sets both OXTypeCode and TypeCode.
  void SetOXTypeCode(uint16_t typeCode);

  uint16_t OXTypeCode;  // "OW" unless told otherwise
};

class KESTREL_API VR_SL : public VR_XXBINARY {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_SL)
  uint32_t GetSize() const override;  // 4
  uint16_t GetTypeCode() const override;
};

class KESTREL_API VR_SS : public VR_XXBINARY {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_SS)
  uint32_t GetSize() const override;  // 2
  uint16_t GetTypeCode() const override;
};

class KESTREL_API VR_UL : public VR_XXBINARY {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_UL)
  uint32_t GetSize() const override;  // 4
  uint16_t GetTypeCode() const override;
};

class KESTREL_API VR_US : public VR_XXBINARY {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_US)
  uint32_t GetSize() const override;  // 2
  uint16_t GetTypeCode() const override;
};

// "US or SS": 16-bit values whose signedness Pixel Representation decides. GetTypeCode is SS
// when TypeCode says SS, else US (the constructor sets US).
class KESTREL_API VR_XS : public VR_XXBINARY {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_XS)
  uint32_t GetSize() const override;  // 2
  uint16_t GetTypeCode() const override;
};

// One text value (LT, ST) or a sequence (SQ): no indexed access. LT and ST pad and trim like
// the other texts; set them with SetValue.
class KESTREL_API VR_LT : public VR_XXTYPED {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_LT)
  uint16_t GetTypeCode() const override;
  bool ToStorage(uint32_t length, void* data) const override;
  bool FromStorage(uint32_t length, void* data) const override;
};

class KESTREL_API VR_ST : public VR_XXTYPED {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_ST)
  uint16_t GetTypeCode() const override;
  bool ToStorage(uint32_t length, void* data) const override;
  bool FromStorage(uint32_t length, void* data) const override;
};

class KESTREL_API VR_SQ : public VR_XXTYPED {
 public:
  KESTREL_TYPED_CONSTRUCTORS(VR_SQ)
  uint16_t GetTypeCode() const override;
};

#undef KESTREL_TYPED_CONSTRUCTORS
