#pragma once

// A DICOM media directory (the DICOMDIR of a CD, DVD or folder, PS3.10 8 and PS3.3 Annex F):
// read into the tree of DicomDirectoryRecords.h, queried by study, cleaned of what the
// workstation cannot show, and written for a folder of DICOM files. While reading, the
// objects the workstation cannot show are collected per patient and study for the report of
// GetUnsupportedMessage.
//
// Failures are 0 results with the last-error text "KESTREL.dll : CDicomDirectory::<operation>
// : <reason>"; nothing is thrown. docs/media.md has the decisions behind the reading and
// writing rules.

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kestrel/DicomDirectoryRecords.h"
#include "kestrel/Export.h"

class CResultsArray;

class KESTREL_API CDicomDirectory {
 public:
  // What the unsupported-objects report reads, collected while a directory is read.
  struct UnsupportedStudy {
    std::string StudyID;
    std::string StudyDescription;
    std::string StudyDate;
    std::set<std::string> Modalities;    // of the series holding unsupported objects
    std::set<std::string> SOPClassUIDs;  // of the unsupported objects
    bool PrivateRecord = false;          // a record of type PRIVATE was met in the study
  };
  struct UnsupportedPatient {
    std::string PatientID;
    std::string PatientName;
    std::map<std::string, UnsupportedStudy> Studies;  // by Study Instance UID
  };
  // By Patient ID, then Patient's Name.
  using UnsupportedMap = std::map<std::pair<std::string, std::string>, UnsupportedPatient>;

  // A file the directory references, for a program that copies or imports a medium.
  struct ReferencedFile {
    std::string Path;  // "" when the file is missing or its File ID is not allowed
    std::string FileID;
    std::string RecordType;
    std::string SOPClassUID;
    std::string SOPInstanceUID;
    std::string TransferSyntaxUID;
    std::string PatientID;
    std::string StudyInstanceUID;
    std::string SeriesInstanceUID;
    bool Supported = false;
  };

  // The row layout of StudyQuery: slots 0 to 8 as in the STUDY rows of the patient-root query,
  // then the patient and the contents of the study. A slot is null when the directory holds no
  // value for it.
  enum StudyResultSlot {
    kStudyInstanceUID = 0,
    kStudyID = 1,
    kStudyDate = 2,
    kStudyTime = 3,
    kAccessionNumber = 4,
    kReferringPhysicianName = 5,
    // 6: not filled, as in the STUDY rows of the patient-root query
    kStudyDescription = 7,
    // 8: Institutional Department Name, which directory records do not carry: not filled
    kPatientName = 9,
    kPatientID = 10,
    kModalitiesInStudy = 11,  // the series' modalities, each once, joined with '\'
    kNumberOfSeries = 12,     // decimal
    kNumberOfImages = 13,     // IMAGE records of the study, decimal
    kStudyResultSize = 14
  };

  CDicomDirectory();
  ~CDicomDirectory();
  CDicomDirectory(const CDicomDirectory&) = delete;
  CDicomDirectory& operator=(const CDicomDirectory&) = delete;

  // Reads the DICOMDIR at `path` (a file, or a folder holding a file named DICOMDIR in any
  // case), in explicit or implicit VR little endian or explicit VR big endian, replacing what
  // was held. Records are reached by following the offsets of the root, next and lower-level
  // links, each checked to point at a record of the file; a record is visited once at most.
  // 1 when the directory was read whole. 0 when it could not be read at all (not a DICOMDIR,
  // truncated, an unusable transfer syntax) or when a link was broken (an offset outside the
  // file or at no record, a loop): the records reached before the break stay in the tree, and
  // GetProblems lists every fault. Records of unknown type, records no link reaches, and
  // missing referenced files are listed by GetProblems without failing the read.
  int Open(const std::string& path);
  // Empties the tree, the report and the problems.
  void Close();

