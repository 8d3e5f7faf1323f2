#pragma once

// A Basic Film Box SOP instance (PS3.4 H.4.2): one film of a film session, laid out as its
// image display format says. Creating it makes its image boxes, which the answer names.
//
// Results and exceptions as for CBasicFilmSession: 1 on Success; a warning or failure status
// thrown as a CDICOMPrintException interpreted for "BasicFilmBox" (on a warning the effect is
// kept first); 0 when the exchange failed, with the last-error text.

#include <cstdint>
#include <string>
#include <vector>

#include "kestrel/Export.h"
#include "kestrel/PrintServiceClasses.h"
#include "kestrel/UID.h"

class CBasicFilmSession;
class PDU_Service;

class KESTREL_API CBasicFilmBox : public BasicFilmBox {
 public:
  CBasicFilmBox();
  ~CBasicFilmBox() override;
  // "1.2.840.10008.5.1.1.2"; 1.
  int GetUID(UID& uid) override;

  // Basic Film Box Presentation Module attributes (PS3.3 C.13.3) that Create sends. An empty
  // text or a negative density is not sent, and the printer uses its default.
  std::string ImageDisplayFormat = "STANDARD\\1,1";
  std::string FilmOrientation;  // PORTRAIT or LANDSCAPE
  std::string FilmSizeID;       // 8INX10IN, 14INX17IN, 24CMX30CM, ...
  std::string MagnificationType;
  std::string SmoothingType;
  std::string BorderDensity;
  std::string EmptyImageDensity;
  int MinDensity = -1;
  int MaxDensity = -1;
  std::string Trim;  // YES or NO
  std::string ConfigurationInformation;

  // N-CREATE of a film box in `session` (which must have been created). The answer's
  // Referenced Image Box Sequence gives the image boxes.
  int Create(PDU_Service* pdu, const CBasicFilmSession& session);
  // N-ACTION "print" (action type 1) of this film.
  int Print(PDU_Service* pdu);
  // N-DELETE of the film box and its image boxes; forgotten once the printer answered.
  int Delete(PDU_Service* pdu);

  // The instance the printer created; empty before Create and after Delete.
  const UID& GetSOPInstanceUID() const { return instance_; }
  // The image boxes of the film in the order of the answer (image positions 1, 2, ...).
  uint32_t GetImageBoxCount() const { return static_cast<uint32_t>(imageBoxes_.size()); }
  // The SOP instance UID of image box `index` (0-based); empty out of range.
  UID GetImageBoxUID(uint32_t index) const;

  // How many image boxes an image display format asks for: "STANDARD\C,R" gives C x R,
  // "ROW\a,b,..." and "COL\a,b,..." the sum of their counts. 0 for any other form or a format
  // that cannot be read (numbers from 1 to 99, at most 9801 boxes).
  static int ImageBoxCount(const std::string& format);

 private:
  UID instance_;
  std::vector<UID> imageBoxes_;
};
