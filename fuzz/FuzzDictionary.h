#pragma once

#include <cstdio>
#include <string>

#include "kestrel/RTC.h"

// A small dictionary so that implicit streams reach the sequence paths of the decoder.
inline RTC* FuzzDictionary() {
  static const char kText[] =
      "(0008,1140) VR=\"SQ\" Keyword=\"ReferencedImageSequence\"\n"
      "(0008,1150) VR=\"UI\" Keyword=\"ReferencedSOPClassUID\"\n"
      "(0028,0010) VR=\"US\" Keyword=\"Rows\"\n"
      "(0040,A730) VR=\"SQ\" Keyword=\"ContentSequence\"\n"
      "(7FE0,0010) VR=\"OW\" Keyword=\"PixelData\"\n";
  std::string path = "/tmp/kestrel-fuzz-dictionary.dic";
  if (std::FILE* f = std::fopen(path.c_str(), "w")) {
    std::fputs(kText, f);
    std::fclose(f);
  }
  return new RTC(false, path.c_str());
}
