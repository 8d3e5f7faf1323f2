#!/usr/bin/python3
"""Writes the attribute tables of the IOD module classes.

Run by hand when a module changes, not by the build; the results are committed:

    /usr/bin/python3 scripts/gen_module_tables.py

Outputs:
    include/kestrel/CO_ModuleTable.h  one X-macro list per module: tag, VR, typed class, keyword
    docs/typed-modules.md             the same lists for people

What comes from where:
- Which attributes belong to which module is written below, one keyword list per module, in
  the order of the module's table in PS3.3 (section named with each module). Each list holds
  the module's top-level attributes as the current edition lists them, attributes of macros
  that the table includes at the top level, and the attributes that earlier editions listed and
  later retired (real files still carry them). Attributes nested inside a sequence are not
  listed: they travel inside their sequence element.
- Tag, VR and keyword come from the project's data dictionary data/dicom.dic, so they cannot
  drift from what the decoder uses. A keyword the dictionary does not know stops the script.
- The dictionary holds one VR per tag. Where the standard allows two, the Debian
  python3-pydicom dictionary (black-box data) says so: "US or SS" attributes get VR_XS and
  "OB or OW" attributes VR_OX, the two classes that carry the VR of the value they hold.
"""

import os
import re
import sys

from pydicom._dicom_dict import DicomDictionary

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DICTIONARY = os.path.join(ROOT, "data", "dicom.dic")
HEADER = os.path.join(ROOT, "include", "kestrel", "CO_ModuleTable.h")
DOC = os.path.join(ROOT, "docs", "typed-modules.md")

