#pragma once

// The IOD module classes: one class per module of PS3.3 that the storage objects use. Each
// holds one typed element per attribute of its module and has an accessor per attribute named
// after the attribute's keyword, returning the element of the attribute's typed class:
//
//   CO_PatientModule patient;
//   patient.ReadFrom(dataSet);
//   std::string name;
//   patient.PatientName()->Get(name);
//
// The attribute lists are generated (CO_ModuleTable.h, listed in docs/typed-modules.md). What
// the classes do as data objects, and who owns what, is told in CO_Abstract.h. A module made on
// its own keeps its own referential-integrity database; an IOD gives its modules its own.

#include "kestrel/CO_Abstract.h"
#include "kestrel/CO_ModuleTable.h"
#include "kestrel/Export.h"
#include "kestrel/VR_XXTYPED.h"

class VRReferentialIntegrityDatabase;

// One accessor per row of a module's table.
#define KESTREL_CO_ACCESSOR(group, element, vr, Class, Keyword) \
  Class* Keyword() { return static_cast<Class*>(GetAttribute(group, element)); }

#define KESTREL_CO_MODULE(Class, LIST)                                  \
  class KESTREL_API Class : public CO_Abstract {                        \
   public:                                                              \
    explicit Class(VRReferentialIntegrityDatabase* database = nullptr); \
    ~Class() override;                                                  \
    LIST(KESTREL_CO_ACCESSOR)                                           \
  };

// PS3.3 C.7.1.1
KESTREL_CO_MODULE(CO_PatientModule, KESTREL_PATIENT_MODULE)
// PS3.3 C.7.2.2
KESTREL_CO_MODULE(CO_PatientStudyModule, KESTREL_PATIENT_STUDY_MODULE)
// PS3.3 C.7.2.1
KESTREL_CO_MODULE(CO_GeneralStudyModule, KESTREL_GENERAL_STUDY_MODULE)
// PS3.3 C.7.3.1
KESTREL_CO_MODULE(CO_GeneralSeriesModule, KESTREL_GENERAL_SERIES_MODULE)
// PS3.3 C.7.5.1
KESTREL_CO_MODULE(CO_GeneralEquipmentModule, KESTREL_GENERAL_EQUIPMENT_MODULE)
// PS3.3 C.7.6.1
KESTREL_CO_MODULE(CO_GeneralImageModule, KESTREL_GENERAL_IMAGE_MODULE)
// PS3.3 C.7.6.3
KESTREL_CO_MODULE(CO_ImagePixelModule, KESTREL_IMAGE_PIXEL_MODULE)
// PS3.3 C.12.1
KESTREL_CO_MODULE(CO_SOPCommonModule, KESTREL_SOP_COMMON_MODULE)
// PS3.3 C.11.2
KESTREL_CO_MODULE(CO_VOILUTModule, KESTREL_VOI_LUT_MODULE)
// PS3.3 C.7.6.2
KESTREL_CO_MODULE(CO_ImagePlaneModule, KESTREL_IMAGE_PLANE_MODULE)
// PS3.3 C.7.4.1
KESTREL_CO_MODULE(CO_FrameOfReferenceModule, KESTREL_FRAME_OF_REFERENCE_MODULE)
// PS3.3 C.8.1.1
KESTREL_CO_MODULE(CO_CRSeriesModule, KESTREL_CR_SERIES_MODULE)
// PS3.3 C.8.1.2
KESTREL_CO_MODULE(CO_CRImageModule, KESTREL_CR_IMAGE_MODULE)
// PS3.3 C.8.11.4
KESTREL_CO_MODULE(CO_DXImageModule, KESTREL_DX_IMAGE_MODULE)
// PS3.3 C.8.2.1
KESTREL_CO_MODULE(CO_CTImageModule, KESTREL_CT_IMAGE_MODULE)
// PS3.3 C.7.6.4
KESTREL_CO_MODULE(CO_ContrastBolusModule, KESTREL_CONTRAST_BOLUS_MODULE)
// PS3.3 C.8.3.1
KESTREL_CO_MODULE(CO_MRImageModule, KESTREL_MR_IMAGE_MODULE)
// PS3.3 C.8.4.9
KESTREL_CO_MODULE(CO_NMImageModule, KESTREL_NM_IMAGE_MODULE)
// The series level of the retired NM Image IOD; see docs/typed.md.
KESTREL_CO_MODULE(CO_NMSeriesModule, KESTREL_NM_SERIES_MODULE)
// PS3.3 C.7.6.6
KESTREL_CO_MODULE(CO_MultiframeModule, KESTREL_MULTIFRAME_MODULE)
// PS3.3 C.8.9.1
KESTREL_CO_MODULE(CO_PETSeriesModule, KESTREL_PET_SERIES_MODULE)
// PS3.3 C.8.9.4
KESTREL_CO_MODULE(CO_PETImageModule, KESTREL_PET_IMAGE_MODULE)
// The X-Ray Image Module, PS3.3 C.8.7.1, the image-level module of the RF IOD.
KESTREL_CO_MODULE(CO_RFImageModule, KESTREL_RF_IMAGE_MODULE)
// PS3.3 C.8.6.2
KESTREL_CO_MODULE(CO_SCImageModule, KESTREL_SC_IMAGE_MODULE)
// PS3.3 C.8.6.1
KESTREL_CO_MODULE(CO_SCEquipmentModule, KESTREL_SC_EQUIPMENT_MODULE)
// PS3.3 C.11.1
KESTREL_CO_MODULE(CO_ModalityLUTModule, KESTREL_MODALITY_LUT_MODULE)
// PS3.3 C.8.5.6
KESTREL_CO_MODULE(CO_USImageModule, KESTREL_US_IMAGE_MODULE)
// PS3.3 C.13.9
KESTREL_CO_MODULE(CO_PrinterModule, KESTREL_PRINTER_MODULE)

#undef KESTREL_CO_MODULE
#undef KESTREL_CO_ACCESSOR
