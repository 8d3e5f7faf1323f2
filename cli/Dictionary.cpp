#include "Dictionary.h"

#include <memory>

#include "kestrel/RTC.h"

RTC* LoadToolDictionary(const std::string& path, std::string& error, bool keepKeywords) {
  auto dictionary = std::make_unique<RTC>(keepKeywords);
  const std::string chosen = path.empty() ? GetInstalledRTCPath() : path;
  const std::string binary = ".bin";
  if (keepKeywords && path.empty() && chosen.size() > binary.size() &&
      chosen.compare(chosen.size() - binary.size(), binary.size(), binary) == 0) {
    const std::string text = chosen.substr(0, chosen.size() - binary.size()) + ".dic";
    if (dictionary->Load(text.c_str())) return dictionary.release();
  }
  if (!chosen.empty() && dictionary->Load(chosen.c_str())) return dictionary.release();
  error = path.empty()
              ? "no data dictionary is installed with the library; implicit VR elements will "
                "show as UN"
              : "cannot load the data dictionary " + path;
  return nullptr;
}
