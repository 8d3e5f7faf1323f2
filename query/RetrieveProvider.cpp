// The provider hooks of the retrieve classes: where the destination is (the Server table),
// which images a C-MOVE names (the image database), and the file and storage class of each.
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Elements.h"
#include "RetrieveCore.h"
#include "kestrel/CStandardStorage.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/RecordSets.h"
#include "kestrel/StandardRetrieve.h"
#include "kestrel/StandardStorage.h"

namespace el = KESTREL::query_elements;

namespace KESTREL::retrieve {

namespace {

using KESTREL::query_layouts::Level;
using KESTREL::query_layouts::Root;

std::string Quoted(const std::string& value) {
  std::string doubled;
  for (char c : value) doubled += c == '\'' ? std::string("''") : std::string(1, c);
  return doubled;
}

std::string Format(const char* before, const std::string& value, const char* after = "'") {
  return before + Quoted(value) + after;
}

void CopyOut(unsigned char* to, size_t size, const std::string& text) {
  std::memset(to, 0, size);
  std::memcpy(to, text.data(), text.size() < size - 1 ? text.size() : size - 1);
}

// The values of a key: a "\" list of IDs or UIDs, each without its padding; empty ones left out.
std::vector<std::string> Values(DICOMDataObject* identifier, uint16_t group, uint16_t element) {
  std::vector<std::string> values;
  const std::string text = el::Text(identifier->Find(group, element));
  for (size_t start = 0; start <= text.size();) {
    size_t end = text.find('\\', start);
    if (end == std::string::npos) end = text.size();
    std::string value = text.substr(start, end - start);
    while (!value.empty() && (value.back() == ' ' || value.back() == '\0')) value.pop_back();
    while (!value.empty() && value.front() == ' ') value.erase(0, 1);
    if (!value.empty()) values.push_back(value);
    start = end + 1;
  }
  return values;
}

// The images of a C-MOVE, level by level, as matches.
class ImageFinder {
 public:
  ImageFinder(CDatabase* database, Root root, Array<DICOMDataObject*>* matches)
      : database_(database), root_(root), matches_(matches) {}

  [[nodiscard]] bool Image(const std::string& filter) {
    CImageSet images(database_);
    images.Filter = filter;
    if (!images.Open()) return false;
    for (; !images.IsEOF(); images.MoveNext())
      if (!AddMatch(images)) return false;
    images.Close();
    return true;
  }

  [[nodiscard]] bool Series(const std::string& uid) {
    return Image(Format("[SeriesInstanceUID]='", uid));
  }

  [[nodiscard]] bool Study(const std::string& uid) {
    CSeriesSet series(database_);
    series.Filter = root_ == Root::kPatient ? Format("[ReferencedStudyComponent] = '", uid)
                                            : Format("ReferencedStudyComponent = '", uid);
    if (!series.Open()) return false;
    std::vector<std::string> uids;
    for (; !series.IsEOF(); series.MoveNext()) uids.push_back(series.SeriesInstanceUID);
    series.Close();
    for (const std::string& one : uids)
      if (!Series(one)) return false;
    return true;
  }

  // The studies of a patient, or those of `studyUID` when it is given.
  [[nodiscard]] bool Patient(const std::string& patientID, const std::string& studyUID) {
    CStudyQuerySet studies(database_);
    studies.Filter += " AND " + Format("[Study].PatientID = '", patientID);
    if (!studyUID.empty()) studies.Filter += Format(" AND [Study].StudyInstanceUID = '", studyUID);
    if (!studies.Open()) return false;
    std::vector<std::string> uids;
    for (; !studies.IsEOF(); studies.MoveNext()) uids.push_back(studies.StudyInstanceUID);
    studies.Close();
    for (const std::string& one : uids)
      if (!Study(one)) return false;
    return true;
  }

 private:
  [[nodiscard]] bool AddMatch(const CImageSet& image) {
    auto match = std::make_unique<DICOMDataObject>();
    const std::pair<std::pair<uint16_t, uint16_t>, const std::string*> values[] = {
        {{0x0008, 0x0018}, &image.SOPInstanceUID},    {{0x0020, 0x000D}, &image.StudyInstanceUID},
        {{0x0020, 0x000E}, &image.SeriesInstanceUID}, {{0x0008, 0x0016}, &image.SOPClassUID},
        {{0x0002, 0x0010}, &image.TransferSyntax},
    };
    for (const auto& [tag, value] : values)
      if (!el::PushText(match.get(), tag.first, tag.second, *value, "UI")) return false;
    matches_->Add(match.release());
    return true;
  }

