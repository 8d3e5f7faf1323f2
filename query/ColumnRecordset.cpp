#include "ColumnRecordset.h"

namespace KESTREL::query_records {

ColumnRecordset::ColumnRecordset(CDatabase* database, size_t columns)
    : CRecordset(database), values_(columns) {
  for (size_t i = 0; i < columns; ++i) names_.push_back(Name(i));
  SetDefaultType(forwardOnly);
}

std::string ColumnRecordset::GetDefaultConnect() {
  return SharedOrDefaultConnect("ODBC;DSN=DICOMServer;UID=admin");
}

void ColumnRecordset::DoFieldExchange(CFieldExchange* pFX) {
  for (size_t i = 0; i < values_.size(); ++i) pFX->Text(names_[i].c_str(), values_[i]);
}

const std::string* ColumnRecordset::Value(size_t column) const {
  if (column >= values_.size() || IsFieldNull(&values_[column])) return nullptr;
  return &values_[column];
}

}  // namespace KESTREL::query_records
