#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kestrel/Export.h"

// One tag of a loaded dictionary; Entries[i] belongs to Keys[i] of its table.
struct RTCEntry {
  uint16_t Group = 0;
  uint16_t Element = 0;
  uint16_t TypeCode = 0;  // packed like VR::TypeCode: "UI" is 0x5549
  uint16_t Reserved = 0;  // always 0
  // Keyword or description, or null when there is none or descriptions were not kept.
  // Points into RTCTable::Strings; never deleted on its own.
  const char* Text = nullptr;
};

// A loaded dictionary. Keys[i] is (Group << 16) | Element of Entries[i]; the first Count keys are
// strictly ascending, so no key appears twice. Capacity is the room made at load time and may
// exceed Count when duplicate lines were merged.
struct RTCTable {
  uint32_t Capacity = 0;
  uint32_t Count = 0;
  std::unique_ptr<uint32_t[]> Keys;
  std::unique_ptr<RTCEntry[]> Entries;
  std::unique_ptr<char[]> Strings;  // every entry's Text, one NUL-terminated string each
};

// The data dictionary: tag -> two-letter VR and, when KeepDescriptions is set at load time, the
// keyword or description. Its use is to give elements read from implicit VR streams a TypeCode.
// Nothing attaches a dictionary by default: a codec without one reads implicit VR elements with
// TypeCode 0. When such an element is written in an explicit VR syntax, its VR is taken from
// the installed dictionary (GetInstalledRTC) instead.
//
// Files are recognised by their first line. One whose first eight characters are "#!BinRTC" is the
// binary form written by CompileDictionary. Anything else is read as text, one line at a time,
// each line cut after 1019 characters (the rest of that line is dropped, never read as a line of
// its own). Only lines beginning with "(" or "{" are used:
//
//   (0008,0016) VR="UI" Keyword="SOPClassUID"
//   {0x0008, 0x0016, UI, "SOP Class UID"}
//
// The tag form needs the VR marker; without it the line is ignored. In the brace form the group
// and element are decimal or 0x-prefixed hexadecimal, the description is quoted with a backslash
// making the next character literal, and the fields may continue over following lines (a line
// break inside the description is kept as '\n'). A line beginning with "(" or "{" always starts a
// new entry: an unfinished brace entry before it is dropped. Malformed entries are skipped.
//
// Duplicate tags in a text file: the LAST line wins, so a local file appended to the shipped one
// overrides its entries.
//
// Not thread-safe for loading; lookups on a loaded dictionary may run concurrently.
class KESTREL_API RTC {
 public:
  // Loads `path` when it is not null; check GetTable() or a lookup to see whether that worked.
  explicit RTC(bool keepDescriptions = false, const char* path = nullptr);
  ~RTC();

  RTC(const RTC&) = delete;
  RTC& operator=(const RTC&) = delete;

  // True when a table was loaded; false when `path` is null, the file cannot be opened, holds no
  // usable entry, is a damaged binary image, or memory ran out. Any earlier table is discarded
  // first, so after a failure nothing is loaded and every lookup gives 0.
  bool Load(const char* path);

  // The VR code of the tag, or 0 when the tag is unknown or nothing is loaded. When `text` is
  // given it receives the keyword or description, or "" when there is none or the tag is
  // unknown. Allocates nothing when `text` is null.
  uint16_t GetTypeCode(uint16_t group, uint16_t element, std::string* text = nullptr) const;

  // The loaded table, or null when nothing is loaded. Owned by this object; valid until the next
  // Load or its destruction.
  const RTCTable* GetTable() const { return table_.get(); }

  // Read by Load: whether keywords and descriptions are kept in memory.
  int32_t KeepDescriptions;

 private:
  std::unique_ptr<RTCTable> table_;
};

// The data dictionary installed with the library, loaded on first use and kept for the life of
// the process (never delete it); null when none was found. It is the file named by the
// environment variable KESTREL_DICTIONARY when that is set, else share/kestrel/dicom.bin (or
// dicom.dic) of the tree the library was installed or built into, found relative to the
// library file itself. Lookups may run on any thread.
KESTREL_API const RTC* GetInstalledRTC();
// The file GetInstalledRTC loaded, or "" when it found none.
KESTREL_API std::string GetInstalledRTCPath();

// Compiles a text dictionary (or re-writes a binary one) at `textPath` into the binary form at
// `binaryPath`, keeping keywords and descriptions. True on success; on failure no partial
// output file is left behind.
KESTREL_API bool CompileDictionary(const char* textPath, const char* binaryPath);
