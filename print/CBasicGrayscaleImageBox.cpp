#include "kestrel/CBasicGrayscaleImageBox.h"

#include <memory>

#include "PrintExchange.h"
#include "kestrel/CDICOMPrintException.h"
#include "kestrel/CPrintImage.h"
#include "kestrel/DIMSEN.h"
#include "kestrel/PDU_Service.h"

namespace {

using namespace KESTREL::print;

constexpr int kKind = KESTREL::PRINT_BASIC_GRAYSCALE_IMAGE_BOX;

// Image Box Pixel Presentation Module, PS3.3 C.13.5.
constexpr uint16_t kImageBoxGroup = 0x2020;
constexpr uint16_t kImageBoxPosition = 0x0010;
constexpr uint16_t kPolarity = 0x0020;
constexpr uint16_t kBasicGrayscaleImageSequence = 0x0110;
constexpr uint16_t kFilmBoxGroup = 0x2010;
constexpr uint16_t kMagnificationType = 0x0060;
constexpr uint16_t kSmoothingType = 0x0080;

// The one item of the Basic Grayscale Image Sequence (PS3.3 C.13.5): the Image Pixel
// attributes of a MONOCHROME2 image and its pixel data.
std::unique_ptr<DICOMDataObject> ImageItem(const CPrintImage& image) {
  auto item = std::make_unique<DICOMDataObject>();
  const uint16_t bitsStored = image.GetBitsStored();
  auto pixels = std::make_unique<VR_OX>(0x7FE0, 0x0010);
  pixels->SetOXTypeCode(image.GetBitsAllocated() == 8 ? MakeTypeCode('O', 'B')
                                                      : MakeTypeCode('O', 'W'));
  DICOMDataObject* target = item.get();
  bool built =
      PushUS(target, 0x0028, 0x0002, 1) && PushText<VR_CS>(target, 0x0028, 0x0004, "MONOCHROME2") &&
      PushUS(target, 0x0028, 0x0010, image.GetRows()) &&
      PushUS(target, 0x0028, 0x0011, image.GetColumns()) &&
      PushText<VR_IS>(target, 0x0028, 0x0034, "1\\1") &&
      PushUS(target, 0x0028, 0x0100, image.GetBitsAllocated()) &&
      PushUS(target, 0x0028, 0x0101, bitsStored) &&
      PushUS(target, 0x0028, 0x0102, bitsStored - 1) && PushUS(target, 0x0028, 0x0103, 0) &&
      pixels->SetValue(image.GetPixelData(), image.GetPixelDataLength()) &&
      target->Push(pixels.get());
  if (!built) return nullptr;
  pixels.release();
  return item;
}

}  // namespace

CBasicGrayscaleImageBox::CBasicGrayscaleImageBox() = default;

CBasicGrayscaleImageBox::CBasicGrayscaleImageBox(const UID& sopInstance, uint16_t position)
    : SOPInstanceUID(sopInstance), ImagePosition(position) {}

CBasicGrayscaleImageBox::~CBasicGrayscaleImageBox() = default;

int CBasicGrayscaleImageBox::GetUID(UID& uid) { return BasicGrayscaleImageBox::GetUID(uid); }

int CBasicGrayscaleImageBox::Set(PDU_Service* pdu, const CPrintImage& image) {
  if (SOPInstanceUID.IsEmpty())
    return ExchangeFailed(kKind, KESTREL::PRINT_N_SET, "the image box has no instance UID");
  if (image.IsEmpty())
    return ExchangeFailed(kKind, KESTREL::PRINT_N_SET, "the image to print is empty");
  DICOMDataObject attributes;
  std::unique_ptr<DICOMDataObject> item = ImageItem(image);
  if (!item || !PushUS(&attributes, kImageBoxGroup, kImageBoxPosition, ImagePosition) ||
      !PushText<VR_CS>(&attributes, kImageBoxGroup, kPolarity, Polarity) ||
      !PushText<VR_CS>(&attributes, kFilmBoxGroup, kMagnificationType, MagnificationType) ||
      !PushText<VR_CS>(&attributes, kFilmBoxGroup, kSmoothingType, SmoothingType) ||
      !PushSequence(&attributes, kImageBoxGroup, kBasicGrayscaleImageSequence, item))
    return ExchangeFailed(kKind, KESTREL::PRINT_N_SET, "out of memory");
  UID sopClass;
  GetUID(sopClass);
  UID syntax = PrintSyntax(pdu, sopClass);
  Response response;
  auto send = [&](uint16_t* id) {
    return NSetRQ::Write(pdu, syntax, sopClass, SOPInstanceUID, &attributes, id);
  };
  if (!Exchange(pdu, kKind, KESTREL::PRINT_N_SET, &NSetRSP::Read, send, response)) return 0;
  ThrowOnStatus(response, kKind, KESTREL::PRINT_N_SET);
  return 1;
}
