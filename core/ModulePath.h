#pragma once

#include <string>

namespace KESTREL {

// The directory of the file (shared library or program) that holds the library's code, without
// a trailing separator; empty when the system cannot tell.
std::string ModuleDirectory();

}  // namespace KESTREL
