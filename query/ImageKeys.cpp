#include "ImageKeys.h"

#include <memory>

#include "ColumnRecordset.h"
#include "Elements.h"
#include "kestrel/CharacterSets.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/KeyMatching.h"

namespace el = KESTREL::query_elements;
namespace attr = KESTREL::image_attributes;

namespace KESTREL::image_keys {

namespace {

using KESTREL::query_layouts::Level;

constexpr size_t kMaxListInSql = 500;  // longer UID lists are matched row by row only

bool IsTag(const VR* element, uint16_t group, uint16_t number) {
  return element->Group == group && element->Element == number;
}

bool HasWildcard(const std::string& text) { return text.find_first_of("*?") != std::string::npos; }
bool IsUniversal(const std::string& key) { return key.find_first_not_of('*') == std::string::npos; }

bool Is(const char* vr, const char* other) { return vr[0] == other[0] && vr[1] == other[1]; }

std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> values;
  size_t start = 0;
  for (;;) {
    size_t end = text.find('\\', start);
    values.push_back(KESTREL::TrimPadding(text.substr(start, end - start)));
    if (end == std::string::npos) return values;
    start = end + 1;
  }
}

std::string Literal(const std::string& value) {
  std::string out = "'";
  for (char c : value) out += c == '\'' ? std::string("''") : std::string(1, c);
  return out + "'";
}

// A key as a LIKE pattern: "*" and "?" become "%" and "_"; the "%", "_" and "\" the key holds
// are literal characters, escaped with the "\" the condition names (ESCAPE '\').
std::string LikePattern(const std::string& key) {
  std::string pattern;
  for (char c : key) {
    if (c == '*') {
      pattern += '%';
    } else if (c == '?') {
      pattern += '_';
    } else {
      if (c == '%' || c == '_' || c == '\\') pattern += '\\';
      pattern += c;
    }
  }
  return pattern;
}

std::string Like(const std::string& column, const std::string& key, bool caseless, bool postgres) {
  return column + (caseless && postgres ? " ILIKE " : " LIKE ") + Literal(LikePattern(key)) +
         " ESCAPE '\\'";
}

bool IsDate(const std::string& text) {
  return text.size() == 8 && text.find_first_not_of("0123456789") == std::string::npos;
}

std::string DateCondition(const std::string& column, const std::string& key) {
  size_t dash = key.find('-');
  if (dash == std::string::npos) return IsDate(key) ? column + " = " + Literal(key) : "";
  std::string low = key.substr(0, dash), high = key.substr(dash + 1), sql;
  if (IsDate(low)) sql = column + " >= " + Literal(low);
  if (IsDate(high)) sql += (sql.empty() ? "" : " AND ") + column + " <= " + Literal(high);
  return sql;
}

std::string UIDCondition(const std::string& column, const std::string& key) {
  std::vector<std::string> uids = Split(key);
  if (HasWildcard(key) || uids.size() > kMaxListInSql) return std::string();
  if (uids.size() == 1) return column + " = " + Literal(uids[0]);
  std::string list;
  for (const std::string& uid : uids) list += (list.empty() ? "" : ", ") + Literal(uid);
  return column + " IN (" + list + ")";
}

// A condition true for every row the key matches (and maybe some more), or "" for none.
std::string Condition(const Key& key, bool postgres) {
  const attr::Attribute& attribute = *key.attribute;
  if (key.value.empty() || IsUniversal(key.value) || attribute.kind == attr::Kind::kCount)
    return std::string();
  const std::string column = attribute.columns[key.source];
  const char* vr = attribute.vr;
  if (Is(vr, "UI")) return UIDCondition(column, key.value);
  if (Is(vr, "DA")) return DateCondition(column, key.value);
  if (Is(vr, "TM") || Is(vr, "DT") || key.value.find('\\') != std::string::npos)
    return std::string();
  if (Is(vr, "PN")) return Like(column, key.value, true, postgres);
  if (attribute.kind == attr::Kind::kMulti) return std::string();
  return HasWildcard(key.value) ? Like(column, key.value, false, postgres)
                                : column + " = " + Literal(key.value);
}

const char* const kTableNames[] = {"[Patient]", "[Study]", "[Series]", "[Image]"};
// The column that names a row of each table, selected when no key is answered from it.
const char* const kTableKeys[] = {"[Patient].[PatientUID]", "[Study].[StudyInstanceUID]",
                                  "[Series].[SeriesInstanceUID]", "[Image].[SOPInstanceUID]"};

std::string Joined(const std::vector<std::string>& parts, const char* separator) {
  std::string text;
  for (const std::string& part : parts)
    if (!part.empty()) text += (text.empty() ? "" : separator) + part;
  return text;
}

std::vector<std::string> JoinConditions(const bool used[attr::kTables]) {
  std::vector<std::string> joins;
  if (used[attr::kPatient] && used[attr::kStudy])
    joins.push_back(attr::JoinCondition(attr::kPatient, attr::kStudy));
  if (used[attr::kStudy] && used[attr::kSeries])
    joins.push_back(attr::JoinCondition(attr::kStudy, attr::kSeries));
  if (used[attr::kSeries] && used[attr::kImage])
    joins.push_back(attr::JoinCondition(attr::kSeries, attr::kImage));
  else if (used[attr::kStudy] && used[attr::kImage])
    joins.push_back(attr::JoinCondition(attr::kStudy, attr::kImage));
  return joins;
}

}  // namespace

