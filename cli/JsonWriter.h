#pragma once

#include <nlohmann/json.hpp>
#include <string>

class DICOMObject;

// The DICOM JSON model (PS3.18 F.2) of a data object. The object is drained on the way: this
// is how its elements are reached in tag order. Group lengths and the file meta group are left
// out, and text is converted to UTF-8 from `charset` (a Specific Character Set term) or from the
// set the object itself names.
nlohmann::ordered_json ToDicomJson(DICOMObject* object, std::string charset = std::string());