# (macro suffix, class name, module name, PS3.3 section, keywords in PS3.3 order)
MODULES = [
    ("PATIENT", "CO_PatientModule", "Patient", "C.7.1.1", """
        PatientName PatientID IssuerOfPatientID IssuerOfPatientIDQualifiersSequence
        TypeOfPatientID PatientBirthDate PatientBirthDateInAlternativeCalendar
        PatientDeathDateInAlternativeCalendar PatientAlternativeCalendar PatientSex
        ReferencedPatientPhotoSequence QualityControlSubject ReferencedPatientSequence
        PatientBirthTime OtherPatientIDs OtherPatientIDsSequence OtherPatientNames EthnicGroup
        PatientComments PatientSpeciesDescription PatientSpeciesCodeSequence
        PatientBreedDescription PatientBreedCodeSequence BreedRegistrationSequence
        StrainDescription StrainNomenclature StrainCodeSequence StrainAdditionalInformation
        StrainStockSequence GeneticModificationsSequence ResponsiblePerson
        ResponsiblePersonRole ResponsibleOrganization PatientIdentityRemoved
        DeidentificationMethod DeidentificationMethodCodeSequence
        SourcePatientGroupIdentificationSequence GroupOfPatientsIdentificationSequence
    """),
    ("PATIENT_STUDY", "CO_PatientStudyModule", "Patient Study", "C.7.2.2", """
        AdmittingDiagnosesDescription AdmittingDiagnosesCodeSequence PatientAge PatientSize
        PatientWeight PatientBodyMassIndex MeasuredAPDimension MeasuredLateralDimension
        PatientSizeCodeSequence MedicalAlerts Allergies SmokingStatus PregnancyStatus
        LastMenstrualDate PatientState Occupation AdditionalPatientHistory AdmissionID
        IssuerOfAdmissionIDSequence ReasonForVisit ReasonForVisitCodeSequence
        ServiceEpisodeID IssuerOfServiceEpisodeIDSequence ServiceEpisodeDescription
        PatientSexNeutered
    """),
    ("GENERAL_STUDY", "CO_GeneralStudyModule", "General Study", "C.7.2.1", """
        StudyInstanceUID StudyDate StudyTime ReferringPhysicianName
        ReferringPhysicianIdentificationSequence ConsultingPhysicianName
        ConsultingPhysicianIdentificationSequence StudyID AccessionNumber
        IssuerOfAccessionNumberSequence StudyDescription PhysiciansOfRecord
        PhysiciansOfRecordIdentificationSequence NameOfPhysiciansReadingStudy
        PhysiciansReadingStudyIdentificationSequence RequestingServiceCodeSequence
        ReferencedStudySequence ProcedureCodeSequence ReasonForPerformedProcedureCodeSequence
    """),
    ("GENERAL_SERIES", "CO_GeneralSeriesModule", "General Series", "C.7.3.1", """
        Modality SeriesInstanceUID SeriesNumber Laterality SeriesDate SeriesTime
        PerformingPhysicianName PerformingPhysicianIdentificationSequence ProtocolName
        SeriesDescription SeriesDescriptionCodeSequence OperatorsName
        OperatorIdentificationSequence ReferencedPerformedProcedureStepSequence
        RelatedSeriesSequence BodyPartExamined PatientPosition SmallestPixelValueInSeries
        LargestPixelValueInSeries RequestAttributesSequence PerformedProcedureStepID
        PerformedProcedureStepStartDate PerformedProcedureStepStartTime
        PerformedProcedureStepEndDate PerformedProcedureStepEndTime
        PerformedProcedureStepDescription PerformedProtocolCodeSequence
        CommentsOnThePerformedProcedureStep AnatomicalOrientationType
    """),
    ("GENERAL_EQUIPMENT", "CO_GeneralEquipmentModule", "General Equipment", "C.7.5.1", """
        Manufacturer InstitutionName InstitutionAddress StationName
        InstitutionalDepartmentName InstitutionalDepartmentTypeCodeSequence
        ManufacturerModelName ManufacturerDeviceClassUID DeviceSerialNumber SoftwareVersions
        GantryID UDISequence DeviceUID SpatialResolution DateOfLastCalibration
        TimeOfLastCalibration PixelPaddingValue
    """),
    ("GENERAL_IMAGE", "CO_GeneralImageModule", "General Image", "C.7.6.1", """
        InstanceNumber PatientOrientation ContentDate ContentTime ImageType AcquisitionNumber
        AcquisitionDate AcquisitionTime AcquisitionDateTime ReferencedImageSequence
        DerivationDescription DerivationCodeSequence SourceImageSequence
        ReferencedInstanceSequence ImagesInAcquisition ImageComments QualityControlImage
        BurnedInAnnotation RecognizableVisualFeatures LossyImageCompression
        LossyImageCompressionRatio LossyImageCompressionMethod IconImageSequence
        PresentationLUTShape IrradiationEventUID RealWorldValueMappingSequence
    """),
    ("IMAGE_PIXEL", "CO_ImagePixelModule", "Image Pixel", "C.7.6.3", """
        SamplesPerPixel PhotometricInterpretation Rows Columns BitsAllocated BitsStored HighBit
        PixelRepresentation PixelData PlanarConfiguration PixelAspectRatio
        SmallestImagePixelValue LargestImagePixelValue RedPaletteColorLookupTableDescriptor
        GreenPaletteColorLookupTableDescriptor BluePaletteColorLookupTableDescriptor
        RedPaletteColorLookupTableData GreenPaletteColorLookupTableData
        BluePaletteColorLookupTableData ICCProfile ColorSpace PixelDataProviderURL
        PixelPaddingRangeLimit ExtendedOffsetTable ExtendedOffsetTableLengths
    """),
    ("SOP_COMMON", "CO_SOPCommonModule", "SOP Common", "C.12.1", """
        SOPClassUID SOPInstanceUID SpecificCharacterSet InstanceCreationDate
        InstanceCreationTime InstanceCoercionDateTime InstanceCreatorUID
        RelatedGeneralSOPClassUID OriginalSpecializedSOPClassUID
        CodingSchemeIdentificationSequence ContextGroupIdentificationSequence
        MappingResourceIdentificationSequence TimezoneOffsetFromUTC
        ContributingEquipmentSequence InstanceNumber SOPInstanceStatus
        SOPAuthorizationDateTime SOPAuthorizationComment
        AuthorizationEquipmentCertificationNumber MACParametersSequence
        DigitalSignaturesSequence EncryptedAttributesSequence OriginalAttributesSequence
        InstanceOriginStatus HL7StructuredDocumentReferenceSequence
        LongitudinalTemporalInformationModified QueryRetrieveView
        ConversionSourceAttributesSequence ContentQualification
        PrivateDataElementCharacteristicsSequence
    """),
    ("VOI_LUT", "CO_VOILUTModule", "VOI LUT", "C.11.2", """
        VOILUTSequence WindowCenter WindowWidth WindowCenterWidthExplanation VOILUTFunction
    """),
    ("IMAGE_PLANE", "CO_ImagePlaneModule", "Image Plane", "C.7.6.2", """
        PixelSpacing ImageOrientationPatient ImagePositionPatient SliceThickness
        SpacingBetweenSlices SliceLocation
    """),
    ("FRAME_OF_REFERENCE", "CO_FrameOfReferenceModule", "Frame of Reference", "C.7.4.1", """
        FrameOfReferenceUID PositionReferenceIndicator
    """),
    ("CR_SERIES", "CO_CRSeriesModule", "CR Series", "C.8.1.1", """
        BodyPartExamined ViewPosition FilterType CollimatorGridName FocalSpots PlateType
        PhosphorType
    """),
    ("CR_IMAGE", "CO_CRImageModule", "CR Image", "C.8.1.2", """
        PhotometricInterpretation KVP PlateID DistanceSourceToDetector
        DistanceSourceToPatient ExposureTime XRayTubeCurrent Exposure ExposureInuAs
        ImagerPixelSpacing GeneratorPower AcquisitionDeviceProcessingDescription
        AcquisitionDeviceProcessingCode CassetteOrientation CassetteSize ExposuresOnPlate
        RelativeXRayExposure ExposureIndex TargetExposureIndex DeviationIndex Sensitivity
    """),
    ("DX_IMAGE", "CO_DXImageModule", "DX Image", "C.8.11.4", """
        ImageType SamplesPerPixel PhotometricInterpretation BitsAllocated BitsStored HighBit
        PixelRepresentation PixelIntensityRelationship PixelIntensityRelationshipSign
        RescaleIntercept RescaleSlope RescaleType PresentationLUTShape LossyImageCompression
        LossyImageCompressionRatio DerivationDescription
        AcquisitionDeviceProcessingDescription AcquisitionDeviceProcessingCode
        PatientOrientation CalibrationImage BurnedInAnnotation VOILUTSequence WindowCenter
        WindowWidth WindowCenterWidthExplanation
    """),
    ("CT_IMAGE", "CO_CTImageModule", "CT Image", "C.8.2.1", """
        ImageType SamplesPerPixel PhotometricInterpretation BitsAllocated BitsStored HighBit
        RescaleIntercept RescaleSlope RescaleType KVP AcquisitionNumber ScanOptions
        DataCollectionDiameter DataCollectionCenterPatient ReconstructionDiameter
        ReconstructionTargetCenterPatient DistanceSourceToDetector DistanceSourceToPatient
        GantryDetectorTilt TableHeight RotationDirection ExposureTime XRayTubeCurrent
        Exposure ExposureInuAs FilterType GeneratorPower FocalSpots ConvolutionKernel
        RevolutionTime SingleCollimationWidth TotalCollimationWidth TableSpeed
        TableFeedPerRotation SpiralPitchFactor ExposureModulationType EstimatedDoseSaving
        CTDIvol CTDIPhantomTypeCodeSequence CalciumScoringMassFactorPatient
        CalciumScoringMassFactorDevice EnergyWeightingFactor CTAdditionalXRaySourceSequence
        IsocenterPosition MultienergyCTAcquisition
    """),
    ("CONTRAST_BOLUS", "CO_ContrastBolusModule", "Contrast/Bolus", "C.7.6.4", """
        ContrastBolusAgent ContrastBolusAgentSequence ContrastBolusRoute
        ContrastBolusAdministrationRouteSequence ContrastBolusVolume ContrastBolusStartTime
        ContrastBolusStopTime ContrastBolusTotalDose ContrastFlowRate ContrastFlowDuration
        ContrastBolusIngredient ContrastBolusIngredientConcentration
    """),
    ("MR_IMAGE", "CO_MRImageModule", "MR Image", "C.8.3.1", """
        ImageType SamplesPerPixel PhotometricInterpretation BitsAllocated BitsStored HighBit
        ScanningSequence SequenceVariant ScanOptions MRAcquisitionType RepetitionTime
        EchoTime EchoTrainLength InversionTime TriggerTime SequenceName AngioFlag
        NumberOfAverages ImagingFrequency ImagedNucleus EchoNumbers MagneticFieldStrength
        SpacingBetweenSlices NumberOfPhaseEncodingSteps PercentSampling
        PercentPhaseFieldOfView PixelBandwidth NominalInterval BeatRejectionFlag LowRRValue
        HighRRValue IntervalsAcquired IntervalsRejected PVCRejection SkipBeats HeartRate
        CardiacNumberOfImages TriggerWindow ReconstructionDiameter ReceiveCoilName
        TransmitCoilName AcquisitionMatrix InPlanePhaseEncodingDirection FlipAngle SAR
        VariableFlipAngleFlag dBdt B1rms TemporalPositionIdentifier
        NumberOfTemporalPositions TemporalResolution AnatomicRegionSequence
        PrimaryAnatomicStructureSequence
    """),
    ("NM_IMAGE", "CO_NMImageModule", "NM Image", "C.8.4.9", """
        ImageType ImageID LossyImageCompression LossyImageCompressionRatio CountsAccumulated
        AcquisitionTerminationCondition TableHeight TableTraverse ActualFrameDuration
        CountRate ProcessingFunction CorrectedImage WholeBodyTechnique ScanVelocity
        ScanLength TriggerSourceOrType
    """),
    # The series level of the retired Nuclear Medicine Image IOD (1.2.840.10008.5.1.4.1.1.5):
    # the radiopharmaceutical, intervention and energy-window attributes that the current NM
    # IOD moved into sequences of the NM Isotope Module (C.8.4.10).
    ("NM_SERIES", "CO_NMSeriesModule", "NM Series", "retired NM Image IOD", """
        Radionuclide Radiopharmaceutical EnergyWindowCenterline EnergyWindowTotalWidth
        InterventionDrugName InterventionDrugStartTime InterventionDrugStopTime
        InterventionDrugDose RadiopharmaceuticalRoute RadiopharmaceuticalVolume
        RadiopharmaceuticalStartTime RadiopharmaceuticalStopTime RadionuclideTotalDose
        RadionuclideHalfLife RadionuclidePositronFraction SyringeCounts CollimatorType
    """),
    ("MULTIFRAME", "CO_MultiframeModule", "Multi-frame", "C.7.6.6", """
        NumberOfFrames FrameIncrementPointer StereoPairsPresent
    """),
    ("PET_SERIES", "CO_PETSeriesModule", "PET Series", "C.8.9.1", """
        SeriesDate SeriesTime Units CountsSource SeriesType ReprojectionMethod
        NumberOfRRIntervals NumberOfTimeSlots NumberOfTimeSlices NumberOfSlices
        CorrectedImage RandomsCorrectionMethod AttenuationCorrectionMethod
        ScatterCorrectionMethod DecayCorrection ReconstructionDiameter ConvolutionKernel
        ReconstructionMethod DetectorLinesOfResponseUsed AcquisitionStartCondition
        AcquisitionStartConditionData AcquisitionTerminationCondition
        AcquisitionTerminationConditionData FieldOfViewShape FieldOfViewDimensions
        GantryDetectorTilt GantryDetectorSlew TypeOfDetectorMotion CollimatorType
        CollimatorGridName AxialAcceptance AxialMash TransverseMash DetectorElementSize
        CoincidenceWindowWidth EnergyWindowRangeSequence SecondaryCountsType
    """),
    ("PET_IMAGE", "CO_PETImageModule", "PET Image", "C.8.9.4", """
        ImageType SamplesPerPixel PhotometricInterpretation BitsAllocated BitsStored HighBit
        RescaleIntercept RescaleSlope FrameReferenceTime TriggerTime FrameTime LowRRValue
        HighRRValue LossyImageCompression ImageIndex AcquisitionDate AcquisitionTime
        ActualFrameDuration NominalInterval IntervalsAcquired IntervalsRejected
        PrimaryPromptsCountsAccumulated SecondaryCountsAccumulated SliceSensitivityFactor
        DecayFactor DoseCalibrationFactor ScatterFractionFactor DeadTimeFactor
        AnatomicRegionSequence PrimaryAnatomicStructureSequence
    """),
    # The X-Ray Radiofluoroscopic Image IOD has no module of this name: its image-level module
    # is the X-Ray Image Module, which the class holds.
    ("RF_IMAGE", "CO_RFImageModule", "X-Ray Image", "C.8.7.1", """
        FrameIncrementPointer LossyImageCompression ImageType PixelIntensityRelationship
        SamplesPerPixel PhotometricInterpretation BitsAllocated BitsStored HighBit
        PixelRepresentation ScanOptions AnatomicRegionSequence
        PrimaryAnatomicStructureSequence RWavePointer ReferencedImageSequence
        DerivationDescription AcquisitionDeviceProcessingDescription FrameLabelVector
        FrameDimensionPointer CalibrationImage
    """),
    ("SC_IMAGE", "CO_SCImageModule", "SC Image", "C.8.6.2", """
        DateOfSecondaryCapture TimeOfSecondaryCapture NominalScannedPixelSpacing
        PixelSpacing PixelSpacingCalibrationType PixelSpacingCalibrationDescription
        DocumentClassCodeSequence
    """),
    ("SC_EQUIPMENT", "CO_SCEquipmentModule", "SC Equipment", "C.8.6.1", """
        ConversionType Modality SecondaryCaptureDeviceID SecondaryCaptureDeviceManufacturer
        SecondaryCaptureDeviceManufacturerModelName SecondaryCaptureDeviceSoftwareVersions
        VideoImageFormatAcquired DigitalImageFormatAcquired
    """),
    ("MODALITY_LUT", "CO_ModalityLUTModule", "Modality LUT", "C.11.1", """
        ModalityLUTSequence RescaleIntercept RescaleSlope RescaleType
    """),
    ("US_IMAGE", "CO_USImageModule", "US Image", "C.8.5.6", """
        SamplesPerPixel PhotometricInterpretation BitsAllocated BitsStored HighBit
        PlanarConfiguration PixelRepresentation FrameIncrementPointer ImageType
        LossyImageCompression NumberOfStages NumberOfViewsInStage UltrasoundColorDataPresent
        StageName StageCodeSequence StageNumber ViewName ViewNumber NumberOfEventTimers
        EventElapsedTimes EventTimerNames AnatomicRegionSequence
        PrimaryAnatomicStructureSequence TransducerPositionSequence
        TransducerOrientationSequence TriggerTime NominalInterval BeatRejectionFlag
        LowRRValue HighRRValue HeartRate OutputPower TransducerData TransducerType
        FocusDepth ProcessingFunction MechanicalIndex BoneThermalIndex CranialThermalIndex
        SoftTissueThermalIndex SoftTissueFocusThermalIndex SoftTissueSurfaceThermalIndex
        DepthOfScanField ViewCodeSequence
    """),
    ("PRINTER", "CO_PrinterModule", "Printer", "C.13.9", """
        PrinterStatus PrinterStatusInfo PrinterName Manufacturer ManufacturerModelName
        DeviceSerialNumber SoftwareVersions DateOfLastCalibration TimeOfLastCalibration
    """),
]

