#include "kestrel/Status.h"

#include <cstddef>

namespace KESTREL {
namespace {

thread_local std::string lastErrorText;

// A-ASSOCIATE-RJ fields, PS3.8 9.3.4, Table 9-21. The reason is read on its own, whatever the
// source: a provider's reason 2 (protocol version not supported) also reads as the application
// context text. Callers match on these texts, so they are kept exactly.
struct CodeText {
  int code;
  const char* text;
};

constexpr CodeText kResults[] = {
    {1, "Permanent Rejection from "},  // rejected-permanent
    {2, "Temporary Rejection from "},  // rejected-transient
};
constexpr char kUnknownResult[] = "Unknown Rejection from ";

constexpr CodeText kSources[] = {
    {1, "Service User because "},      // DICOM UL service-user
    {2, "Service Provider because "},  // DICOM UL service-provider (ACSE related function)
    {3, "Service Provider because "},  // DICOM UL service-provider (presentation related)
};
constexpr char kUnknownSource[] = "Unknown DICOM entity class because ";

constexpr CodeText kReasons[] = {
    {1, "DICOM connection could not be made"},             // no-reason-given
    {2, "the Application Context name is not supported"},  // application-context-name
    {3, "your Application Entity Title is not known"},     // calling-AE-title not recognized
    {7, "called Application Entity Title is not known"},   // called-AE-title not recognized
};
constexpr char kUnknownReason[] = "of an unknown reason";

constexpr char kAdvice[] =
    "\r\n\r\n* Ensure that the device you are trying to reach has the correct IP, AE Title and "
    "Port in your Destinations list\r\n* Ensure that your IP, AE Title and Port is configured on "
    "the server you are trying to reach\r\n* Ensure that the device you are trying to reach "
    "supports the SOP class and transfer syntax you are requesting";

template <size_t N>
const char* Lookup(const CodeText (&table)[N], int code, const char* otherwise) {
  for (const CodeText& entry : table) {
    if (entry.code == code) return entry.text;
  }
  return otherwise;
}

}  // namespace

std::string GetLastErrorText() { return lastErrorText; }

void SetLastErrorText(const std::string& text) { lastErrorText = text; }

std::string BuildRejectionText(int result, int source, int reason) {
  std::string text = Lookup(kResults, result, kUnknownResult);
  text += Lookup(kSources, source, kUnknownSource);
  text += Lookup(kReasons, reason, kUnknownReason);
  text += kAdvice;
  return text;
}

}  // namespace KESTREL
