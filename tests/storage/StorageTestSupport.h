#pragma once

// Sample files made on the fly: a pydicom sample with some elements replaced or removed,
// written into a directory of the test's own.

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "tests/frame/FrameTestSupport.h"
#include "tests/typed/TypedTestSupport.h"
#include "typed/ElementCopy.h"

namespace storage_test {

using kestrel_test::TempDir;

// A change to make to a sample: set an element to a text value, or remove it (value null).
struct Edit {
  uint16_t group, element;
  const char* vr;
  const char* value;                  // null: remove the element
  size_t length = std::string::npos;  // for values with zero bytes
};

// The sample `name` with `edits` applied, written to `path` in explicit VR little endian.
inline bool WriteVariant(const std::string& name, const std::vector<Edit>& edits,
                         const std::string& path) {
  std::unique_ptr<DICOMDataObject> sample = typed_test::LoadSample(name);
  if (!sample) return false;
  DICOMDataObject edited;
  (void)KESTREL::typed_copy::ForEachElement(sample.get(), [&](VR* element) {
    for (const Edit& edit : edits)
      if (edit.group == element->Group && edit.element == element->Element) return;
    (void)KESTREL::typed_copy::PushCopy(&edited, element);
  });
  for (const Edit& edit : edits) {
    if (!edit.value) continue;
    size_t length = edit.length == std::string::npos ? std::strlen(edit.value) : edit.length;
    char* data = new char[length ? length : 1];
    std::memcpy(data, edit.value, length);
    auto* element = new VR(edit.group, edit.element, uint32_t(length), data);
    element->TypeCode = MakeTypeCode(edit.vr[0], edit.vr[1]);
    if (!edited.Push(element)) delete element;
  }
  DICOMCodec codec;
  return codec.SaveFile(path.c_str(), 3, &edited, "1.2.840.10008.1.2.1");
}

}  // namespace storage_test
