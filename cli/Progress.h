#pragma once

#include <chrono>
#include <cstdint>
#include <string>

// Progress over many inputs: a bar on standard error when it is a terminal, and the one-line
// summary at the end in every case (unless quiet).
class Progress {
 public:
  Progress(std::string verb, size_t total, bool quiet);
  void Done(uint64_t bytes, bool failed);
  // The summary line: files done, failed, bytes, seconds.
  void Finish();

 private:
  void Draw();

  std::string verb_;
  size_t total_;
  bool quiet_;
  bool terminal_;
  size_t done_ = 0;
  size_t failed_ = 0;
  uint64_t bytes_ = 0;
  std::chrono::steady_clock::time_point start_;
};
