#pragma once

// The query/retrieve levels and the row layouts of the patient-root and study-root queries:
// which attribute fills which slot of a CResult at each level.

#include <cstdint>
#include <string>

namespace KESTREL::query_layouts {

enum class Root { kPatient, kStudy };
// In the order of the hierarchy (PS3.4 C.6.1, C.6.2).
enum class Level { kNone = 0, kPatient = 1, kStudy = 2, kSeries = 3, kImage = 4 };

struct Attribute {
  uint16_t group;  // 0: a slot that is never filled
  uint16_t element;
  const char* vr;
  const char* keyword;
};

struct Layout {
  const Attribute* slots = nullptr;
  int size = 0;  // 0: the root has no such level
};

// The level whose keyword ("PATIENT", "STUDY", "SERIES", "IMAGE") occurs in `text`, looked for
// in that order; kNone when none does.
Level LevelOf(const std::string& text);
// "PATIENT", "STUDY", "SERIES", "IMAGE", or "" for kNone.
const char* LevelKeyword(Level level);
Layout RowLayout(Root root, Level level);

}  // namespace KESTREL::query_layouts
