#pragma once

// The files a command over many inputs works on: each path given, with directories walked.

#include <cstdint>
#include <string>
#include <vector>

struct InputFile {
  std::string path;
  uint64_t bytes = 0;
  std::string error;  // set when the path could not be listed or sized; the file is not read
};

// Appends `path` when it is a file, or every regular file below it when it is a directory (in
// path order, so that runs repeat). Unreadable paths and directories, and what a directory
// holds that is no file to read (a FIFO, a symbolic link to nothing or to a directory), become
// entries carrying their error, so that each gets its own line and the others are still worked
// on.
void CollectInputFiles(const std::string& path, std::vector<InputFile>& files);
