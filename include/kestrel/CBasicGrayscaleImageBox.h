#pragma once

// A Basic Grayscale Image Box SOP instance (PS3.4 H.4.3.1): one position on a film, made by
// the film box, which receives one image with N-SET.
//
// Results and exceptions as for CBasicFilmSession: 1 on Success; a warning or failure status
// thrown as a CDICOMPrintException interpreted for "BasicGrayscaleImageBox"; 0 when the
// exchange failed, with the last-error text.

#include <cstdint>
#include <string>

#include "kestrel/Export.h"
#include "kestrel/PrintServiceClasses.h"
#include "kestrel/UID.h"

class CPrintImage;
class PDU_Service;

class KESTREL_API CBasicGrayscaleImageBox : public BasicGrayscaleImageBox {
 public:
  CBasicGrayscaleImageBox();
  // The image box `sopInstance` at `position` (1-based) of its film, as
  // CBasicFilmBox::GetImageBoxUID names them.
  CBasicGrayscaleImageBox(const UID& sopInstance, uint16_t position);
  ~CBasicGrayscaleImageBox() override;
  // "1.2.840.10008.5.1.1.4"; 1.
  int GetUID(UID& uid) override;

  UID SOPInstanceUID;
  uint16_t ImagePosition = 1;
  // Image Box Pixel Presentation Module attributes (PS3.3 C.13.5); an empty text is not sent.
  std::string Polarity = "NORMAL";  // or REVERSE
  std::string MagnificationType;
  std::string SmoothingType;

  // N-SET of the box with the attributes above and `image` as its Basic Grayscale Image
  // Sequence (MONOCHROME2, 8 bits, or 12 bits stored in 16). 0 without calling the printer when
  // the box has no instance UID or the image is empty.
  int Set(PDU_Service* pdu, const CPrintImage& image);
};
