#include "kestrel/CBasicRecordset.h"

#include <cxxabi.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>
#include <typeinfo>

#include "kestrel/Status.h"
#include "vxCommon.h"

namespace {

constexpr int kTries = 100;
constexpr int kErrorLevel = 1;

// Callers and logs match on these texts; note the two blanks before the driver's message.
constexpr char kOpenMessage[] = "KESTREL.dll : CBasicRecordSet::Open():  ";
constexpr char kMoveMessage[] = "KESTREL.dll : CBasicRecordSet::Move():  ";
constexpr char kAddNewMessage[] = "KESTREL.dll : CBasicRecordSet::AddNew():  ";
constexpr char kEditMessage[] = "KESTREL.dll : CBasicRecordSet::Edit():  ";
constexpr char kRequeryFailed[] = "Requery failed!  Giving up....";

std::string TypeName(const std::type_info& type) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> readable(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  return status == 0 && readable ? readable.get() : type.name();
}

std::string Printed(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Printed(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list sizing;
  va_copy(sizing, args);
  const int length = std::vsnprintf(nullptr, 0, format, sizing);
  va_end(sizing);
  std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(&text[0], text.size() + 1, format, args);
  va_end(args);
  return text;
}

// A failure that is no database failure: what it was, where, and the operation's arguments,
// closed by a footer. `line` is the line of the wrapped call.
void LogOtherFailure(const std::string& typeName, const std::string& what, int line,
                     const char* operation, const std::string& arguments) {
  Log("ERROR [" + typeName + "] " + what, kErrorLevel);
  Log("ERROR:", kErrorLevel);
  LogFileError("BasicRecordset, line " + std::to_string(line), kErrorLevel, 0);
  LogFunctionError(operation, kErrorLevel, "%s", arguments.c_str());
  LogFooter(kErrorLevel);
}

// The pause after a failed write: 11 ms plus 0 to 100 ms, drawn as the whole part of r / 32767
// x 100 for a 15-bit r. The generator is the operation's own, seeded from the clock, so that
// writers that failed together do not retry together and the host's rand() is left alone.
class BackOff {
 public:
  BackOff()
      : random_(static_cast<std::minstd_rand::result_type>(
            std::chrono::high_resolution_clock::now().time_since_epoch().count())) {}
  void Pause() {
    const unsigned r = static_cast<unsigned>(random_()) & 0x7FFFu;
    const int n = static_cast<int>(r / 32767.0 * 100);
    std::this_thread::sleep_for(std::chrono::milliseconds(11 + n));
  }

 private:
  std::minstd_rand random_;
};

}  // namespace

CBasicRecordset::CBasicRecordset(CDatabase* pDatabase) : CRecordset(pDatabase) {}

CBasicRecordset::~CBasicRecordset() = default;

void CBasicRecordset::KeepError(const CDBException& e) {
  const size_t capacity = ErrorTextCapacity > 0 ? static_cast<size_t>(ErrorTextCapacity) : 0;
  ErrorText = e.GetErrorMessage().substr(0, capacity);
}

void CBasicRecordset::ReportDatabaseError(const char* operationMessage, const CDBException& e) {
  KeepError(e);
  KESTREL::SetLastErrorText(operationMessage + ErrorText);
}

int CBasicRecordset::Open(unsigned nOpenType, const char* lpszSQL, uint32_t dwOptions) {
  // Always a dynaset: the sets move back and forth and change rows whatever their callers ask.
  const std::string arguments =
      Printed("%s, %s, %d", "dynaset", lpszSQL ? lpszSQL : "", static_cast<int>(dwOptions));
  try {
    return CRecordset::Open(dynaset, lpszSQL, dwOptions);
  } catch (const CDBException& e) {
    ReportDatabaseError(kOpenMessage, e);
  } catch (const std::exception& e) {
    LogOtherFailure(TypeName(typeid(e)), e.what(), __LINE__, "Open", arguments);
  } catch (...) {
    LogOtherFailure("unknown", "", __LINE__, "Open", arguments);
  }
  return 0;
}

void CBasicRecordset::Close() {
  try {
    CRecordset::Close();
  } catch (const std::exception& e) {
    LogOtherFailure(TypeName(typeid(e)), e.what(), __LINE__, "Close", "");
  } catch (...) {
    LogOtherFailure("unknown", "", __LINE__, "Close", "");
  }
}

void CBasicRecordset::Move(long rows, unsigned short fetchType) {
  try {
    CRecordset::Move(rows, fetchType);
  } catch (const CDBException& e) {
    ReportDatabaseError(kMoveMessage, e);
  } catch (const std::exception& e) {
    LogOtherFailure(TypeName(typeid(e)), e.what(), __LINE__, "Move",
                    Printed("%ld, %d", rows, static_cast<int>(fetchType)));
  } catch (...) {
    LogOtherFailure("unknown", "", __LINE__, "Move",
                    Printed("%ld, %d", rows, static_cast<int>(fetchType)));
  }
}

void CBasicRecordset::AddNew() {
  try {
    CRecordset::AddNew();
  } catch (const CDBException& e) {
    ReportDatabaseError(kAddNewMessage, e);
  } catch (const std::exception& e) {
    LogOtherFailure(TypeName(typeid(e)), e.what(), __LINE__, "AddNew", "");
  } catch (...) {
    LogOtherFailure("unknown", "", __LINE__, "AddNew", "");
  }
}

void CBasicRecordset::Edit() {
  try {
    CRecordset::Edit();
  } catch (const CDBException& e) {
    ReportDatabaseError(kEditMessage, e);
  } catch (const std::exception& e) {
    LogOtherFailure(TypeName(typeid(e)), e.what(), __LINE__, "Edit", "");
  } catch (...) {
    LogOtherFailure("unknown", "", __LINE__, "Edit", "");
  }
}

int CBasicRecordset::Update() {
  BackOff backOff;
  int result = 0;
  for (int budget = kTries; budget > 0 && !result;) {
    // Nothing waits to be written (never begun, or written by an earlier try): done.
    if (!IsWritePending()) {
      result = 1;
      break;
    }
    try {
      // A write of nothing (no field changed) counts as success as well.
      CRecordset::Update();
      result = 1;
    } catch (const CDBException& e) {
      KeepError(e);
      --budget;
      backOff.Pause();
    } catch (const std::exception& e) {
      LogOtherFailure(TypeName(typeid(e)), e.what(), __LINE__, "Update", "");
      return 0;
    } catch (...) {
      LogOtherFailure("unknown", "", __LINE__, "Update", "");
      return 0;
    }
  }
  return result;
}

void CBasicRecordset::Delete() {
  BackOff backOff;
  for (int budget = kTries; budget > 0;) {
    // The row is deleted already, by an earlier try or by someone else meanwhile.
    if (IsDeleted()) return;
    try {
      CRecordset::Delete();
      return;
    } catch (const CDBException& e) {
      KeepError(e);
      --budget;
      backOff.Pause();
    } catch (const std::exception& e) {
      LogOtherFailure(TypeName(typeid(e)), e.what(), __LINE__, "Delete", "");
      return;
    } catch (...) {
      LogOtherFailure("unknown", "", __LINE__, "Delete", "");
      return;
    }
    if (GetOpenOptions() & executeDirect) continue;
    // Read the rows again so that the next try sees what other writers did; the set keeps
    // standing on the row it is to delete (a plain requery would put it on the first row).
    try {
      RequeryKeepingRow();
    } catch (...) {
      Log(kRequeryFailed, kErrorLevel);
      return;
    }
  }
}
