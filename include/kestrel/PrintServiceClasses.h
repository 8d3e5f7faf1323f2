#pragma once

// The print management SOP classes (PS3.4 Annex H) as service bases: each knows its SOP class
// UID; the print wrappers run the N-CREATE, N-SET, N-ACTION and N-DELETE exchanges of DIMSEN.h
// on an association they are given.

#include "kestrel/Export.h"
#include "kestrel/UID.h"

namespace PrintSOPClass {
constexpr const char* kBasicFilmSession = "1.2.840.10008.5.1.1.1";
constexpr const char* kBasicFilmBox = "1.2.840.10008.5.1.1.2";
constexpr const char* kBasicGrayscaleImageBox = "1.2.840.10008.5.1.1.4";
constexpr const char* kPreformattedGrayscaleImageBox = "1.2.840.10008.5.1.1.4.1";  // retired
constexpr const char* kPrinter = "1.2.840.10008.5.1.1.16";
constexpr const char* kPrinterInstance = "1.2.840.10008.5.1.1.17";  // the well-known instance
// Basic Grayscale Print Management Meta SOP class: what a printer client proposes.
constexpr const char* kBasicGrayscalePrintManagementMeta = "1.2.840.10008.5.1.1.9";
}  // namespace PrintSOPClass

class KESTREL_API BasicFilmSession {
 public:
  virtual ~BasicFilmSession();
  virtual int GetUID(UID& uid);  // "1.2.840.10008.5.1.1.1"
};

class KESTREL_API BasicFilmBox {
 public:
  virtual ~BasicFilmBox();
  virtual int GetUID(UID& uid);  // "1.2.840.10008.5.1.1.2"
};

class KESTREL_API BasicGrayscaleImageBox {
 public:
  virtual ~BasicGrayscaleImageBox();
  virtual int GetUID(UID& uid);  // "1.2.840.10008.5.1.1.4"
};

class KESTREL_API PreformattedGrayscaleImage {
 public:
  virtual ~PreformattedGrayscaleImage();
  virtual int GetUID(UID& uid);  // "1.2.840.10008.5.1.1.4.1"
};
