#include "InputFiles.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace {

// One directory level at a time, so that a directory that cannot be read becomes one entry
// with its error while its siblings are still walked.
void Walk(const fs::path& directory, std::vector<InputFile>& found) {
  std::error_code ec;
  fs::directory_iterator it(directory, ec);
  if (ec) {
    found.push_back({directory.string(), 0, "cannot read directory: " + ec.message()});
    return;
  }
  for (const fs::directory_iterator end; it != end; it.increment(ec)) {
    if (ec) {
      found.push_back({directory.string(), 0, "cannot read directory: " + ec.message()});
      return;
    }
    std::error_code entryError;
    // Symbolic links to directories are not followed: a link cycle would never end.
    if (it->is_directory(entryError) && !it->is_symlink(entryError)) {
      Walk(it->path(), found);
      continue;
    }
    if (!it->is_regular_file(entryError)) continue;
    uint64_t size = it->file_size(entryError);
    found.push_back({it->path().string(), entryError ? 0 : size,
                     entryError ? "cannot read: " + entryError.message() : ""});
  }
}

}  // namespace

void CollectInputFiles(const std::string& path, std::vector<InputFile>& files) {
  std::error_code ec;
  fs::file_status status = fs::status(path, ec);
  if (ec) {
    files.push_back({path, 0, "cannot read: " + ec.message()});
    return;
  }
  if (!fs::is_directory(status)) {
    uint64_t size = fs::file_size(path, ec);
    files.push_back({path, ec ? 0 : size, ec ? "cannot read: " + ec.message() : ""});
    return;
  }
  std::vector<InputFile> found;
  Walk(path, found);
  std::sort(found.begin(), found.end(),
            [](const InputFile& a, const InputFile& b) { return a.path < b.path; });
  files.insert(files.end(), found.begin(), found.end());
}
