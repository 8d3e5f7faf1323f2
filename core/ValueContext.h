#pragma once

// What decides the VR of an element that does not carry its own: the dictionary, and for the
// attributes whose VR depends on the data set the values met so far at this level or an
// enclosing one: Pixel Representation for "US or SS" (PS3.5 6.2), the private creators for
// private attributes (PS3.5 7.8.1).

#include <cstdint>
#include <map>
#include <string>

class RTC;
class VR;

struct ValueContext {
  int pixelRepresentation = -1;  // (0028,0103): 0 unsigned, 1 signed, -1 not met
  // The private creators met: (group << 8 | block) -> the creator's name, blanks trimmed.
  std::map<uint32_t, std::string> creators;

  // Takes note of an element just read or written at this level.
  void Note(const VR* element);
};

// Sets a codec's context for one level of a data set (the data set, or one item) and puts the
// enclosing level's back when the level ends: an item sees what its data set has said unless it
// says otherwise itself.
class ContextLevel {
 public:
  explicit ContextLevel(ValueContext& context) : context_(context), saved_(context) {}
  ~ContextLevel() { context_ = saved_; }
  ContextLevel(const ContextLevel&) = delete;
  ContextLevel& operator=(const ContextLevel&) = delete;

 private:
  ValueContext& context_;
  ValueContext saved_;
};

// The VR of (group,element) for an element whose stream did not say: the dictionary's (the
// library's installed one when `dictionary` is null), refined where PS3.6 lists a choice:
//   - "US or SS": SS when Pixel Representation is 1, else US; the LUT descriptors are US;
//   - "OB or OW" (pixel data, overlay data ...): the dictionary's OW, as implicit VR has it
//     (PS3.5 A.1) and as DCMTK writes it;
//   - LUT data ("US or OW"): OW;
//   - a private creator (gggg,0010-00FF of an odd group): LO (PS3.5 7.8.1);
//   - a private attribute of a creator met before: the private dictionary's VR;
//   - a group length (gggg,0000): UL.
// 0 when nothing tells.
uint16_t ResolveTypeCode(const RTC* dictionary, uint16_t group, uint16_t element,
                         const ValueContext& context);
