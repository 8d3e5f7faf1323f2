#pragma once

// Helpers shared by the typed and storage tests: sample files, and a text picture of a data
// object that two objects can be compared by.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "typed/ElementCopy.h"

namespace typed_test {

inline const std::string kSamples = "/usr/lib/python3/dist-packages/pydicom/data/test_files/";

inline bool HaveSamples() { return std::filesystem::exists(kSamples + "CT_small.dcm"); }

inline std::unique_ptr<DICOMDataObject> LoadSample(const std::string& name) {
  DICOMCodec codec;
  return std::unique_ptr<DICOMDataObject>(codec.LoadFile((kSamples + name).c_str()));
}

inline uint32_t Tag(const VR* element) {
  return (uint32_t{element->Group} << 16) | element->Element;
}

inline std::string VRText(uint16_t code) {
  if (!code) return "--";
  return std::string{static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
}

// The elements of a filling data object in tag order, group lengths left out. `keep` chooses
// the tags (all when empty).
inline std::vector<VR*> Sorted(DICOMObject* object, const std::set<uint32_t>& keep = {}) {
  std::vector<VR*> elements;
  (void)KESTREL::typed_copy::ForEachElement(object, [&](VR* element) {
    if (element->Element == 0) return;
    if (!keep.empty() && !keep.count(Tag(element))) return;
    elements.push_back(element);
  });
  std::sort(elements.begin(), elements.end(),
            [](const VR* a, const VR* b) { return Tag(a) < Tag(b); });
  return elements;
}

// One line per element: tag, VR (top level only when `topVR`), length and value bytes in hex;
// sequence items nested below. Elements that two objects share print the same lines exactly
// when tag, length, bytes and items agree.
inline void Describe(DICOMObject* object, std::string& out, bool topVR,
                     const std::set<uint32_t>& keep = {}, const std::string& indent = "") {
  for (VR* element : Sorted(object, keep)) {
    char head[64];
    std::snprintf(head, sizeof head, "%s(%04X,%04X) %s #%u ", indent.c_str(), element->Group,
                  element->Element,
                  topVR || !indent.empty() ? VRText(element->TypeCode).c_str() : "",
                  element->Length);
    out += head;
    if (!element->Data) {
      out += element->Length ? "<zeros>" : "";
    } else {
      const auto* bytes = static_cast<const unsigned char*>(element->Data);
      for (uint32_t i = 0; i < element->Length && i < 4096; ++i) {
        char hex[3];
        std::snprintf(hex, sizeof hex, "%02x", bytes[i]);
        out += hex;
      }
      if (element->Length > 4096) out += "...";
    }
    out += '\n';
    if (element->SequenceItems) {
      for (uint32_t i = 0; i < element->SequenceItems->GetSize(); ++i) {
        out += indent + "  item\n";
        Describe(element->SequenceItems->Get(i), out, true, {}, indent + "    ");
      }
    }
  }
}

inline std::string Describe(DICOMObject* object, const std::set<uint32_t>& keep = {},
                            bool topVR = false) {
  std::string out;
  Describe(object, out, topVR, keep);
  return out;
}

// Checks that every top-level element of `source` whose VR is known has the same VR in
// `copy`; returns the mismatches as text.
inline std::string VRMismatches(DICOMObject* source, DICOMObject* copy,
                                const std::set<uint32_t>& keep = {}) {
  std::string out;
  std::vector<VR*> copied = Sorted(copy, keep);
  for (VR* element : Sorted(source, keep)) {
    if (!element->TypeCode) continue;
    auto found = std::find_if(copied.begin(), copied.end(),
                              [&](const VR* other) { return Tag(other) == Tag(element); });
    if (found == copied.end() || (*found)->TypeCode != element->TypeCode) {
      char line[64];
      std::snprintf(line, sizeof line, "(%04X,%04X) %s -> %s\n", element->Group, element->Element,
                    VRText(element->TypeCode).c_str(),
                    found == copied.end() ? "absent" : VRText((*found)->TypeCode).c_str());
      out += line;
    }
  }
  return out;
}

}  // namespace typed_test
