#pragma once

#include <string>

class RTC;

// The data dictionary the tool attaches: `path` when given, else the one installed with the
// library (GetInstalledRTCPath). Null when none could be loaded; the caller deletes the result.
RTC* LoadToolDictionary(const std::string& path, std::string& error);
