#pragma once

// Where the library's messages for the user go. A library must not open windows, so the places
// that would show a message box hand the text to the notifier instead; a host program with a
// user interface replaces it to show the text its own way.

#include <string>

#include "kestrel/Export.h"

namespace KESTREL {

// Called with the whole text, possibly from any thread that uses the library; it must not
// throw.
using NotifyHandler = void (*)(const std::string& text);

// Writes the text to standard error and to the common log.
KESTREL_API void DefaultNotifier(const std::string& text);

// Makes `handler` the process's notifier and gives back the one it replaces. A null handler
// brings back DefaultNotifier.
KESTREL_API NotifyHandler SetNotifier(NotifyHandler handler);

// Hands `text` to the current notifier.
KESTREL_API void Notify(const std::string& text);

}  // namespace KESTREL
