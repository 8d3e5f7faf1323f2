// Indexing a stored instance in the image database: the Patient, Study and Series rows, the
// transaction around the four rows and the destinations an instance goes on to.
#include <chrono>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "IndexColumns.h"
#include "IndexText.h"
#include "kestrel/CDatabase.h"
#include "kestrel/CDestination.h"
#include "kestrel/CStorage.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/ImageIODModule.h"
#include "kestrel/NewStudyEvent.h"
#include "kestrel/RecordSets.h"
#include "kestrel/Status.h"
#include "vxCommon.h"

using KESTREL::storage::AttributeText;
using KESTREL::storage::Column;
using KESTREL::storage::CutToColumn;
using KESTREL::storage::Fill;
using KESTREL::storage::FillColumns;
using KESTREL::storage::Printf;
using KESTREL::storage::SqlText;

namespace {

constexpr int kTries = 100;  // tries of a busy database, as the record sets' writes
constexpr char kNewStudyStatus[] = "2NEW";
constexpr char kTruncated[] = "<TRUNCATED>";
constexpr char kDefaultCallingAE[] = "KESTREL";

// PS3.3 C.7.1.1 Patient Module, besides Patient ID and Patient's Name.
const Column<CPatientSet> kPatientColumns[] = {
    {&CPatientSet::EthnicGroup, 0x0010, 0x2160},
    {&CPatientSet::OtherPatientID, 0x0010, 0x1000},
    {&CPatientSet::OtherPatientNames, 0x0010, 0x1001},
    {&CPatientSet::PatientBirthTime, 0x0010, 0x0032},
    {&CPatientSet::PatientComments, 0x0010, 0x4000},
    {&CPatientSet::PatientsBirthDate, 0x0010, 0x0030},
    {&CPatientSet::PatientsSex, 0x0010, 0x0040},
};

// PS3.3 C.7.2.1 General Study and C.7.2.2 Patient Study, with Operators' Name (C.7.3.1) and
// the institution (C.7.5.1).
const Column<CStudySet> kStudyColumns[] = {
    {&CStudySet::AccessionNumber, 0x0008, 0x0050},
    {&CStudySet::AdditionalPatientsHistory, 0x0010, 0x21B0},
    {&CStudySet::AdmittingDiagnosesDescription, 0x0008, 0x1080},
    {&CStudySet::NameOfPhysiciansReadingStudy, 0x0008, 0x1060},
    {&CStudySet::Occupation, 0x0010, 0x2180},
    {&CStudySet::OperatorsName, 0x0008, 0x1070},
    {&CStudySet::PatientsAge, 0x0010, 0x1010},
    {&CStudySet::PatientsSize, 0x0010, 0x1020},
    {&CStudySet::PatientsWeight, 0x0010, 0x1030},
    {&CStudySet::ReferringPhysiciansName, 0x0008, 0x0090},
    {&CStudySet::StudyDate, 0x0008, 0x0020},
    {&CStudySet::StudyDescription, 0x0008, 0x1030},
    {&CStudySet::StudyID, 0x0020, 0x0010},
    {&CStudySet::StudyTime, 0x0008, 0x0030},
    {&CStudySet::InstitutionalDepartmentName, 0x0008, 0x1040},
    {&CStudySet::InstitutionName, 0x0008, 0x0080},
};

// PS3.3 C.7.3.1 General Series and C.7.4.1 Frame of Reference.
const Column<CSeriesSet> kSeriesColumns[] = {
    {&CSeriesSet::BodyPartExamined, 0x0018, 0x0015},
    {&CSeriesSet::LargestPixelValueInSeries, 0x0028, 0x0109},
    {&CSeriesSet::Laterality, 0x0020, 0x0060},
    {&CSeriesSet::Modality, 0x0008, 0x0060},
    {&CSeriesSet::OperatorsName, 0x0008, 0x1070},
    {&CSeriesSet::PatientPosition, 0x0018, 0x5100},
    {&CSeriesSet::PerformingPhysiciansName, 0x0008, 0x1050},
    {&CSeriesSet::ProtocolName, 0x0018, 0x1030},
    {&CSeriesSet::SeriesDate, 0x0008, 0x0021},
    {&CSeriesSet::SeriesDescription, 0x0008, 0x103E},
    {&CSeriesSet::SeriesInstanceUID, 0x0020, 0x000E},
    {&CSeriesSet::SeriesNumber, 0x0020, 0x0011},
    {&CSeriesSet::SeriesTime, 0x0008, 0x0031},
    {&CSeriesSet::SmallestPixelValueInSeries, 0x0028, 0x0108},
    {&CSeriesSet::FrameOfReferenceUID, 0x0020, 0x0052},
};

int Failed(const char* operation, const std::string& detail) {
  KESTREL::SetLastErrorText(Printf("KESTREL.dll : CStorage::%s() : %s", operation, detail.c_str()));
  return 0;
}

// A study value that does not fit its column keeps its start and says it was cut.
std::string FitStudyValue(const std::string& text) {
  if (text.size() <= KESTREL::storage::kColumnWidth) return text;
  return KESTREL::storage::CutText(text, KESTREL::storage::kColumnWidth - (sizeof kTruncated - 1)) +
         kTruncated;
}

std::string LocalNow(const char* format) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[32];
  return std::strftime(text, sizeof text, format, &local) ? text : "";
}

