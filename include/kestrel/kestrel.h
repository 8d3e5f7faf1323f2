#pragma once

// Kestrel: one include line for every exported family of the library.
#include "kestrel/Export.h"

// Data model, codec, dictionary and files.
#include "kestrel/Array.h"
#include "kestrel/ByteBuffer.h"
#include "kestrel/CharacterSets.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMFileWriter.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/FileMapping.h"
#include "kestrel/RTC.h"

// Typed values and IOD modules.
#include "kestrel/CO_Abstract.h"
#include "kestrel/CO_Modules.h"
#include "kestrel/ImageIODModule.h"
#include "kestrel/VRReferentialIntegrityDatabase.h"
#include "kestrel/VR_XXTYPED.h"

// Storage objects by modality.
#include "kestrel/CStandardStorage.h"
#include "kestrel/CStorage.h"
#include "kestrel/CUnknownStorage.h"
#include "kestrel/ModalityStorage.h"

// Sockets, associations, DIMSE messages and service class bases.
#include "kestrel/DIMSEC.h"
#include "kestrel/DIMSEN.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/PresentationContext.h"
#include "kestrel/PrintServiceClasses.h"
#include "kestrel/Socket.h"
#include "kestrel/StandardQuery.h"
#include "kestrel/StandardRetrieve.h"
#include "kestrel/StandardStorage.h"
#include "kestrel/UID.h"
#include "kestrel/Verification.h"

// Library frame.
#include "kestrel/CDICOMException.h"
#include "kestrel/CDestination.h"
#include "kestrel/CVerification.h"
#include "kestrel/ConnectFailure.h"
#include "kestrel/NewStudyEvent.h"
#include "kestrel/Notifier.h"
#include "kestrel/Status.h"

// Print management.
#include "kestrel/CBasicFilmBox.h"
#include "kestrel/CBasicFilmSession.h"
#include "kestrel/CBasicGrayscaleImageBox.h"
#include "kestrel/CDICOMPrintException.h"
#include "kestrel/CPrintImage.h"
#include "kestrel/CPrintJob.h"
#include "kestrel/CPrinter.h"

// Patient names.
#include "kestrel/CPatientNameParser.h"

// Image and RIS databases.
#include "kestrel/CBasicRecordset.h"
#include "kestrel/CDBException.h"
#include "kestrel/CDatabase.h"
#include "kestrel/CRecordset.h"
#include "kestrel/CWorklistOrderSet.h"
#include "kestrel/DatabaseSetup.h"
#include "kestrel/RecordSets.h"

// Query results, key matching, the C-FIND provider, query and retrieve, the worklist and the
// report query.
#include "kestrel/CMitraReportQuery.h"
#include "kestrel/CModalityWorklistQuery.h"
#include "kestrel/CPatientRootQuery.h"
#include "kestrel/CPatientRootRetrieve.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/CStudyRootQuery.h"
#include "kestrel/CStudyRootRetrieve.h"
#include "kestrel/FindProvider.h"
#include "kestrel/KeyMatching.h"

// Media directories.
#include "kestrel/CDicomDirectory.h"
#include "kestrel/DicomDirectoryRecords.h"
