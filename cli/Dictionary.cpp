#include "Dictionary.h"

#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

#include "kestrel/RTC.h"

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> ShippedDictionaries() {
  std::vector<fs::path> candidates;
  std::error_code ec;
  fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    fs::path share = exe.parent_path().parent_path() / "share" / "kestrel";
    candidates.push_back(share / "dicom.bin");
    candidates.push_back(share / "dicom.dic");
  }
  candidates.emplace_back("/usr/local/share/kestrel/dicom.bin");
  candidates.emplace_back("/usr/share/kestrel/dicom.bin");
  return candidates;
}

}  // namespace

RTC* LoadToolDictionary(const std::string& path, std::string& error) {
  auto dictionary = std::make_unique<RTC>(false);
  if (!path.empty()) {
    if (dictionary->Load(path.c_str())) return dictionary.release();
    error = "cannot load the data dictionary " + path;
    return nullptr;
  }
  for (const fs::path& candidate : ShippedDictionaries()) {
    std::error_code ec;
    if (fs::exists(candidate, ec) && dictionary->Load(candidate.c_str()))
      return dictionary.release();
  }
  error = "no data dictionary found beside the tool; implicit VR elements will show as UN";
  return nullptr;
}
