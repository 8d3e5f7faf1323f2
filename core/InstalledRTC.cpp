// The data dictionary installed with the library, found without the caller's help.
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ModulePath.h"
#include "kestrel/RTC.h"

namespace {

// Where the dictionary lies relative to the directory of the library file: the build tree has
// lib/ beside share/, and an installed tree has the data directory at the same relative place
// as the build set it (lib/x86_64-linux-gnu on a Debian prefix, lib elsewhere).
std::vector<std::string> Candidates() {
  std::vector<std::string> found;
  const char* chosen = std::getenv("KESTREL_DICTIONARY");
  if (chosen && *chosen) return {chosen};
  std::string directory = KESTREL::ModuleDirectory();
  if (!directory.empty()) {
    for (const char* relative : {KESTREL_DATADIR_FROM_LIBDIR, "../share/kestrel"}) {
      found.push_back(directory + "/" + relative + "/dicom.bin");
      found.push_back(directory + "/" + relative + "/dicom.dic");
    }
  }
  found.push_back(std::string(KESTREL_INSTALL_DATADIR) + "/dicom.bin");
  return found;
}

struct Installed {
  std::unique_ptr<RTC> dictionary;
  std::string path;
};

const Installed& Load() {
  static Installed installed;
  static std::once_flag once;
  std::call_once(once, [] {
    for (const std::string& candidate : Candidates()) {
      auto dictionary = std::make_unique<RTC>(false);
      if (!dictionary->Load(candidate.c_str())) continue;
      installed.dictionary = std::move(dictionary);
      installed.path = candidate;
      return;
    }
  });
  return installed;
}

}  // namespace

const RTC* GetInstalledRTC() { return Load().dictionary.get(); }

std::string GetInstalledRTCPath() { return Load().path; }
