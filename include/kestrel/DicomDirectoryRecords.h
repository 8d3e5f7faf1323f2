#pragma once

// The records of a media directory (DICOMDIR, PS3.10 and PS3.3 Annex F) as a tree: patients,
// their studies, the studies' series, and in each series its images. Records of other types
// (SR documents, presentation states, waveforms, PRIVATE records, types this library does not
// know) are kept beside the tree nodes as COtherObjects, at the level where they were found.
//
// Values are the record's own text without padding, "" when the record does not carry the
// attribute. Nodes own their children (unique_ptr); CDicomDirectory owns the patients.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/Export.h"

// What every record that names a file holds.
class KESTREL_API CDirectoryRecord {
 public:
  std::string RecordType;         // (0004,1430), e.g. "IMAGE", "SR DOCUMENT", "PRIVATE"
  std::string FileID;             // (0004,1500), components joined with '\'
  std::string SOPClassUID;        // (0004,1510)
  std::string SOPInstanceUID;     // (0004,1511)
  std::string TransferSyntaxUID;  // (0004,1512)
  std::string InstanceNumber;     // (0020,0013)
  // The referenced file on this machine, found beside the DICOMDIR (the names compared without
  // case and without an ISO 9660 version suffix ";1", as mounted discs present them); "" when
  // the record names no file or names one that is not there or not allowed (".." and the like).
  std::string Path;
  // Where the record sits in the DICOMDIR (bytes from the start of the file); 0 for records
  // that were not read from a file.
  uint32_t Offset = 0;
  // Whether the workstation can show the object: an IMAGE record of one of the image storage
  // classes of the library (ModalityStorage.h).
  bool Supported = false;
};

class KESTREL_API CImages : public CDirectoryRecord {};

class KESTREL_API COtherObjects : public CDirectoryRecord {};

class KESTREL_API CSeries {
 public:
  std::string SeriesInstanceUID;  // (0020,000E)
  std::string Modality;           // (0008,0060)
  std::string SeriesNumber;       // (0020,0011)
  uint32_t Offset = 0;
  std::vector<std::unique_ptr<CImages>> Images;
  std::vector<std::unique_ptr<COtherObjects>> Others;
};

class KESTREL_API CStudy {
 public:
  std::string StudyInstanceUID;        // (0020,000D)
  std::string StudyID;                 // (0020,0010)
  std::string StudyDate;               // (0008,0020)
  std::string StudyTime;               // (0008,0030)
  std::string StudyDescription;        // (0008,1030)
  std::string AccessionNumber;         // (0008,0050)
  std::string ReferringPhysicianName;  // (0008,0090)
  uint32_t Offset = 0;
  std::vector<std::unique_ptr<CSeries>> Series;
  std::vector<std::unique_ptr<COtherObjects>> Others;  // records under the study, not series
};

class KESTREL_API CPatient {
 public:
  std::string PatientID;         // (0010,0020)
  std::string PatientName;       // (0010,0010)
  std::string PatientBirthDate;  // (0010,0030)
  std::string PatientSex;        // (0010,0040)
  uint32_t Offset = 0;
  std::vector<std::unique_ptr<CStudy>> Studies;
  std::vector<std::unique_ptr<COtherObjects>> Others;  // records under the patient, not studies
};