  const std::string& GetPath() const { return path_; }  // the DICOMDIR file read
  const std::string& GetFileSetID() const { return fileSetID_; }
  const std::vector<std::unique_ptr<CPatient>>& GetPatients() const { return patients_; }
  std::vector<std::unique_ptr<CPatient>>& GetPatients() { return patients_; }
  // Records of the root that are not patients.
  const std::vector<std::unique_ptr<COtherObjects>>& GetOtherObjects() const { return others_; }
  const std::vector<std::string>& GetProblems() const { return problems_; }

  // One row per study whose patient and contents match the keys, in directory order; rows are
  // added to `pResults` (which stays the caller's). Empty keys match everything; the others
  // match as C-FIND keys do (PS3.4 C.2.2.2): wild cards in names and IDs, a date or a range for
  // the study date, and a modality that any series of the study has. 0 when `pResults` is
  // null.
  int StudyQuery(CResultsArray* pResults, const std::string& patientName = std::string(),
                 const std::string& patientID = std::string(),
                 const std::string& studyDate = std::string(),
                 const std::string& modality = std::string()) const;

  // The people's name of a SOP class ("CT Image"); "Unknown(<uid>)" for one not listed.
  static std::string GetSOPClassDescription(const std::string& uid);
  // The report of the patients and studies holding objects the workstation cannot show;
  // empty when there are none.
  void GetUnsupportedMessage(std::string& text) const;
  const UnsupportedMap& GetUnsupported() const { return unsupported_; }
  // Adds one unsupported object to the report: the object's SOP class (may be empty), the
  // modality of its series (may be empty) and whether its record is PRIVATE.
  void NoteUnsupported(const CPatient& patient, const CStudy& study, const std::string& modality,
                       const std::string& sopClassUID, bool privateRecord);
  // Whether the workstation can show objects of the SOP class (the image classes of the
  // storage objects, ModalityStorage.h).
  static bool IsSupportedSOPClass(const std::string& uid);

  // Drops from the tree every record the workstation cannot show: unsupported images, other
  // objects at every level, then the series, studies and patients left empty. The report is
  // kept. The number of records dropped.
  int RemoveUnsupported();

  // Every record of the tree that names a file, in tree order (patients, studies, series,
  // images, then the other objects of each level), with whether it is supported.
  void GetReferencedFiles(std::vector<ReferencedFile>& files) const;

  // Writes `folder`/DICOMDIR for the DICOM files (those with the "DICM" prefix) under `folder`,
  // replacing an existing one: explicit VR little endian, a PATIENT, STUDY and SERIES record
  // per patient, study and series and one record per file (IMAGE, or the record type of its
  // SOP class), with the File-set ID `fileSetID` (at most 16 characters of A-Z, 0-9, blank
  // and '_'; may be empty). Each file's ID is its path below `folder`, which PS3.10 8.2 limits
  // to at most 8 components of 1 to 8 characters from A-Z, 0-9 and '_': a folder holding a
  // file named otherwise is refused as a whole (0, nothing written, `problems` names every
  // such file). Files that cannot be put in a directory (no SOP, study or series UID, a SOP
  // class without a record type and without pixel data, no file meta information) are left
  // out and listed in `problems` without failing. 1 when written.
  static int WriteForFolder(const std::string& folder, const std::string& fileSetID,
                            std::vector<std::string>* problems = nullptr);
  // Copies the DICOM files under `source` into the new or empty folder `folder` under names
  // PS3.10 allows (PATnnnnn/STUnnnnn/SERnnnnn/IMGnnnnn, numbered in patient, study, series and
  // file order), then WriteForFolder(folder). 0 when `folder` is not empty, a copy failed, or
  // the directory could not be written.
  static int CopyForMedia(const std::string& source, const std::string& folder,
                          const std::string& fileSetID,
                          std::vector<std::string>* problems = nullptr);

 private:
  friend class DicomDirectoryReader;

  std::string path_;
  std::string fileSetID_;
  std::vector<std::unique_ptr<CPatient>> patients_;
  std::vector<std::unique_ptr<COtherObjects>> others_;
  std::vector<std::string> problems_;
  UnsupportedMap unsupported_;
};
