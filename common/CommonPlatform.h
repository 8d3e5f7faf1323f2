#pragma once

// The few operating system services the common library stand-in needs. Linux bodies live in
// CommonPlatform_posix.cpp.

#include <string>

namespace KESTREL::common {

// Looks `name` up in the settings file's "SOFTWARE\Vexa Medical\Vexa\Settings" section, fresh
// from the file on every call. False when the file, the section or the value is missing.
[[nodiscard]] bool ReadSetting(const std::string& name, std::string* value);

// The file the settings are read from: $KESTREL_SETTINGS, else /etc/kestrel/settings.ini.
std::string SettingsFilePath();

// Appends `line` to the file at `path` in one write. False when it cannot be opened or written.
[[nodiscard]] bool AppendToFile(const std::string& path, const std::string& line);

// Writes `line` to standard error in one write.
void WriteToStandardError(const std::string& line);

// Local time now as "YYYY-MM-DD HH:MM:SS.mmm".
std::string LocalTimestamp();

// The operating system's text for an error number.
std::string ErrorText(int errorCode);

}  // namespace KESTREL::common
