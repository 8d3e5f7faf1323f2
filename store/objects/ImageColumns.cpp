// The Image row of a stored instance: the columns of the modules every image holds, and the
// columns each per-modality class adds from its own modules.
#include <iterator>
#include <string>

#include "IndexColumns.h"
#include "IndexText.h"
#include "kestrel/CStorage.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/ImageIODModule.h"
#include "kestrel/ModalityStorage.h"
#include "kestrel/RecordSets.h"
#include "kestrel/Status.h"

using KESTREL::storage::AttributeText;
using KESTREL::storage::Column;
using KESTREL::storage::CutToColumn;
using KESTREL::storage::Fill;
using ImageColumn = Column<CImageSet>;

struct CStorage::ModalityColumns {
  const ImageColumn* columns;
  size_t count;
  bool viewCodeMeaning;  // [ViewCodeSequenceMeaning] from View Code Sequence (0054,0220)
};

namespace {

constexpr char kImplicitLittleEndian[] = "1.2.840.10008.1.2";

// SOP Common, General Study, General Series, Frame of Reference, General Equipment, General
// Image, Image Plane and Image Pixel (PS3.3 C.12.1, C.7.2.1, C.7.3.1, C.7.4.1, C.7.5.1,
// C.7.6.1, C.7.6.2, C.7.6.3).
const ImageColumn kCommonColumns[] = {
    {&CImageSet::SOPInstanceUID, 0x0008, 0x0018},
    {&CImageSet::SeriesInstanceUID, 0x0020, 0x000E},
    {&CImageSet::StudyInstanceUID, 0x0020, 0x000D},
    {&CImageSet::Modality, 0x0008, 0x0060},
    {&CImageSet::SliceThickness, 0x0018, 0x0050},
    {&CImageSet::InstanceNumber, 0x0020, 0x0013},
    {&CImageSet::ImagePositionPatient, 0x0020, 0x0032},
    {&CImageSet::ImageOrientationPatient, 0x0020, 0x0037},
    {&CImageSet::SliceLocation, 0x0020, 0x1041},
    {&CImageSet::AcquisitionTime, 0x0008, 0x0032},
    {&CImageSet::ImageTime, 0x0008, 0x0033},
    {&CImageSet::SamplesPerPixel, 0x0028, 0x0002},
    {&CImageSet::PhotometricInterpretation, 0x0028, 0x0004},
    {&CImageSet::PlanarConfiguration, 0x0028, 0x0006},
    {&CImageSet::Rows, 0x0028, 0x0010},
    {&CImageSet::Columns, 0x0028, 0x0011},
    {&CImageSet::PixelSpacing, 0x0028, 0x0030},
    {&CImageSet::PixelAspectRatio, 0x0028, 0x0034},
    {&CImageSet::BitsAllocated, 0x0028, 0x0100},
    {&CImageSet::BitsStored, 0x0028, 0x0101},
    {&CImageSet::HighBit, 0x0028, 0x0102},
    {&CImageSet::PixelRepresentation, 0x0028, 0x0103},
    {&CImageSet::LossyImageCompression, 0x0028, 0x2110},
    {&CImageSet::SOPClassUID, 0x0008, 0x0016},
    {&CImageSet::Manufacturer, 0x0008, 0x0070},
    {&CImageSet::Laterality, 0x0020, 0x0060},
    {&CImageSet::SeriesNumber, 0x0020, 0x0011},
    {&CImageSet::SeriesDescription, 0x0008, 0x103E},
    {&CImageSet::BodyPartExamined, 0x0018, 0x0015},
    {&CImageSet::ProtocolName, 0x0018, 0x1030},
    {&CImageSet::ManufacturersModelName, 0x0008, 0x1090},
    {&CImageSet::ImageType, 0x0008, 0x0008},
    {&CImageSet::FrameOfReferenceUID, 0x0020, 0x0052},
};

// CT Image (C.8.2.1) and PET Image (C.8.9.4).
const ImageColumn kReconstructionColumns[] = {
    {&CImageSet::ConvolutionKernel, 0x0018, 0x1210},
};
// MR Image (C.8.3.1).
const ImageColumn kMRColumns[] = {
    {&CImageSet::EchoNumbers, 0x0018, 0x0086},
    {&CImageSet::SpacingBetweenSlices, 0x0018, 0x0088},
};
// CR Series and Image (C.8.1), DX Series, Image and Positioning (C.8.11), Mammography
// (C.8.11.7).
const ImageColumn kProjectionColumns[] = {
    {&CImageSet::ViewPosition, 0x0018, 0x5101},
    {&CImageSet::ImagerPixelSpacing, 0x0018, 0x1164},
    {&CImageSet::PresentationIntentType, 0x0008, 0x0068},
    {&CImageSet::ImageLaterality, 0x0020, 0x0062},
};
// Multi-frame (C.7.6.6) with the X-Ray Acquisition's spacing (C.8.7.2).
const ImageColumn kAngioColumns[] = {
    {&CImageSet::NumberOfFrames, 0x0028, 0x0008},
    {&CImageSet::ImagerPixelSpacing, 0x0018, 0x1164},
};
// Multi-frame with NM reconstruction's slice spacing (C.8.4.10).
const ImageColumn kNMColumns[] = {
    {&CImageSet::NumberOfFrames, 0x0028, 0x0008},
    {&CImageSet::SpacingBetweenSlices, 0x0018, 0x0088},
};
const ImageColumn kMultiFrameColumns[] = {
    {&CImageSet::NumberOfFrames, 0x0028, 0x0008},
};

// Code Meaning (0008,0104) of the first item of View Code Sequence (0054,0220).
std::string ViewCodeMeaning(ImageIODModule* iod) {
  VR* sequence = KESTREL::storage::FindAttribute(iod, 0x0054, 0x0220);
  if (!sequence || !sequence->SequenceItems || sequence->SequenceItems->GetSize() == 0)
    return std::string();
  DICOMDataObject* item = sequence->SequenceItems->Get(0);
  return item ? KESTREL::storage::ElementText(item->Find(0x0008, 0x0104), MakeTypeCode('L', 'O'))
              : std::string();
}

}  // namespace

