// The provider side of the modality worklist: a C-FIND identifier turned into a selection of
// RIS orders, and each matching order into an answer holding the keys that were asked.
//
// The selection is made twice: the SQL filter narrows the orders by what a database compares
// the same way everywhere (the join, the modality, the start date, an exact patient ID or
// station AE title), and every key is then matched against the answer's own value by the
// rules of PS3.4 C.2.2.2, so that wild cards and case behave alike on every database.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Elements.h"
#include "WorklistMapping.h"
#include "kestrel/CDBException.h"
#include "kestrel/CDatabase.h"
#include "kestrel/CModalityWorklistQuery.h"
#include "kestrel/CWorklistOrderSet.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/FindProvider.h"
#include "kestrel/KeyMatching.h"
#include "kestrel/PDU_Service.h"

namespace el = KESTREL::query_elements;

namespace {

constexpr char kFailure[] = "KESTREL.dll : CModalityWorklistQuery::SearchOn() : ";

// One key of the identifier; a sequence key holds the keys of its first item.
struct Key {
  uint16_t group = 0;
  uint16_t element = 0;
  uint16_t typeCode = 0;
  std::string value;
  bool sequence = false;
  std::vector<Key> items;
};

bool IsStepSequence(uint16_t group, uint16_t element) {
  return group == KESTREL::worklist::kStepSequenceGroup &&
         element == KESTREL::worklist::kStepSequenceElement;
}

bool IsCharacterSet(const Key& key) { return key.group == 0x0008 && key.element == 0x0005; }

bool HasWildcard(const std::string& text) { return text.find_first_of("*?") != std::string::npos; }

// Takes the keys out of `object` (which is emptied); only the step sequence's item is looked
// into, other sequences are answered empty.
std::vector<Key> ReadKeys(DICOMObject* object, bool top) {
  std::vector<Key> keys;
  while (VR* popped = object->Pop()) {
    std::unique_ptr<VR> element(popped);
    if (element->Element == 0) continue;  // group lengths
    Key key;
    key.group = element->Group;
    key.element = element->Element;
    key.typeCode = element->TypeCode;
    key.sequence = element->SequenceItems || element->TypeCode == el::TypeCodeOf("SQ") ||
                   IsStepSequence(key.group, key.element);
    if (top && IsStepSequence(key.group, key.element)) (void)el::ExpandSequence(element.get());
    DICOMDataObject* item = el::FirstItem(element.get());
    if (key.sequence && item && top && IsStepSequence(key.group, key.element))
      key.items = ReadKeys(item, false);
    else if (!key.sequence)
      key.value = el::Text(element.get());
    keys.push_back(std::move(key));
  }
  return keys;
}

std::string Quoted(const std::string& value) {
  std::string out = "'";
  for (char c : value) out += c == '\'' ? std::string("''") : std::string(1, c);
  return out + "'";
}

bool IsDate(const std::string& text) {
  if (text.size() != 8) return false;
  for (char c : text)
    if (c < '0' || c > '9') return false;
  return true;
}

std::string SqlDate(int year, int month, int day) {
  char text[48];
  std::snprintf(text, sizeof text, "'%04d-%02d-%02d'", year, month, day);
  return text;
}

// The day after YYYYMMDD, as an SQL date literal.
std::string SqlNextDay(const std::string& date) {
  int year = std::stoi(date.substr(0, 4)), month = std::stoi(date.substr(4, 2));
  int day = std::stoi(date.substr(6, 2)) + 1;
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  int length = month >= 1 && month <= 12 ? kDays[month - 1] + (month == 2 && leap) : 31;
  if (day > length) {
    day = 1;
    if (++month > 12) {
      month = 1;
      ++year;
    }
  }
  return SqlDate(year, month, day);
}

// The start date key as SQL bounds on [StartDateTime] (a whole day for each bound); bounds
// that are not plain dates are left to the matching of the answers.
std::string DateCondition(const std::string& key) {
  size_t dash = key.find('-');
  std::string low = dash == std::string::npos ? key : key.substr(0, dash);
  std::string high = dash == std::string::npos ? key : key.substr(dash + 1);
  std::string sql;
  if (IsDate(low))
    sql += " AND [StartDateTime] >= " + SqlDate(std::stoi(low.substr(0, 4)),
                                                std::stoi(low.substr(4, 2)),
                                                std::stoi(low.substr(6, 2)));
  if (IsDate(high)) sql += " AND [StartDateTime] < " + SqlNextDay(high);
  return sql;
}

std::string StepCondition(const Key& key) {
  const std::string& value = key.value;
  if (value.empty()) return std::string();
  if (key.group == 0x0008 && key.element == 0x0060 && !HasWildcard(value)) {
    std::string ris;
    CModalityWorklistQuery::ConvertDICOM2RISModality(ris, value);
    return " AND [Modality] = " + Quoted(ris);
  }
  if (key.group == 0x0040 && key.element == 0x0001 && !HasWildcard(value))
    return " AND [StudyLocation] = " + Quoted(value);
  if (key.group == 0x0040 && key.element == 0x0002) return DateCondition(value);
  return std::string();
}

// The join of the order and patient tables, and the selection the database can make.
std::string BuildFilter(const std::vector<Key>& keys) {
  std::string filter = "[dbo].[OrderTable].[PatientID] = [dbo].[PatientTable].[PatientID]";
  for (const Key& key : keys) {
    if (IsStepSequence(key.group, key.element)) {
      for (const Key& item : key.items) filter += StepCondition(item);
    } else if (key.group == 0x0010 && key.element == 0x0020 && !key.value.empty() &&
               !HasWildcard(key.value)) {
      filter += " AND [dbo].[PatientTable].[PatientID] = " + Quoted(key.value);
    }
  }
  return filter;
}

bool KeyMatches(const Key& key, bool inStep, const CWorklistOrderSet& order) {
  if (key.value.empty()) return true;
  if (inStep && key.group == 0x0008 && key.element == 0x0060)
    return KESTREL::worklist::ModalityMatches(key.value, order);
  const KESTREL::worklist::Attribute* attribute =
      KESTREL::worklist::FindAttribute(key.group, key.element, inStep);
  // A key on an attribute the orders do not hold is not used for matching (PS3.4 C.2.2).
  return !attribute || KESTREL::MatchKey(key.value, attribute->value(order), attribute->vr);
}

bool Matches(const std::vector<Key>& keys, bool inStep, const CWorklistOrderSet& order) {
  for (const Key& key : keys) {
    bool ok = !inStep && IsStepSequence(key.group, key.element) ? Matches(key.items, true, order)
                                                                : KeyMatches(key, inStep, order);
    if (!ok) return false;
  }
  return true;
}

bool IsAscii(const std::string& text) {
  for (unsigned char c : text)
    if (c >= 0x80) return false;
  return true;
}

class WorklistMatches : public FindMatchSource {
 public:
  WorklistMatches(CModalityWorklistQuery& query, CDatabase* database, std::vector<Key> keys)
      : query_(query), orders_(database), keys_(std::move(keys)) {}

