#pragma once

// The exception of the database layer: a failure reported by the ODBC driver manager or a
// driver, or a misuse of a record set that the layer itself detects.

#include <exception>
#include <string>

#include "kestrel/Export.h"

class KESTREL_API CDBException : public std::exception {
 public:
  // `sqlState` is the five-character SQLSTATE of the first diagnostic record ("08001", "42P01",
  // "HY000" for failures found by the layer itself); `message` the diagnostic texts as the driver
  // wrote them, one record per line; `nativeError` the driver's own error number (0 when none).
  CDBException(std::string sqlState, std::string message, int nativeError = 0);
  ~CDBException() override;

  // The message, for logs and for the record sets' error text.
  const char* what() const noexcept override;

  const std::string& GetSQLState() const { return sqlState_; }
  const std::string& GetErrorMessage() const { return message_; }
  int GetNativeError() const { return nativeError_; }

 private:
  std::string sqlState_;
  std::string message_;
  int nativeError_;
};