// Referenced Study Sequence (0008,1110) as text: the Referenced SOP Instance UIDs of its items,
// separated by "\".
std::string ReferencedStudiesText(ImageIODModule* iod) {
  VR* sequence = KESTREL::storage::FindAttribute(iod, 0x0008, 0x1110);
  if (!sequence || !sequence->SequenceItems) return std::string();
  std::string text;
  Array<DICOMDataObject*>& items = *sequence->SequenceItems;
  for (uint32_t i = 0; i < items.GetSize(); ++i) {
    if (!items[i]) continue;
    const std::string uid =
        KESTREL::storage::ElementText(items[i]->Find(0x0008, 0x1155), MakeTypeCode('U', 'I'));
    if (uid.empty()) continue;
    if (!text.empty()) text += '\\';
    text += uid;
  }
  return text;
}

// Adds `modality` to a "\"-separated list of modalities unless it is there; true when added.
bool AddModality(std::string& list, const std::string& modality) {
  if (modality.empty()) return false;
  size_t start = 0;
  while (start <= list.size()) {
    size_t end = list.find('\\', start);
    if (end == std::string::npos) end = list.size();
    if (list.compare(start, end - start, modality) == 0) return false;
    start = end + 1;
  }
  const std::string longer = list.empty() ? modality : list + '\\' + modality;
  if (longer.size() > KESTREL::storage::kColumnWidth) return false;
  list = longer;
  return true;
}

// The columns of a study row being added.
void FillNewStudy(CStudySet& set, ImageIODModule* iod, int32_t patientUID,
                  const std::string& patientID) {
  FillColumns(set, kStudyColumns, iod, Fill::kPresent, FitStudyValue);
  KESTREL::storage::Assign(set, set.ReferencedStudySequence,
                           FitStudyValue(ReferencedStudiesText(iod)), Fill::kPresent);
  set.StudyInstanceUID = CutToColumn(AttributeText(iod, 0x0020, 0x000D));
  set.PatientUID = patientUID;
  if (!patientID.empty()) set.PatientID = patientID;
  const std::string modality = CutToColumn(AttributeText(iod, 0x0008, 0x0060));
  if (!modality.empty()) set.Modality = modality;
  set.AccessDate = LocalNow("%Y%m%d");
  set.AccessTime = LocalNow("%H%M%S");
  set.Status = kNewStudyStatus;
}

// An existing study row takes values only in its empty columns, and the instance's modality in
// its list; true when something changed.
bool CompleteStudy(CStudySet& set, ImageIODModule* iod) {
  bool changed = FillColumns(set, kStudyColumns, iod, Fill::kEmptyOnly, FitStudyValue);
  changed |= KESTREL::storage::Assign(set, set.ReferencedStudySequence,
                                      FitStudyValue(ReferencedStudiesText(iod)), Fill::kEmptyOnly);
  return AddModality(set.Modality, CutToColumn(AttributeText(iod, 0x0008, 0x0060))) || changed;
}

// The patient filter (the "UHN" setting chooses exact or substring matching of the ID).
std::string PatientFilter(const std::string& patientID, const std::string& name) {
  if (GetRegLocalMachineInt("UHN", 0) == 0) {
    return name.empty()
               ? Printf("[PatientID]='%s' AND [PatientsName] Is Null", SqlText(patientID).c_str())
               : Printf("[PatientID]='%s' AND [PatientsName]='%s'", SqlText(patientID).c_str(),
                        SqlText(name).c_str());
  }
  std::string core = StripUHN(patientID);
  if (core.empty()) core = patientID;
  // The substring is matched as written: "%" and "_" in an ID are no wildcards.
  const std::string like = SqlText(KESTREL::storage::LikeText(core));
  return name.empty() ? Printf("[PatientID] LIKE '%%%s%%' ESCAPE '\\' AND [PatientsName] Is Null",
                               like.c_str())
                      : Printf("[PatientID] LIKE '%%%s%%' ESCAPE '\\' AND [PatientsName] = '%s'",
                               like.c_str(), SqlText(name).c_str());
}

