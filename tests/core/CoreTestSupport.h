#pragma once

// Helpers shared by the core tests: byte strings, elements made from text, and a temporary
// directory per test.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/DICOMObject.h"

namespace core_test {

using Bytes = std::vector<uint8_t>;

inline Bytes B(std::string_view s) { return Bytes(s.begin(), s.end()); }
inline Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// A new element adopting a copy of `value`, its length exactly the value's (odd stays odd);
// `vr` null leaves it without a VR.
inline VR* Element(uint16_t group, uint16_t element, const char* vr, const std::string& value) {
  char* data = value.empty() ? nullptr : new char[value.size()];
  if (data) std::memcpy(data, value.data(), value.size());
  auto* result = new VR(group, element, uint32_t(value.size()), static_cast<void*>(data));
  result->TypeCode = vr ? MakeTypeCode(vr[0], vr[1]) : 0;
  return result;
}

// The value bytes of `element`; empty when it is missing or has none.
inline std::string Value(const VR* element) {
  if (!element || !element->Data) return std::string();
  return std::string(static_cast<const char*>(element->Data), element->Length);
}

// A fresh directory per test, removed with everything in it.
class TempDirTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "kestrel_core_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }
  std::string Write(const std::string& name, std::string_view bytes) const {
    std::ofstream(Path(name), std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
    return Path(name);
  }
  std::string Write(const std::string& name, const Bytes& bytes) const {
    return Write(name, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  }
  static std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  static Bytes ReadBytes(const std::string& path) { return B(Read(path)); }

  std::filesystem::path dir_;
};

}  // namespace core_test
