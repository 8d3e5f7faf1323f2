// kestrel-dictc: compiles a text data dictionary into the binary image the library loads fastest.
// The build runs it on dicom.dic; it is also handy for a site's own dictionary.
#include <cstdio>

#include "kestrel/RTC.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s TEXT_DICTIONARY BINARY_OUTPUT\n", argv[0]);
    return 2;
  }
  if (!CompileDictionary(argv[1], argv[2])) {
    std::fprintf(stderr, "%s: cannot compile %s into %s\n", argv[0], argv[1], argv[2]);
    return 1;
  }
  return 0;
}
