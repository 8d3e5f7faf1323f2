#include "Progress.h"

#include <unistd.h>

#include <cstdio>

Progress::Progress(std::string verb, size_t total, bool quiet)
    : verb_(std::move(verb)),
      total_(total),
      quiet_(quiet),
      terminal_(!quiet && isatty(STDERR_FILENO) && total > 1),
      start_(std::chrono::steady_clock::now()) {}

void Progress::Done(uint64_t bytes, bool failed) {
  ++done_;
  if (failed) ++failed_;
  bytes_ += bytes;
  if (terminal_) Draw();
}

void Progress::Draw() {
  constexpr int kWidth = 40;
  int filled = total_ ? static_cast<int>(kWidth * done_ / total_) : kWidth;
  std::fprintf(stderr, "\r[%-*s] %zu/%zu", kWidth, std::string(filled, '#').c_str(), done_, total_);
  std::fflush(stderr);
}

void Progress::Finish() {
  if (terminal_) std::fputc('\n', stderr);
  if (quiet_) return;
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  std::fprintf(stderr, "%s: %zu files done, %zu failed, %llu bytes, %.2f seconds\n", verb_.c_str(),
               done_ - failed_, failed_, static_cast<unsigned long long>(bytes_), seconds);
}