// The set does not show a row it added: the new patient's key is read back from the database,
// the newest row the set's filter finds (the write lock of UpdateDatabase keeps other writers
// out meanwhile). 1, or 0 with the last-error text set.
int ReadBackNewKey(CPatientSet& set, int32_t& patientUID) {
  try {
    set.Sort = "[PatientUID] DESC";
    set.Requery();
  } catch (const CDBException& e) {
    return Failed("UpdatePatientTable", e.GetErrorMessage());
  }
  if (set.IsEOF()) return Failed("UpdatePatientTable", "the new patient row cannot be read back");
  patientUID = set.PatientUID;
  return 1;
}

// The Patient ID of the patient row with key `patientUID`, or "" when there is none.
std::string PatientIDOf(CDatabase* database, int32_t patientUID) {
  CPatientSet set(database);
  set.Filter = Printf("[PatientUID]=%d", patientUID);
  if (!set.Open() || set.IsEOF()) return std::string();
  return set.PatientID;
}

// One writer at a time per database within the process: the database's own write lock keeps
// other processes out, and in-process writers queue here instead of polling it.
std::mutex& IndexLockFor(const std::string& connect) {
  static std::mutex guard;
  static std::map<std::string, std::unique_ptr<std::mutex>> locks;
  std::lock_guard<std::mutex> hold(guard);
  std::unique_ptr<std::mutex>& lock = locks[connect];
  if (!lock) lock = std::make_unique<std::mutex>();
  return *lock;
}

// The pause between two tries of a busy database: 11 ms plus 0 to 100 ms at random.
class Backoff {
 public:
  Backoff()
      : random_(static_cast<std::minstd_rand::result_type>(
            std::chrono::high_resolution_clock::now().time_since_epoch().count())) {}
  void Pause() {
    const unsigned r = static_cast<unsigned>(random_()) & 0x7FFFu;
    std::this_thread::sleep_for(std::chrono::milliseconds(11 + r * 100 / 32767));
  }

 private:
  std::minstd_rand random_;
};

void RollbackQuietly(CDatabase* database) {
  try {
    database->Rollback();
  } catch (const CDBException&) {
    // The transaction is over either way.
  }
}

}  // namespace

int CStorage::UpdatePatientTable(CDatabase* pDatabase, int32_t& patientUID, int nUpdate) {
  ImageIODModule* iod = GetIOD();
  std::string patientID = CutToColumn(AttributeText(iod, 0x0010, 0x0020));
  const std::string name = CutToColumn(AttributeText(iod, 0x0010, 0x0010));
  if (patientID.empty()) {
    const std::string study = AttributeText(iod, 0x0020, 0x000D);
    patientID = CutToColumn("U" + (study.empty() ? std::string() : study.substr(1)));
  }
  CPatientSet set(pDatabase);
  set.Filter = PatientFilter(patientID, name);
  if (!set.Open()) return 0;
  if (!set.IsEOF() && nUpdate == 0) {
    patientUID = set.PatientUID;
    return 2;
  }
  const bool adding = set.IsEOF();
  if (adding) {
    set.AddNew();
    set.PatientID = patientID;
    if (!name.empty()) set.PatientsName = name;
  } else {
    set.Edit();
  }
  FillColumns(set, kPatientColumns, iod, Fill::kPresent);
  if (!set.Update()) return Failed("UpdatePatientTable", set.ErrorText);
  if (adding) return ReadBackNewKey(set, patientUID);
  patientUID = set.PatientUID;
  return 1;
}

int CStorage::UpdateStudyTable(CDatabase* pDatabase, int32_t patientUID, int nUpdate, int nPulse) {
  studyWritten_ = false;
  ImageIODModule* iod = GetIOD();
  const std::string study = CutToColumn(AttributeText(iod, 0x0020, 0x000D));
  CStudySet set(pDatabase);
  set.Filter = Printf("[StudyInstanceUID]='%s'", SqlText(study).c_str());
  if (!set.Open()) return 0;
  if (set.IsEOF()) {
    std::string patientID = PatientIDOf(pDatabase, patientUID);
    if (patientID.empty()) patientID = CutToColumn(AttributeText(iod, 0x0010, 0x0020));
    set.AddNew();
    FillNewStudy(set, iod, patientUID, patientID);
  } else if (nUpdate == 0) {
    return 1;
  } else {
    set.Edit();
    if (!CompleteStudy(set, iod)) {
      set.CancelUpdate();
      return 1;
    }
  }
  if (!set.Update()) return Failed("UpdateStudyTable", set.ErrorText);
  studyWritten_ = true;
  if (nPulse) KESTREL::PulseNewStudyEvent();
  return 1;
}