# Typed class for each VR. AE, DT, UC and UR have no class of their own: they are text with
# the string rules, held in the family class; UT is one text value like LT. OB and the other
# "other" VRs are held by VR_OX, which keeps the VR it was given. FL has no class either: its
# values are 4-byte binary words, held by VR_UL (the element still carries FL as its VR).
CLASS_OF_VR = {
    "AS": "VR_AS", "CS": "VR_CS", "DA": "VR_DA", "DS": "VR_DS", "IS": "VR_IS",
    "LO": "VR_LO", "PN": "VR_PN", "SH": "VR_SH", "TM": "VR_TM", "UI": "VR_UI",
    "AE": "VR_XXSTRING", "DT": "VR_XXSTRING", "UC": "VR_XXSTRING", "UR": "VR_XXSTRING",
    "AT": "VR_AT", "FD": "VR_FD", "OW": "VR_OW", "SL": "VR_SL", "SS": "VR_SS",
    "UL": "VR_UL", "US": "VR_US", "FL": "VR_UL", "OB": "VR_OX", "OF": "VR_OX", "OD": "VR_OX",
    "OL": "VR_OX", "OV": "VR_OX", "UN": "VR_OX",
    "LT": "VR_LT", "ST": "VR_ST", "UT": "VR_LT", "SQ": "VR_SQ",
}