  // Reads the orders the filter selects; false with the last-error text when it failed.
  bool Open() {
    try {
      orders_.Filter = BuildFilter(keys_);
      orders_.Sort = "[StartDateTime], [OrderTableID]";
      orders_.Open();
      return true;
    } catch (const CDBException& e) {
      Fail(e);
      return false;
    }
  }

  DICOMDataObject* NextMatch() override {
    try {
      while (!orders_.IsEOF()) {
        bool match = Matches(keys_, false, orders_);
        std::unique_ptr<DICOMDataObject> answer(match ? BuildAnswer() : nullptr);
        orders_.MoveNext();
        if (answer) return answer.release();
        if (match) {  // an answer could not be built: out of memory
          failed_ = true;
          return nullptr;
        }
      }
    } catch (const CDBException& e) {
      Fail(e);
    }
    return nullptr;
  }

  uint16_t GetFailureStatus() override { return failed_ ? DIMSEStatus::kUnableToProcess : 0; }

 private:
  void Fail(const CDBException& e) {
    failed_ = true;
    KESTREL::SetLastErrorText(kFailure + e.GetErrorMessage());
  }

  // The element answering `key`: the mapped value, or an empty element for what the orders
  // do not hold.
  bool AddElement(DICOMObject* answer, const Key& key, bool inStep) {
    std::unique_ptr<VR> element(query_.MapElement(key.group, key.element, inStep, orders_));
    if (!element) {
      element.reset(el::NewText(key.group, key.element, std::string(), "UN"));
      if (!element) return false;
      element->TypeCode = key.sequence ? el::TypeCodeOf("SQ") : key.typeCode;
    } else if (ascii_) {
      ascii_ = IsAscii(el::Text(element.get()));
    }
    if (!answer->Push(element.get())) return false;
    element.release();
    return true;
  }