int CStorage::UpdateSeriesTable(CDatabase* pDatabase, int nUpdate) {
  ImageIODModule* iod = GetIOD();
  const std::string series = CutToColumn(AttributeText(iod, 0x0020, 0x000E));
  CSeriesSet set(pDatabase);
  set.Filter = Printf("[SeriesInstanceUID]='%s'", SqlText(series).c_str());
  if (!set.Open()) return 0;
  if (set.IsEOF()) {
    set.AddNew();
    FillColumns(set, kSeriesColumns, iod, Fill::kPresent);
    set.SeriesInstanceUID = series;
    const std::string study = CutToColumn(AttributeText(iod, 0x0020, 0x000D));
    if (!study.empty()) set.ReferencedStudyComponent = study;
  } else {
    if (nUpdate == 0) return 1;
    set.Edit();
    if (!FillColumns(set, kSeriesColumns, iod, Fill::kEmptyOnly)) {
      set.CancelUpdate();
      return 1;
    }
  }
  return set.Update() ? 1 : Failed("UpdateSeriesTable", set.ErrorText);
}

int CStorage::DoesStudyExist(CDatabase* pDatabase, int32_t& patientUID) {
  CStudySet set(pDatabase);
  set.Filter = Printf("[StudyInstanceUID]='%s'",
                      SqlText(CutToColumn(AttributeText(GetIOD(), 0x0020, 0x000D))).c_str());
  if (!set.Open() || set.IsEOF()) return 0;
  patientUID = set.PatientUID;
  return 1;
}

int CStorage::UpdateDatabase(CDatabase* pDatabase, const char* pszTransferSyntaxUID) {
  if (!pDatabase) return Failed("UpdateDatabase", "no database connection");
  if (!pDatabase->IsOpen()) {
    try {
      pDatabase->Open(CPatientSet(pDatabase).GetDefaultConnect());
    } catch (const CDBException& e) {
      return Failed("UpdateDatabase", e.GetErrorMessage());
    }
  }
  std::lock_guard<std::mutex> writer(IndexLockFor(pDatabase->GetConnect()));
  Backoff backoff;
  for (int tries = 1;; ++tries) {
    try {
      pDatabase->BeginWriteTrans();
    } catch (const CDBException& e) {
      if (tries == kTries) return Failed("UpdateDatabase", e.GetErrorMessage());
      backoff.Pause();
      continue;
    }
    int32_t patientUID = 0;
    int added = 0;
    const bool written = UpdatePatientTable(pDatabase, patientUID, 0) &&
                         UpdateStudyTable(pDatabase, patientUID, 1, 0) &&
                         UpdateSeriesTable(pDatabase, 1) &&
                         UpdateImageTable(pDatabase, added, pszTransferSyntaxUID);
    if (!written) {
      RollbackQuietly(pDatabase);
      return 0;
    }
    try {
      pDatabase->CommitTrans();
    } catch (const CDBException& e) {
      RollbackQuietly(pDatabase);
      if (tries == kTries) return Failed("UpdateDatabase", e.GetErrorMessage());
      backoff.Pause();
      continue;
    }
    // Waiters look at the database when woken: the rows must be committed by then.
    if (studyWritten_) KESTREL::PulseNewStudyEvent();
    return 1;
  }
}

int CStorage::UpdateDatabase(CDatabase* pDatabase, const char* pszTransferSyntaxUID,
                             Array<CDestination*>* destinations, int bAllOrNothing) {
  if (!UpdateDatabase(pDatabase, pszTransferSyntaxUID)) return 0;
  if (!destinations) return 1;
  int result = 1;
  for (uint32_t i = 0; i < destinations->GetSize(); ++i) {
    CDestination* destination = destinations->Get(i);
    if (!destination) continue;
    CServersSet server(pDatabase);
    server.Filter = Printf("[AE Title]='%s'", SqlText(destination->First).c_str());
    std::string failure;
    if (!server.Open() || server.IsEOF()) {
      failure =
          "KESTREL.dll : CStorage::UpdateDatabase() : unknown destination " + destination->First;
      KESTREL::SetLastErrorText(failure);
    } else {
      DICOMDataObject copy;
      const std::string calling =
          destination->Second.empty() ? kDefaultCallingAE : destination->Second;
      if (GetIOD()->WriteTo(&copy) && Client(&copy, server.Hostname, server.Port, calling,
                                             destination->First, nullptr, pszTransferSyntaxUID))
        continue;
      failure = KESTREL::GetLastErrorText();
    }
    Log("CStorage::UpdateDatabase: " + failure, 1);
    if (bAllOrNothing) result = 0;
  }
  return result;
}
