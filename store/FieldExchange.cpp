#include <cstdint>

#include "Binding.h"
#include "kestrel/CRecordset.h"

using KESTREL::store::Binding;
using KESTREL::store::Cell;
using KESTREL::store::FieldType;

namespace {

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

}  // namespace

DBDateTime::DBDateTime(int year, int month, int day, int hour, int minute, int second,
                       uint32_t fraction)
    : Year(year),
      Month(month),
      Day(day),
      Hour(hour),
      Minute(minute),
      Second(second),
      Fraction(fraction) {
  const bool inRange = year >= 1 && year <= 9999 && month >= 1 && month <= 12 && day >= 1 &&
                       day <= DaysInMonth(year, month) && hour >= 0 && hour <= 23 && minute >= 0 &&
                       minute <= 59 && second >= 0 && second <= 59 && fraction < 1000000000u;
  status = inRange ? valid : invalid;
}

bool DBDateTime::operator==(const DBDateTime& other) const {
  if (status != other.status) return false;
  if (status == null) return true;
  return Year == other.Year && Month == other.Month && Day == other.Day && Hour == other.Hour &&
         Minute == other.Minute && Second == other.Second && Fraction == other.Fraction;
}

void CFieldExchange::Text(const char* column, std::string& value, int maxLength) {
  sink_->bindings.push_back(Binding{column, FieldType::kText, &value,
                                    maxLength > 0 ? static_cast<size_t>(maxLength) : 0});
}

void CFieldExchange::Long(const char* column, int32_t& value) {
  sink_->bindings.push_back(Binding{column, FieldType::kLong, &value, 0});
}

void CFieldExchange::Int(const char* column, int& value) {
  sink_->bindings.push_back(Binding{column, FieldType::kInt, &value, 0});
}

void CFieldExchange::Double(const char* column, double& value) {
  sink_->bindings.push_back(Binding{column, FieldType::kDouble, &value, 0});
}

void CFieldExchange::DateTime(const char* column, DBDateTime& value) {
  sink_->bindings.push_back(Binding{column, FieldType::kDateTime, &value, 0});
}

namespace KESTREL::store {

Cell CellOfMember(const Binding& binding, bool nullFlag) {
  Cell cell;
  switch (binding.type) {
    case FieldType::kText:
      cell.text = *static_cast<const std::string*>(binding.address);
      break;
    case FieldType::kLong:
      cell.integer = *static_cast<const int32_t*>(binding.address);
      break;
    case FieldType::kInt:
      cell.integer = *static_cast<const int*>(binding.address);
      break;
    case FieldType::kBigInt:
      cell.integer = *static_cast<const int64_t*>(binding.address);
      break;
    case FieldType::kDouble:
      cell.real = *static_cast<const double*>(binding.address);
      break;
    case FieldType::kDateTime:
      cell.stamp = *static_cast<const DBDateTime*>(binding.address);
      // A date and time carries its own null status.
      cell.null = cell.stamp.status == DBDateTime::null;
      return cell;
  }
  // A field stays null while it holds the empty value it was given when it became null.
  cell.null = nullFlag && MemberIsEmpty(binding);
  return cell;
}

void SetMember(const Binding& binding, const Cell& cell) {
  switch (binding.type) {
    case FieldType::kText:
      *static_cast<std::string*>(binding.address) = cell.null ? std::string() : cell.text;
      return;
    case FieldType::kLong:
      *static_cast<int32_t*>(binding.address) = cell.null ? 0 : static_cast<int32_t>(cell.integer);
      return;
    case FieldType::kInt:
      *static_cast<int*>(binding.address) = cell.null ? 0 : static_cast<int>(cell.integer);
      return;
    case FieldType::kBigInt:
      *static_cast<int64_t*>(binding.address) = cell.null ? 0 : cell.integer;
      return;
    case FieldType::kDouble:
      *static_cast<double*>(binding.address) = cell.null ? 0.0 : cell.real;
      return;
    case FieldType::kDateTime:
      *static_cast<DBDateTime*>(binding.address) = cell.null ? DBDateTime() : cell.stamp;
      return;
  }
}

bool MemberIsEmpty(const Binding& binding) {
  switch (binding.type) {
    case FieldType::kText:
      return static_cast<const std::string*>(binding.address)->empty();
    case FieldType::kLong:
      return *static_cast<const int32_t*>(binding.address) == 0;
    case FieldType::kInt:
      return *static_cast<const int*>(binding.address) == 0;
    case FieldType::kBigInt:
      return *static_cast<const int64_t*>(binding.address) == 0;
    case FieldType::kDouble:
      return *static_cast<const double*>(binding.address) == 0.0;
    case FieldType::kDateTime:
      return static_cast<const DBDateTime*>(binding.address)->status == DBDateTime::null;
  }
  return true;
}

}  // namespace KESTREL::store