LINE = re.compile(r'^\(([0-9A-F]{4}),([0-9A-F]{4})\) VR="([A-Z]{2})" Keyword="([A-Za-z0-9]+)"')


def read_dictionary():
    by_keyword = {}
    with open(DICTIONARY, encoding="ascii") as text:
        for line in text:
            match = LINE.match(line)
            if match:
                group, element, vr, keyword = match.groups()
                by_keyword[keyword] = (int(group, 16), int(element, 16), vr)
    return by_keyword


def multi_vr_keywords():
    """Keywords whose standard VR is "US or SS" and "OB or OW"."""
    xs, ox = set(), set()
    for vr, _vm, _name, _retired, keyword in DicomDictionary.values():
        if vr == "US or SS":
            xs.add(keyword)
        elif vr == "OB or OW":
            ox.add(keyword)
    return xs, ox


def resolve(by_keyword, xs, ox):
    modules = []
    for suffix, cls, name, section, keywords in MODULES:
        rows = []
        for keyword in keywords.split():
            if keyword not in by_keyword:
                sys.exit(f"{cls}: {keyword} is not in {DICTIONARY}")
            group, element, vr = by_keyword[keyword]
            if keyword in xs:
                typed = "VR_XS"
            elif keyword in ox:
                typed = "VR_OX"
            elif vr in CLASS_OF_VR:
                typed = CLASS_OF_VR[vr]
            else:
                sys.exit(f"{cls}: {keyword} has VR {vr}, which no typed class holds")
            rows.append((group, element, vr, typed, keyword))
        if len({row[4] for row in rows}) != len(rows):
            sys.exit(f"{cls}: a keyword is listed twice")
        modules.append((suffix, cls, name, section, rows))
    return modules