int CStorage::UpdateImageTable(CDatabase* pDatabase, int& nAdded,
                               const char* pszTransferSyntaxUID) {
  return UpdateImageRow(pDatabase, nAdded, pszTransferSyntaxUID, nullptr);
}

int CStorage::UpdateImageRow(CDatabase* pDatabase, int& nAdded, const char* pszTransferSyntaxUID,
                             const ModalityColumns* modality) {
  ImageIODModule* iod = GetIOD();
  const std::string instance = CutToColumn(AttributeText(iod, 0x0008, 0x0018));
  std::string syntax = pszTransferSyntaxUID ? pszTransferSyntaxUID : "";
  if (syntax.empty()) syntax = AttributeText(iod, 0x0002, 0x0010);
  if (syntax.empty()) syntax = kImplicitLittleEndian;

  CImageSet set(pDatabase);
  set.Filter = KESTREL::storage::Printf("[SOPInstanceUID]='%s'",
                                        KESTREL::storage::SqlText(instance).c_str());
  if (!set.Open()) return 0;
  const bool adding = set.IsEOF();
  if (adding)
    set.AddNew();
  else
    set.Edit();
  const Fill fill = adding ? Fill::kPresent : Fill::kRewrite;
  bool changed = KESTREL::storage::FillColumns(set, kCommonColumns, iod, fill);
  if (modality) {
    changed |= KESTREL::storage::FillColumns(set, modality->columns, modality->count, iod, fill);
    if (modality->viewCodeMeaning)
      changed |= KESTREL::storage::Assign(set, set.ViewCodeSequenceMeaning,
                                          CutToColumn(ViewCodeMeaning(iod)), fill);
  }
  changed |= KESTREL::storage::Assign(set, set.TransferSyntax, CutToColumn(syntax), fill);
  if (adding) set.SOPInstanceUID = instance;
  nAdded = adding ? 1 : 0;
  if (!changed && !adding) {
    set.CancelUpdate();
    return 1;
  }
  if (set.Update()) return 1;
  KESTREL::SetLastErrorText("KESTREL.dll : CStorage::UpdateImageTable() : " + set.ErrorText);
  return 0;
}

#define KESTREL_IMAGE_COLUMNS(Class, Columns, ViewCode)                              \
  int Class::UpdateImageTable(CDatabase* pDatabase, int& nAdded,                     \
                              const char* pszTransferSyntaxUID) {                    \
    static const ModalityColumns kColumns = {Columns, std::size(Columns), ViewCode}; \
    return UpdateImageRow(pDatabase, nAdded, pszTransferSyntaxUID, &kColumns);       \
  }

KESTREL_IMAGE_COLUMNS(CCRStorage, kProjectionColumns, true)
KESTREL_IMAGE_COLUMNS(CCTStorage, kReconstructionColumns, false)
KESTREL_IMAGE_COLUMNS(CDXStorage, kProjectionColumns, true)
KESTREL_IMAGE_COLUMNS(CDXRStorage, kProjectionColumns, true)
KESTREL_IMAGE_COLUMNS(CMGStorage, kProjectionColumns, true)
KESTREL_IMAGE_COLUMNS(CMGRStorage, kProjectionColumns, true)
KESTREL_IMAGE_COLUMNS(CMRStorage, kMRColumns, false)
KESTREL_IMAGE_COLUMNS(CNMStorage, kNMColumns, false)
KESTREL_IMAGE_COLUMNS(CNMNStorage, kNMColumns, false)
KESTREL_IMAGE_COLUMNS(CPETStorage, kReconstructionColumns, false)
KESTREL_IMAGE_COLUMNS(CRFStorage, kAngioColumns, false)
KESTREL_IMAGE_COLUMNS(CUSMStorage, kMultiFrameColumns, false)
KESTREL_IMAGE_COLUMNS(CUSNMStorage, kMultiFrameColumns, false)
KESTREL_IMAGE_COLUMNS(CXAStorage, kAngioColumns, false)
