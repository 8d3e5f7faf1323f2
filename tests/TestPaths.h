#pragma once

#include <cstdlib>
#include <string>

// The source tree and the build tree the tests were built from; the environment variables
// KESTREL_SOURCE_DIR and KESTREL_BUILD_DIR override them (to test an installed tree).
inline std::string TestSourceDir() {
  const char* dir = std::getenv("KESTREL_SOURCE_DIR");
  return dir ? dir : KESTREL_TEST_SOURCE_DIR;
}

inline std::string TestBuildDir() {
  const char* dir = std::getenv("KESTREL_BUILD_DIR");
  return dir ? dir : KESTREL_TEST_BUILD_DIR;
}
