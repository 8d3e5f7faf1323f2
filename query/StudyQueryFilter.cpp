// The study query over the local image database: the caller's study keys as the filter of the
// joined Study and Patient record set, and its rows as STUDY rows of the study-root layout.
#include <memory>
#include <string>

#include "StudyRows.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/CStudyRootQuery.h"
#include "kestrel/RecordSets.h"

namespace {

constexpr char kLike[] = "Like";
constexpr char kEscape[] = "ESCAPE '\\' ";

void DoubleQuotes(std::string& text) {
  std::string doubled;
  for (char c : text) doubled += c == '\'' ? std::string("''") : std::string(1, c);
  text = doubled;
}

bool HasWildcard(const std::string& text) { return text.find_first_of("*?") != std::string::npos; }

// The "%", "_" and "\" of a key are literal characters in its LIKE pattern; "?" is the one
// character wild card, "_" (the "*" are left to ReplaceWildcard).
void EscapeForLike(std::string& text) {
  std::string escaped;
  for (char c : text) {
    if (c == '%' || c == '_' || c == '\\') escaped += '\\';
    escaped += c == '?' ? '_' : c;
  }
  text = escaped;
}

std::string* NewText(const std::string& text) { return new std::string(text); }

}  // namespace

void CStudyRootQuery::ReplaceWildcard(std::string& text) {
  size_t star;
  while (!text.empty() && (star = text.find('*')) != std::string::npos) text.replace(star, 1, "%");
}

void CStudyRootQuery::AddParameter(std::string& filter, std::string& column, std::string& op,
                                   std::string& value) {
  if (value.empty() || value == "%") return;
  if (!filter.empty()) filter += " AND ";
  filter += column + " " + op + " '" + value + "' ";
}

std::string CStudyRootQuery::ConstructStudyQueryFilter(
    std::string studyInstanceUID, std::string patientID, std::string patientName,
    std::string accessionNumber, std::string studyID, std::string referringPhysicianName,
    std::string dateFrom, std::string dateTo, std::string studyDescription,
    const std::string& further) {
  struct Condition {
    const char* column;
    std::string* key;
    const char* fixedOperator;  // null: "=" or "Like" as the key holds wild cards or not
  };
  const Condition conditions[] = {
      {"[Study].StudyInstanceUID", &studyInstanceUID, "="},
      {"[Study].PatientID", &patientID, nullptr},
      {"[Patient].PatientsName", &patientName, nullptr},
      {"[Study].AccessionNumber", &accessionNumber, nullptr},
      {"[Study].StudyID", &studyID, nullptr},
      {"[Study].ReferringPhysiciansName", &referringPhysicianName, nullptr},
      {"[Study].StudyDate", &dateFrom, ">="},
      {"[Study].StudyDate", &dateTo, "<="},
      {"[Study].StudyDescription", &studyDescription, nullptr},
  };
  std::string filter;
  for (const Condition& condition : conditions) {
    std::string& key = *condition.key;
    DoubleQuotes(key);
    // A key that is just "%" goes through LIKE escaped too: AddParameter drops a bare "%" as
    // the universal key it is after ReplaceWildcard, but the user typed it as a character.
    const bool like = !condition.fixedOperator && (HasWildcard(key) || key == "%");
    if (like) {
      EscapeForLike(key);
      ReplaceWildcard(key);
    }
    std::string column = condition.column;
    std::string op = condition.fixedOperator ? condition.fixedOperator : like ? kLike : "=";
    const size_t before = filter.size();
    AddParameter(filter, column, op, key);
    if (like && filter.size() != before) filter += kEscape;
  }
  if (!further.empty()) filter += (filter.empty() ? "" : " AND ") + further;
  return filter;
}

namespace KESTREL::study_rows {

void AddRows(CStudyQuerySet& studies, CResultsArray* results) {
  for (; !studies.IsEOF(); studies.MoveNext()) {
    if (!results) continue;
    auto row = std::make_unique<CResult>();
    row->SetSize(CStudyRootQuery::kStudyResultSize);
    const std::pair<int, const std::string*> values[] = {
        {CStudyRootQuery::kStudyInstanceUID, &studies.StudyInstanceUID},
        {CStudyRootQuery::kStudyID, &studies.StudyID},
        {CStudyRootQuery::kStudyDate, &studies.StudyDate},
        {CStudyRootQuery::kStudyTime, &studies.StudyTime},
        {CStudyRootQuery::kAccessionNumber, &studies.AccessionNumber},
        {CStudyRootQuery::kReferringPhysicianName, &studies.ReferringPhysiciansName},
        {CStudyRootQuery::kModalitiesInStudy, &studies.Modality},
        {CStudyRootQuery::kStudyDescription, &studies.StudyDescription},
        {CStudyRootQuery::kInstitutionalDepartmentName, &studies.InstitutionalDepartmentName},
        {CStudyRootQuery::kPatientName, &studies.PatientsName},
        {CStudyRootQuery::kPatientID, &studies.PatientPatientID},
        {CStudyRootQuery::kPatientBirthDate, &studies.PatientsBirthDate},
        {CStudyRootQuery::kPatientSex, &studies.PatientsSex},
    };
    for (const auto& [slot, value] : values)
      if (!studies.IsFieldNull(value)) row->SetAt(slot, NewText(*value));
    results->Add(row.release());
  }
}

}  // namespace KESTREL::study_rows
