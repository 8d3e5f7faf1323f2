#pragma once

// `kestrel import`: files saved into the image store and indexed as received ones are. The
// import of a list of files is its own function, so that files found another way (those a
// DICOMDIR references) go through the same steps and the same report.

#include <string>
#include <vector>

#include "InputFiles.h"

struct ImportOptions {
  std::string storeDir;  // "" for the Kestrel home's store
  std::string db;        // "" for the Kestrel home's image database
  bool verbose = false;  // a line per file imported
  bool quiet = false;    // errors only
};

// Imports each of `files` into the store and database of `options` (made when missing). Every
// file not imported gets a line on standard error saying why (set aside, refused, unreadable);
// a progress bar shows on a terminal and one summary line ends the run. Files named DICOMDIR
// are passed over. Returns the exit code: 0 when every file was imported, 3 otherwise.
int ImportFiles(const std::vector<InputFile>& files, const ImportOptions& options);
