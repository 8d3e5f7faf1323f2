#pragma once

// File IDs: the names by which a DICOMDIR references its files (PS3.10 8.2 and 8.5), checked
// when a directory is written and turned into paths when one is read.

#include <string>
#include <vector>

namespace KESTREL::dicomdir {

constexpr size_t kMaxComponents = 8;
constexpr size_t kMaxComponentLength = 8;

// PS3.10 8.5: 1 to 8 characters of A-Z, 0-9 and '_'.
[[nodiscard]] bool IsValidComponent(const std::string& component);

// The File ID of `relative` (a path below the directory's folder, '/'-separated): true with
// its components when PS3.10 allows it, false with the reason otherwise.
[[nodiscard]] bool MakeFileID(const std::string& relative, std::vector<std::string>& components,
                              std::string& why);

// The file a File ID ('\'-separated components) names below `base`, as it exists on this
// machine: each component is looked for as written, then without case and without an ISO
// 9660 version suffix (";1") or a lone trailing dot, as mounted discs present names. "" with
// the reason when a component is not a plain name (empty, "." or "..", holding a '/') or the
// file is not there.
std::string ResolveFileID(const std::string& base, const std::string& fileID, std::string& why);

}  // namespace KESTREL::dicomdir
