#pragma once

// A stored image turned into what a grayscale printer takes (the Basic Grayscale Image
// Sequence of an image box, PS3.3 C.13.5): one frame, MONOCHROME2, 8 bits, or 12 bits in 16.
//
// The conversion follows the grayscale pipeline of PS3.4 N.2: stored values (Bits Stored,
// High Bit, Pixel Representation) -> Rescale Slope and Intercept -> a linear window (PS3.3
// C.11.2.1.2) -> the output range; a MONOCHROME1 image is inverted at the end so that what is white
// on the display is white on the film. The window is the caller's (UseWindow), else the image's
// first Window Center and Width, else the full range of the frame's values. Modality and VOI LUT
// sequences, overlays and presentation states are not applied.
//
// Only uncompressed single-sample images of 8 or 16 bits allocated are converted. Failures
// return false with the last-error text naming the reason; the image is then empty.

#include <cstdint>
#include <string>
#include <vector>

#include "kestrel/Export.h"

class DICOMDataObject;

class KESTREL_API CPrintImage {
 public:
  CPrintImage();
  ~CPrintImage();

  // Conversion choices, read by Convert and Load.
  int Bits = 8;        // 8 or 12: the output's bits stored
  uint32_t Frame = 0;  // the frame of a multi-frame image, from 0
  bool UseWindow = false;
  double WindowCenter = 0;
  double WindowWidth = 0;  // at least 1 when UseWindow

  // Converts the image held in `pDDO` (not kept; the caller still owns it).
  bool Convert(DICOMDataObject* pDDO);
  // Reads the DICOM file `path` and converts its image.
  bool Load(const std::string& path);

  bool IsEmpty() const { return pixels_.empty(); }
  uint16_t GetRows() const { return rows_; }
  uint16_t GetColumns() const { return columns_; }
  // Of the converted image: 8 and 8, or 16 and 12.
  uint16_t GetBitsAllocated() const { return bits_ == 8 ? 8 : 16; }
  uint16_t GetBitsStored() const { return bits_; }
  // Rows x Columns values, one byte each (8 bits) or two in host byte order (12 bits).
  const void* GetPixelData() const { return pixels_.data(); }
  uint32_t GetPixelDataLength() const { return static_cast<uint32_t>(pixels_.size()); }
  // The window the conversion applied, in rescaled (modality) values.
  double GetAppliedCenter() const { return appliedCenter_; }
  double GetAppliedWidth() const { return appliedWidth_; }

 private:
  bool Fail(const char* operation, const std::string& reason);

  uint16_t bits_ = 8;
  uint16_t rows_ = 0;
  uint16_t columns_ = 0;
  std::vector<uint8_t> pixels_;
  double appliedCenter_ = 0;
  double appliedWidth_ = 0;
};
