#include "kestrel/PrintServiceClasses.h"

namespace {

int SetUID(UID& uid, const char* value) {
  uid = value;
  return 1;
}

}  // namespace

BasicFilmSession::~BasicFilmSession() = default;
int BasicFilmSession::GetUID(UID& uid) { return SetUID(uid, PrintSOPClass::kBasicFilmSession); }

BasicFilmBox::~BasicFilmBox() = default;
int BasicFilmBox::GetUID(UID& uid) { return SetUID(uid, PrintSOPClass::kBasicFilmBox); }

BasicGrayscaleImageBox::~BasicGrayscaleImageBox() = default;
int BasicGrayscaleImageBox::GetUID(UID& uid) {
  return SetUID(uid, PrintSOPClass::kBasicGrayscaleImageBox);
}

PreformattedGrayscaleImage::~PreformattedGrayscaleImage() = default;
int PreformattedGrayscaleImage::GetUID(UID& uid) {
  return SetUID(uid, PrintSOPClass::kPreformattedGrayscaleImageBox);
}
