#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

#include <memory>
#include <string>

#include "ModulePath.h"

namespace KESTREL {

std::string ModuleDirectory() {
  Dl_info info{};
  std::string path;
  // Any function of this file names the module it was linked into. For the main program the
  // loader may give only the name it was started by, so that one is read from /proc instead.
  if (dladdr(reinterpret_cast<void*>(&ModuleDirectory), &info) && info.dli_fname)
    path = info.dli_fname;
  if (path.find('/') == std::string::npos) path = "/proc/self/exe";
  std::unique_ptr<char, decltype(&free)> resolved(realpath(path.c_str(), nullptr), &free);
  if (!resolved) return {};
  path = resolved.get();
  return path.substr(0, path.rfind('/'));
}

}  // namespace KESTREL