  bool AddStep(DICOMObject* answer, const Key& key) {
    auto item = std::make_unique<DICOMDataObject>();
    if (key.items.empty()) {
      size_t count = 0;
      const KESTREL::worklist::Attribute* all = KESTREL::worklist::StepAttributes(count);
      for (size_t i = 0; i < count; ++i) {
        Key universal;
        universal.group = all[i].group;
        universal.element = all[i].element;
        if (!AddElement(item.get(), universal, true)) return false;
      }
    }
    for (const Key& inner : key.items)
      if (!AddElement(item.get(), inner, true)) return false;
    return el::PushSequence(answer, key.group, key.element, std::move(item));
  }

  DICOMDataObject* BuildAnswer() {
    auto answer = std::make_unique<DICOMDataObject>();
    ascii_ = true;
    bool askedCharacterSet = false;
    for (const Key& key : keys_) {
      bool ok = true;
      if (IsCharacterSet(key))
        askedCharacterSet = true;
      else if (IsStepSequence(key.group, key.element))
        ok = AddStep(answer.get(), key);
      else
        ok = AddElement(answer.get(), key, false);
      if (!ok) return nullptr;
    }
    // The RIS database holds UTF-8 (ISO_IR 192, PS3.3 C.12.1.1.2); plain ASCII needs no term.
    if ((!ascii_ || askedCharacterSet) &&
        !el::PushText(answer.get(), 0x0008, 0x0005, ascii_ ? "" : "ISO_IR 192", "CS"))
      return nullptr;
    return answer.release();
  }

  CModalityWorklistQuery& query_;
  CWorklistOrderSet orders_;
  std::vector<Key> keys_;
  bool failed_ = false;
  bool ascii_ = true;
};

}  // namespace

void CModalityWorklistQuery::SetDatabase(CDatabase* pDatabase) { database_ = pDatabase; }

VR* CModalityWorklistQuery::MapElement(uint16_t group, uint16_t element, bool inStep,
                                       const CWorklistOrderSet& order) {
  const KESTREL::worklist::Attribute* attribute =
      KESTREL::worklist::FindAttribute(group, element, inStep);
  if (!attribute) return nullptr;
  return el::NewText(group, element, KESTREL::TrimPadding(attribute->value(order)), attribute->vr);
}

FindMatchSource* CModalityWorklistQuery::OpenSearch(DICOMDataObject* query) {
  if (!query) return nullptr;
  auto matches = std::make_unique<WorklistMatches>(*this, database_, ReadKeys(query, true));
  if (!matches->Open()) return nullptr;
  return matches.release();
}

int CModalityWorklistQuery::SearchOn(DICOMDataObject* query, Array<DICOMDataObject*>* matches) {
  std::unique_ptr<FindMatchSource> source(OpenSearch(query));
  if (!source || !matches) return 0;
  while (DICOMDataObject* match = source->NextMatch()) matches->Add(match);
  return source->GetFailureStatus() == 0;
}

int CModalityWorklistQuery::Answer(PDU_Service* pdu, DICOMCommandObject* request) {
  DICOMDataObject identifier;
  if (!pdu || !CFindRQ::Read(request, pdu, &identifier)) return 0;
  std::unique_ptr<FindMatchSource> source(OpenSearch(&identifier));
  if (!source) return CFindRSP::Write(pdu, request, DIMSEStatus::kUnableToProcess, nullptr);
  return KESTREL::AnswerFind(pdu, request, *source);
}
