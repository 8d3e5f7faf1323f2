#include "kestrel/Notifier.h"

#include <atomic>
#include <cstdio>

#include "Platform.h"
#include "vxCommon.h"

namespace KESTREL {
namespace {

constexpr int kError = 1;

std::atomic<NotifyHandler> notifier{nullptr};

}  // namespace

void DefaultNotifier(const std::string& text) {
  std::fputs(text.c_str(), stderr);
  if (text.empty() || text.back() != '\n') std::fputc('\n', stderr);
  std::fflush(stderr);
  // Without a log directory the common log is standard error itself; one copy there is enough.
  std::string logDirectory;
  if (platform::ReadRegistryValue("Log Dir", &logDirectory) && !logDirectory.empty()) {
    Log(text, kError);
  }
}

NotifyHandler SetNotifier(NotifyHandler handler) {
  NotifyHandler previous = notifier.exchange(handler);
  return previous ? previous : DefaultNotifier;
}

void Notify(const std::string& text) {
  NotifyHandler handler = notifier.load();
  (handler ? handler : DefaultNotifier)(text);
}

}  // namespace KESTREL
