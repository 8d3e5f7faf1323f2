// The module classes: each one's attribute table, built from the generated lists.
#include "kestrel/CO_Modules.h"

#include <iterator>

namespace {

template <class Typed>
VR_XXTYPED* CreateTyped() {
  return new Typed();
}

}  // namespace

#define KESTREL_CO_ROW(group, element, vr, Class, Keyword) \
  {group, element, MakeTypeCode(#vr[0], #vr[1]), #Keyword, &CreateTyped<Class>},

#define KESTREL_CO_DEFINE(Class, LIST, Name)                                                  \
  namespace {                                                                                 \
  const CO_AttributeInfo k##Class##Table[] = {LIST(KESTREL_CO_ROW)};                          \
  }                                                                                           \
  Class::Class(VRReferentialIntegrityDatabase* database)                                      \
      : CO_Abstract(Name, k##Class##Table, static_cast<uint32_t>(std::size(k##Class##Table)), \
                    database) {}                                                              \
  Class::~Class() = default;

KESTREL_CO_DEFINE(CO_PatientModule, KESTREL_PATIENT_MODULE, "Patient")
KESTREL_CO_DEFINE(CO_PatientStudyModule, KESTREL_PATIENT_STUDY_MODULE, "Patient Study")
KESTREL_CO_DEFINE(CO_GeneralStudyModule, KESTREL_GENERAL_STUDY_MODULE, "General Study")
KESTREL_CO_DEFINE(CO_GeneralSeriesModule, KESTREL_GENERAL_SERIES_MODULE, "General Series")
KESTREL_CO_DEFINE(CO_GeneralEquipmentModule, KESTREL_GENERAL_EQUIPMENT_MODULE, "General Equipment")
KESTREL_CO_DEFINE(CO_GeneralImageModule, KESTREL_GENERAL_IMAGE_MODULE, "General Image")
KESTREL_CO_DEFINE(CO_ImagePixelModule, KESTREL_IMAGE_PIXEL_MODULE, "Image Pixel")
KESTREL_CO_DEFINE(CO_SOPCommonModule, KESTREL_SOP_COMMON_MODULE, "SOP Common")
KESTREL_CO_DEFINE(CO_VOILUTModule, KESTREL_VOI_LUT_MODULE, "VOI LUT")
KESTREL_CO_DEFINE(CO_ImagePlaneModule, KESTREL_IMAGE_PLANE_MODULE, "Image Plane")
KESTREL_CO_DEFINE(CO_FrameOfReferenceModule, KESTREL_FRAME_OF_REFERENCE_MODULE,
                  "Frame of Reference")
KESTREL_CO_DEFINE(CO_CRSeriesModule, KESTREL_CR_SERIES_MODULE, "CR Series")
KESTREL_CO_DEFINE(CO_CRImageModule, KESTREL_CR_IMAGE_MODULE, "CR Image")
KESTREL_CO_DEFINE(CO_DXImageModule, KESTREL_DX_IMAGE_MODULE, "DX Image")
KESTREL_CO_DEFINE(CO_CTImageModule, KESTREL_CT_IMAGE_MODULE, "CT Image")
KESTREL_CO_DEFINE(CO_ContrastBolusModule, KESTREL_CONTRAST_BOLUS_MODULE, "Contrast/Bolus")
KESTREL_CO_DEFINE(CO_MRImageModule, KESTREL_MR_IMAGE_MODULE, "MR Image")
KESTREL_CO_DEFINE(CO_NMImageModule, KESTREL_NM_IMAGE_MODULE, "NM Image")
KESTREL_CO_DEFINE(CO_NMSeriesModule, KESTREL_NM_SERIES_MODULE, "NM Series")
KESTREL_CO_DEFINE(CO_MultiframeModule, KESTREL_MULTIFRAME_MODULE, "Multi-frame")
KESTREL_CO_DEFINE(CO_PETSeriesModule, KESTREL_PET_SERIES_MODULE, "PET Series")
KESTREL_CO_DEFINE(CO_PETImageModule, KESTREL_PET_IMAGE_MODULE, "PET Image")
KESTREL_CO_DEFINE(CO_RFImageModule, KESTREL_RF_IMAGE_MODULE, "X-Ray Image")
KESTREL_CO_DEFINE(CO_SCImageModule, KESTREL_SC_IMAGE_MODULE, "SC Image")
KESTREL_CO_DEFINE(CO_SCEquipmentModule, KESTREL_SC_EQUIPMENT_MODULE, "SC Equipment")
KESTREL_CO_DEFINE(CO_ModalityLUTModule, KESTREL_MODALITY_LUT_MODULE, "Modality LUT")
KESTREL_CO_DEFINE(CO_USImageModule, KESTREL_US_IMAGE_MODULE, "US Image")
KESTREL_CO_DEFINE(CO_PrinterModule, KESTREL_PRINTER_MODULE, "Printer")
