#include "QueryRequest.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "Elements.h"
#include "FindClient.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/RTC.h"

namespace el = KESTREL::query_elements;

namespace KESTREL::query_request {

namespace {

using KESTREL::query_layouts::Layout;
using KESTREL::query_layouts::Level;

constexpr size_t kMaxKeyLength = 1024;
constexpr char kWriteFailure[] = "ERROR: Unable to write DICOM object.\r\n";

// The VR of a key the layouts do not name, from the installed dictionary: UI values are left
// for the codec to pad with a zero byte, all others get a blank (PS3.5 6.2).
std::string VROf(uint16_t group, uint16_t element) {
  const RTC* dictionary = GetInstalledRTC();
  uint16_t code = dictionary ? dictionary->GetTypeCode(group, element) : 0;
  if (!code) return "LO";
  return std::string{static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
}

// US values arrive as binary numbers; a row holds them in decimal, "\"-separated.
std::string UnsignedText(const VR* element) {
  std::string text;
  const auto* bytes = static_cast<const unsigned char*>(element->Data);
  for (uint32_t at = 0; bytes && at + 2 <= element->Length; at += 2) {
    uint16_t value;
    std::memcpy(&value, bytes + at, 2);
    text += (text.empty() ? "" : "\\") + std::to_string(value);
  }
  return text;
}

}  // namespace

int Requester::SetKey(uint16_t group, uint16_t element, const std::string& value) {
  if (group == 0x0000 || group == 0x0002 || (group == 0x0008 && element == 0x0052) ||
      value.size() > kMaxKeyLength)
    return 0;
  keys_[{group, element}] = value;
  return 1;
}

bool Requester::BuildIdentifier(Level level, DICOMDataObject* identifier) {
  std::map<std::pair<uint16_t, uint16_t>, std::pair<std::string, std::string>> asked;
  const Layout layout = KESTREL::query_layouts::RowLayout(root_, level);
  for (int slot = 0; slot < layout.size; ++slot) {
    const KESTREL::query_layouts::Attribute& attribute = layout.slots[slot];
    if (attribute.group) asked[{attribute.group, attribute.element}] = {"", attribute.vr};
  }
  for (const auto& [tag, value] : keys_) {
    auto known = asked.find(tag);
    asked[tag] = {value, known != asked.end() ? known->second.second : VROf(tag.first, tag.second)};
  }
  if (!el::PushText(identifier, 0x0008, 0x0052, KESTREL::query_layouts::LevelKeyword(level), "CS"))
    return false;
  for (const auto& [tag, entry] : asked)
    if (!el::PushText(identifier, tag.first, tag.second, entry.first, entry.second.c_str()))
      return false;
  return true;
}

int Requester::Query(StandardQuery& query, const std::string& level, const std::string& host,
                     const std::string& port, const std::string& callingAE,
                     const std::string& calledAE, KESTREL::KESTREL_STATUS* status) {
  const Level asked = KESTREL::query_layouts::LevelOf(level);
  DICOMDataObject identifier;
  if (!KESTREL::query_layouts::RowLayout(root_, asked).size ||
      !BuildIdentifier(asked, &identifier)) {
    KESTREL::SetLastErrorText(std::string(kWriteFailure) + "No query level of this model in \"" +
                              level + "\"\r\n");
    if (status) *status = KESTREL::KESTREL_STATUS_WRITE_FAILED;
    return 0;
  }
  KESTREL::query_client::FindAssociation association(true);
  if (!association.Open(query, host, port, callingAE, calledAE, status)) return 0;
  level_ = asked;
  if (!association.Find(query, &identifier, status)) return 0;
  association.Close(status);
  return 1;
}

void Requester::AddRow(DICOMDataObject* match) {
  const Layout layout = KESTREL::query_layouts::RowLayout(root_, level_);
  if (!results_ || !match || !layout.size) return;
  auto row = std::make_unique<CResult>();
  row->SetSize(layout.size);
  for (int slot = 0; slot < layout.size; ++slot) {
    const KESTREL::query_layouts::Attribute& attribute = layout.slots[slot];
    VR* element = attribute.group ? match->Find(attribute.group, attribute.element) : nullptr;
    if (!element) continue;
    const bool binary = std::strcmp(attribute.vr, "US") == 0;
    row->SetAt(slot, new std::string(binary ? UnsignedText(element) : el::Text(element)));
  }
  results_->Add(row.release());
}

int Requester::ResultSize(KESTREL::query_layouts::Root root, const std::string& level) {
  return KESTREL::query_layouts::RowLayout(root, KESTREL::query_layouts::LevelOf(level)).size;
}

const char* Requester::ResultName(KESTREL::query_layouts::Root root, const std::string& level,
                                  int slot, uint16_t* group, uint16_t* element) {
  const Layout layout =
      KESTREL::query_layouts::RowLayout(root, KESTREL::query_layouts::LevelOf(level));
  const bool inside = slot >= 0 && slot < layout.size;
  if (group) *group = inside ? layout.slots[slot].group : 0;
  if (element) *element = inside ? layout.slots[slot].element : 0;
  return inside ? layout.slots[slot].keyword : "";
}

}  // namespace KESTREL::query_request