  CDatabase* database_;
  Root root_;
  Array<DICOMDataObject*>* matches_;
};

bool IsUID(const std::string& text) {
  return !text.empty() && text.size() <= 64 &&
         text.find_first_not_of("0123456789.") == std::string::npos && text.front() != '.' &&
         text.back() != '.' && text.find("..") == std::string::npos;
}

using Factory = std::function<StandardStorage*()>;

struct KnownClass {
  const char* uid;
  Factory make;
  bool patientRoot;  // among the five the patient root knows
};

template <class T>
StandardStorage* Make() {
  return new T;
}

// The storage classes of the eighteen per-modality storage objects (PS3.4 Annex B).
const KnownClass kKnownClasses[] = {
    {"1.2.840.10008.5.1.4.1.1.1", Make<CRStorage>, true},
    {"1.2.840.10008.5.1.4.1.1.2", Make<CTStorage>, true},
    {"1.2.840.10008.5.1.4.1.1.1.1", Make<DXStorage>, false},
    {"1.2.840.10008.5.1.4.1.1.1.1.1", Make<DXRStorage>, false},
    {"1.2.840.10008.5.1.4.1.1.1.2", Make<MGStorage>, false},
    {"1.2.840.10008.5.1.4.1.1.1.2.1", Make<MGRStorage>, false},
    {"1.2.840.10008.5.1.4.1.1.4", Make<MRStorage>, true},
    {"1.2.840.10008.5.1.4.1.1.5", Make<NMStorage>, false},
    {"1.2.840.10008.5.1.4.1.1.20", Make<NMNStorage>, false},
    {"1.2.840.10008.5.1.4.1.1.128", Make<PETStorage>, false},
    {"1.2.840.10008.5.1.4.1.1.12.2", Make<RFStorage>, false},
    {"1.2.840.10008.5.1.4.1.1.7", Make<SCStorage>, true},
    {"1.2.840.10008.5.1.4.1.1.6", Make<USStorage>, true},
    {"1.2.840.10008.5.1.4.1.1.6.1", Make<USNStorage>, false},
    {"1.2.840.10008.5.1.4.1.1.3", Make<USMultiframeStorage>, false},
    {"1.2.840.10008.5.1.4.1.1.3.1", Make<USNMultiframeStorage>, false},
    {"1.2.840.10008.5.1.4.1.1.12.1", Make<XAStorage>, false},
    {"1.2.840.10008.5.1.4.1.1.12.3", Make<XABiStorage>, false},
};

}  // namespace

int Qualify(CDatabase* database, const std::string& localAETitle, unsigned char* destination,
            unsigned char* localAE, unsigned char* host, unsigned char* port) {
  if (!destination || !localAE || !host || !port) return 0;
  if (!localAETitle.empty()) CopyOut(localAE, StandardRetrieve::kAETitleBytes, localAETitle);
  CServersSet servers(database);
  servers.Filter = Format("[AE Title] = '", reinterpret_cast<const char*>(destination));
  if (!servers.Open()) return 0;
  if (servers.IsEOF()) {
    servers.Close();
    return 0;
  }
  CopyOut(host, StandardRetrieve::kHostBytes, servers.Hostname);
  CopyOut(port, StandardRetrieve::kPortBytes, servers.Port);
  servers.Close();
  return 1;
}

int Search(CDatabase* database, Root root, DICOMDataObject* identifier,
           Array<DICOMDataObject*>* matches) {
  if (!identifier || !matches) return 0;
  const Level level = KESTREL::query_layouts::LevelOf(el::Text(identifier->Find(0x0008, 0x0052)));
  ImageFinder find(database, root, matches);
  const std::vector<std::string> studies = Values(identifier, 0x0020, 0x000D);
  switch (level) {
    case Level::kPatient:
      if (root != Root::kPatient) return 0;
      for (const std::string& patient : Values(identifier, 0x0010, 0x0020))
        if (!find.Patient(patient, std::string())) return 0;
      return 1;
    case Level::kStudy: {
      const std::vector<std::string> patients = Values(identifier, 0x0010, 0x0020);
      for (const std::string& study : studies)
        if (root == Root::kPatient && patients.size() == 1 ? !find.Patient(patients[0], study)
                                                           : !find.Study(study))
          return 0;
      return 1;
    }
    case Level::kSeries:
      for (const std::string& series : Values(identifier, 0x0020, 0x000E))
        if (!find.Series(series)) return 0;
      return 1;
    case Level::kImage:
      for (const std::string& image : Values(identifier, 0x0008, 0x0018))
        if (!find.Image(Format("[SOPInstanceUID]='", image))) return 0;
      return 1;
    default:
      return 0;
  }
}

StorageClasses::StorageClasses() = default;
StorageClasses::~StorageClasses() = default;

StandardStorage* StorageClasses::For(Root root, const std::string& sopClass) {
  for (const KnownClass& known : kKnownClasses) {
    if (sopClass != known.uid || (root == Root::kPatient && !known.patientRoot)) continue;
    std::unique_ptr<StandardStorage>& made = made_[sopClass];
    if (!made) made.reset(known.make());
    return made.get();
  }
  return nullptr;
}

int OpenMatch(Root root, const std::string& directory, DICOMDataObject* match,
              DICOMDataObject** objectToSend, StandardStorage** storageClass,
              StorageClasses& classes) {
  if (!match || !objectToSend || !storageClass) return 0;
  const std::string instance = el::Text(match->Find(0x0008, 0x0018));
  if (!IsUID(instance)) return 0;
  std::string path = directory + "/";
  if (root == Root::kStudy) {
    const std::string study = el::Text(match->Find(0x0020, 0x000D));
    const std::string series = el::Text(match->Find(0x0020, 0x000E));
    if (!IsUID(study) || !IsUID(series)) return 0;
    path += study + "/" + series + "/";
  }
  CStandardStorage storage;
  *objectToSend = storage.Open(path + instance + ".dcm");
  UID sopClass;
  storage.GetUID(sopClass);
  if (StandardStorage* known = classes.For(root, sopClass.ToString())) *storageClass = known;
  return 1;
}

}  // namespace KESTREL::retrieve
