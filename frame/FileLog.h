#pragma once

// The library's own file-error log: FILE.LOG in the "Log Dir" directory, one record per failed
// file operation, opened and closed for every record so that no writer ever holds it open.

#include <string>

#include "Platform.h"

namespace KESTREL {

// Appends "%d/%d/%d %d:%d:%d.%d %s: %s" with the local date and time (no zero padding), `text`
// (normally the file name) and the text of the calling thread's last OS error, which ends the
// line. Never reports its own failure: when the log cannot be opened the record is dropped.
void LogFileFailure(const std::string& text);
// The same with the OS error given.
void LogFileFailure(const std::string& text, int error);

// The path records go to: "Log Dir" followed by "/FILE.LOG". A missing value reads as "" and
// gives "/FILE.LOG". (A settings line holds at most 199 characters, less than the 260 bytes
// the value may have; a longer line reads as missing.)
std::string FileLogPath();

// The record for one failure.
std::string FormatFileLogRecord(const platform::LocalTime& time, const std::string& text,
                                const std::string& systemMessage);

// For tests: replaces the clock records are stamped with; null brings back the system clock.
using LocalTimeSource = platform::LocalTime (*)();
void SetFileLogClock(LocalTimeSource source);

}  // namespace KESTREL
