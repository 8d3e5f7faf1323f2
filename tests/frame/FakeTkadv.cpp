// A stand-in for the closed toolkit's libtkadv.so. Every call is appended as one line to the
// file named by FAKE_TKADV_TRACE; the results come from FAKE_TKADV_INIT and
// FAKE_TKADV_REGISTER (default 1), the application identifier from FAKE_TKADV_APP_ID
// (default 42). Built with FAKE_TKADV_WITHOUT_RELEASE it lacks TK_Library_Release.

#include <cstdio>
#include <cstdlib>

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

int EnvInt(const char* name, int otherwise) {
  const char* value = std::getenv(name);
  return value && *value ? std::atoi(value) : otherwise;
}

void Trace(const char* line) {
  const char* path = std::getenv("FAKE_TKADV_TRACE");
  if (!path) return;
  FILE* file = std::fopen(path, "a");
  if (!file) return;
  std::fprintf(file, "%s\n", line);
  std::fclose(file);
}

typedef int (*SettingsCallback)(const char* name, char* value, int capacity);

}  // namespace

FAKE_EXPORT int TK_Library_Initialization(SettingsCallback profile, SettingsCallback service,
                                          void* reserved) {
  // Ask each callback once, as the toolkit would, to prove they can be called.
  char value[16] = "unset";
  int answered = 0;
  if (profile) answered += profile("Profile", value, sizeof value);
  if (service) answered += service("Service", value, sizeof value);
  char line[128];
  std::snprintf(
      line, sizeof line, "TK_Library_Initialization profile=%s service=%s reserved=%s answered=%d",
      profile ? "set" : "null", service ? "set" : "null", reserved ? "set" : "null", answered);
  Trace(line);
  return EnvInt("FAKE_TKADV_INIT", 1);
}

FAKE_EXPORT int TK_Register_Application(int* applicationId, const char* title) {
  if (applicationId) *applicationId = EnvInt("FAKE_TKADV_APP_ID", 42);
  char line[128];
  std::snprintf(line, sizeof line, "TK_Register_Application %s", title ? title : "(null)");
  Trace(line);
  return EnvInt("FAKE_TKADV_REGISTER", 1);
}

FAKE_EXPORT const char* TK_Error_Message(int code) {
  static char text[64];
  std::snprintf(text, sizeof text, "TK_Error_Message %d", code);
  Trace(text);
  std::snprintf(text, sizeof text, "fake toolkit error %d", code);
  return text;
}

#ifndef FAKE_TKADV_WITHOUT_RELEASE
FAKE_EXPORT int TK_Library_Release(void) {
  Trace("TK_Library_Release");
  return 1;
}
#endif
