#include "Dictionary.h"

#include <memory>

#include "kestrel/RTC.h"

RTC* LoadToolDictionary(const std::string& path, std::string& error) {
  auto dictionary = std::make_unique<RTC>(false);
  const std::string chosen = path.empty() ? GetInstalledRTCPath() : path;
  if (!chosen.empty() && dictionary->Load(chosen.c_str())) return dictionary.release();
  error = path.empty()
              ? "no data dictionary is installed with the library; implicit VR elements will "
                "show as UN"
              : "cannot load the data dictionary " + path;
  return nullptr;
}