def write_header(modules):
    out = [
        "#pragma once",
        "",
        "// Generated by scripts/gen_module_tables.py from data/dicom.dic; do not edit by hand.",
        "//",
        "// The attributes of each IOD module, in the order of the module's table in PS3.3. One",
        "// X-macro per module; each row is X(group, element, VR, typed class, keyword). CO_Modules.h",
        "// turns every row into a typed accessor named after the keyword, CO_Modules.cpp into the",
        "// module's attribute table.",
        "",
        "// clang-format off",
    ]
    for suffix, cls, name, section, rows in modules:
        out.append("")
        where = f"PS3.3 {section}" if section.startswith("C.") else section
        out.append(f"// {cls}: {name} Module ({where}), {len(rows)} attributes.")
        out.append(f"#define KESTREL_{suffix}_MODULE(X) \\")
        for i, (group, element, vr, typed, keyword) in enumerate(rows):
            end = " \\" if i + 1 < len(rows) else ""
            out.append(f"  X(0x{group:04X}, 0x{element:04X}, {vr}, {typed}, {keyword}){end}")
    out += ["", "// clang-format on"]
    with open(HEADER, "w", encoding="ascii") as header:
        header.write("\n".join(out) + "\n")


def write_doc(modules):
    out = [
        "# Attributes of the IOD module classes",
        "",
        "Generated by `scripts/gen_module_tables.py` together with",
        "`include/kestrel/CO_ModuleTable.h`; see `docs/typed.md` for how the lists were made.",
        "Each class holds one typed element per row; the accessor has the keyword's name.",
    ]
    for _suffix, cls, name, section, rows in modules:
        where = f"PS3.3 {section}" if section.startswith("C.") else section
        out += ["", f"## {cls}: {name} Module ({where})", "",
                "| Tag | VR | Class | Keyword |", "|---|---|---|---|"]
        for group, element, vr, typed, keyword in rows:
            out.append(f"| ({group:04X},{element:04X}) | {vr} | `{typed}` | {keyword} |")
    with open(DOC, "w", encoding="ascii") as doc:
        doc.write("\n".join(out) + "\n")


def main():
    xs, ox = multi_vr_keywords()
    modules = resolve(read_dictionary(), xs, ox)
    write_header(modules)
    write_doc(modules)
    total = sum(len(rows) for *_rest, rows in modules)
    print(f"{len(modules)} modules, {total} attributes")


if __name__ == "__main__":
    main()
