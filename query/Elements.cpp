#include "Elements.h"

#include <cstring>
#include <new>

#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/KeyMatching.h"

namespace KESTREL::query_elements {

uint16_t TypeCodeOf(const char* vr) { return MakeTypeCode(vr[0], vr[1]); }

std::string Text(const VR* element) {
  if (!element || !element->Data || !element->Length) return std::string();
  return KESTREL::TrimPadding(
      std::string(static_cast<const char*>(element->Data), element->Length));
}

VR* NewText(uint16_t group, uint16_t element, const std::string& unpadded, const char* vr) {
  // The codec pads odd DA and DT values (date ranges) with a zero byte, which peers then read
  // as part of the range; PS3.5 6.2 pads every text VR but UI with a space.
  std::string value = unpadded;
  if ((value.size() & 1) && std::strcmp(vr, "UI") != 0) value += ' ';
  char* data = nullptr;
  if (!value.empty()) {
    data = new (std::nothrow) char[value.size()];
    if (!data) return nullptr;
    std::memcpy(data, value.data(), value.size());
  }
  auto* text = new (std::nothrow) VR(group, element, static_cast<uint32_t>(value.size()), data);
  if (!text) {
    delete[] data;
    return nullptr;
  }
  text->TypeCode = TypeCodeOf(vr);
  return text;
}

bool PushText(DICOMObject* target, uint16_t group, uint16_t element, const std::string& value,
              const char* vr) {
  std::unique_ptr<VR> text(NewText(group, element, value, vr));
  if (!text || !target->Push(text.get())) return false;
  text.release();
  return true;
}

bool PushSequence(DICOMObject* target, uint16_t group, uint16_t element,
                  std::unique_ptr<DICOMDataObject> item) {
  auto sequence = std::unique_ptr<VR>(new (std::nothrow) VR(group, element, 0, false));
  if (!sequence) return false;
  sequence->TypeCode = TypeCodeOf("SQ");
  if (!target->Push(sequence.get())) return false;
  sequence.release();
  if (!target->PushItem(item.get())) return false;
  item.release();
  return true;
}

DICOMDataObject* FirstItem(const VR* element) {
  if (!element || !element->SequenceItems || !element->SequenceItems->GetSize()) return nullptr;
  return element->SequenceItems->Get(0);
}

bool ExpandSequence(VR* element) {
  if (!element) return false;
  if (element->SequenceItems || !element->Data || !element->Length) return true;
  DICOMCodec codec;
  return codec.ExpandSequenceValue(element);
}

}  // namespace KESTREL::query_elements
