#include "InputFiles.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace {

// Why an entry met in a walk is not a file to read ("" when it is one): each such entry is
// reported rather than passed over in silence.
std::string NotAFile(const fs::directory_entry& entry) {
  std::error_code error;
  const fs::file_status target = entry.status(error);
  if (fs::is_regular_file(target)) return std::string();
  if (entry.is_symlink(error)) {
    if (!fs::exists(target)) return "a symbolic link to nothing";
    if (fs::is_directory(target)) return "a symbolic link to a directory, not followed";
  }
  switch (target.type()) {
    case fs::file_type::fifo:
      return "not a regular file (a FIFO)";
    case fs::file_type::socket:
      return "not a regular file (a socket)";
    case fs::file_type::block:
    case fs::file_type::character:
      return "not a regular file (a device)";
    default:
      return "not a regular file";
  }
}

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
    if (std::string why = NotAFile(*it); !why.empty()) {
      found.push_back({it->path().string(), 0, why});
      continue;
    }
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