Request ReadRequest(DICOMDataObject* identifier) {
  Request request;
  const std::string charset = el::Text(identifier->Find(0x0008, 0x0005));
  while (VR* popped = identifier->Pop()) {
    std::unique_ptr<VR> element(popped);
    if (element->Element == 0) continue;  // group lengths
    if (IsTag(element.get(), 0x0008, 0x0052)) {
      request.level = KESTREL::query_layouts::LevelOf(el::Text(element.get()));
      continue;
    }
    if (IsTag(element.get(), 0x0008, 0x0005)) {
      request.askedCharacterSet = true;
      continue;
    }
    Key key;
    key.group = element->Group;
    key.element = element->Element;
    key.typeCode = element->TypeCode;
    key.sequence = element->SequenceItems || element->TypeCode == el::TypeCodeOf("SQ");
    if (!key.sequence) key.value = KESTREL::ToUTF8(el::Text(element.get()), charset);
    key.attribute = attr::FindAttribute(key.group, key.element);
    request.keys.push_back(std::move(key));
  }
  return request;
}

Statement BuildStatement(Request& request, bool postgres) {
  const attr::Table levelTable = attr::TableOf(request.level);
  bool used[attr::kTables] = {};
  used[levelTable] = true;
  std::vector<std::string> select, conditions;
  for (Key& key : request.keys) {
    if (!key.attribute || key.sequence) continue;
    key.source = attr::SourceTable(*key.attribute, request.level);
    if (key.source == attr::kTables) continue;
    used[key.source] = true;
    key.column = static_cast<int>(select.size());
    select.push_back(std::string(key.attribute->columns[key.source]) + " AS " +
                     KESTREL::query_records::ColumnRecordset::Name(select.size()));
    conditions.push_back(Condition(key, postgres));
  }
  if (select.empty()) select.push_back(std::string(kTableKeys[levelTable]) + " AS a0");
  // Patients reach series and images through their studies.
  if (used[attr::kPatient] && levelTable > attr::kStudy) used[attr::kStudy] = true;
  std::vector<std::string> tables;
  for (int table = 0; table < attr::kTables; ++table)
    if (used[table]) tables.push_back(kTableNames[table]);
  std::vector<std::string> joins = JoinConditions(used);
  conditions.insert(conditions.begin(), joins.begin(), joins.end());
  Statement statement;
  statement.sql = "SELECT " + Joined(select, ", ") + " FROM " + Joined(tables, ", ");
  statement.filter = Joined(conditions, " AND ");
  statement.columns = select.size();
  return statement;
}

bool KeyMatches(const Key& key, const std::string* value) {
  if (key.value.empty() || key.source == attr::kTables) return true;
  const char* vr = key.attribute->vr;
  const std::string stored = value ? AnswerText(*value) : std::string();
  const bool text = Is(vr, "LT") || Is(vr, "ST") || Is(vr, "UT");
  std::vector<std::string> keys = text ? std::vector<std::string>{key.value} : Split(key.value);
  std::vector<std::string> values = text || key.attribute->kind != attr::Kind::kMulti
                                        ? std::vector<std::string>{stored}
                                        : Split(stored);
  for (const std::string& one : keys)
    for (const std::string& candidate : values)
      if (KESTREL::MatchKey(one, candidate, vr)) return true;
  return false;
}

std::string AnswerText(const std::string& value) {
  return KESTREL::TrimPadding(KESTREL::ToUTF8(value, std::string()));
}

}  // namespace KESTREL::image_keys
