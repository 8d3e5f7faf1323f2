#include "QueryKeys.h"

#include <cstdio>
#include <vector>

#include "kestrel/DICOMObject.h"
#include "kestrel/RTC.h"

namespace {

bool ParseTag(std::string text, uint16_t& group, uint16_t& element) {
  if (text.size() == 11 && text.front() == '(' && text.back() == ')') text = text.substr(1, 9);
  unsigned g = 0, e = 0;
  char comma = 0, extra = 0;
  if (text.size() != 9 || std::sscanf(text.c_str(), "%4x%c%4x%c", &g, &comma, &e, &extra) != 3 ||
      comma != ',')
    return false;
  group = static_cast<uint16_t>(g);
  element = static_cast<uint16_t>(e);
  return true;
}

bool FindKeyword(const RTC* dictionary, const std::string& keyword, uint16_t& group,
                 uint16_t& element) {
  const RTCTable* table = dictionary ? dictionary->GetTable() : nullptr;
  if (!table) return false;
  for (uint32_t i = 0; i < table->Count; ++i) {
    const RTCEntry& entry = table->Entries[i];
    if (entry.Text && keyword == entry.Text) {
      group = entry.Group;
      element = entry.Element;
      return true;
    }
  }
  return false;
}

}  // namespace

bool ParseQueryKey(const std::string& text, const RTC* dictionary, QueryKey& key,
                   std::string& error) {
  size_t equals = text.find('=');
  std::string name = text.substr(0, equals);
  key.value = equals == std::string::npos ? std::string() : text.substr(equals + 1);
  if (ParseTag(name, key.group, key.element) ||
      FindKeyword(dictionary, name, key.group, key.element))
    return true;
  error = "unknown query key '" + name + "' (a keyword such as PatientName, or a tag gggg,eeee)";
  return false;
}

void AssignVRs(DICOMObject* object, const RTC* dictionary) {
  if (!object || !dictionary) return;
  std::vector<VR*> elements;
  while (VR* element = object->Pop()) elements.push_back(element);
  for (VR* element : elements) {
    if (element->TypeCode == 0 && element->Element != 0)
      element->TypeCode = element->SequenceItems
                              ? MakeTypeCode('S', 'Q')
                              : dictionary->GetTypeCode(element->Group, element->Element);
    if (element->SequenceItems)
      for (uint32_t i = 0; i < element->SequenceItems->GetSize(); ++i)
        AssignVRs(element->SequenceItems->Get(i), dictionary);
    if (element->Element == 0 || !object->Push(element)) delete element;
  }
}
