#pragma once

#include <string>

class RTC;

// The data dictionary the tool attaches: `path` when given, else the one installed with the
// library (GetInstalledRTCPath). Null when none could be loaded; the caller deletes the result.
// With `keepKeywords` the keywords are kept for look-ups by name, and the text form beside an
// installed binary one is preferred (the binary form holds no keywords).
[[nodiscard]] RTC* LoadToolDictionary(const std::string& path, std::string& error,
                                      bool keepKeywords = false);
