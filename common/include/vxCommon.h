#pragma once

// The common library: settings, the log, patient-identifier clean-up. The functions keep the
// names and argument shapes of the common library, so that another build of it could be linked
// in its place; everything the library needs from it is declared here and nothing else.
//
// Settings are read from the INI file named by $KESTREL_SETTINGS (else
// /etc/kestrel/settings.ini), section "SOFTWARE\Vexa Medical\Vexa\Settings", on every call.
// The log is `kestrel.log` in the "Log Dir" directory. When no directory is set or the file
// cannot be opened, lines of levels 1 and 2 go to standard error instead and the others are
// dropped: standard error belongs to the host program. Each call writes one line:
//   2004-01-05 09:03:07.045 [1] text

#include <string>

// The string value `name`, or "" when the file, the section or the value is missing. A
// non-zero `flag` also writes a line to the log when the value is missing.
std::string GetRegLocalMachineStr(const std::string& name, int flag);

// The integer value `name` (decimal, or hexadecimal with 0x), or 0 when it is missing or not a
// number. `flag` as for GetRegLocalMachineStr.
int GetRegLocalMachineInt(const std::string& name, int flag);

// One line at `level` (1 error, 2 warning, 3 information; other numbers are written as they
// are). Line ends inside `text` become blanks so that every call stays one line.
void Log(const std::string& text, int level);

// A failed file operation: `text` (normally the file name), logged at `level`, followed by the
// operating system's text for `errorCode` when that is not 0.
void LogFileError(const std::string& text, int level, int errorCode);

// A failed function: "`text`: " and the printf-style detail.
void LogFunctionError(const char* text, int level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Closes a group of lines written for one failure.
void LogFooter(int level);

// The core of a patient identifier, for matching identifiers written by different sites:
//   1. blanks (" ") at both ends are removed;
//   2. a leading run of ASCII letters followed by one separator (blank, '-', '_', '/', '.' or
//      ':') is removed, unless nothing would be left after it;
//   3. leading zeros are removed, but an identifier of zeros keeps its last one.
// So " UHN-000123 " becomes "123", "TGH 0045" becomes "45", "A0012" becomes "A0012".
std::string StripUHN(const std::string& patientId);
