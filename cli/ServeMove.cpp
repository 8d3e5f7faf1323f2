// The patient-root and study-root C-MOVE handlers of `kestrel serve`: the images the database
// names, read from where the store saved them (<store>/<Study UID>/<Series UID>/<SOP Instance
// UID>.dcm), of every storage class the store holds, sent to the destination the Server table
// names for the Move Destination.
#include <cstdio>
#include <memory>
#include <string>

#include "ServeDispatcher.h"
#include "ServeQuery.h"
#include "kestrel/CPatientRootRetrieve.h"
#include "kestrel/CStudyRootRetrieve.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/StandardStorage.h"
#include "kestrel/Status.h"

namespace {

bool IsUID(const std::string& text) {
  return !text.empty() && text.size() <= 64 &&
         text.find_first_not_of("0123456789.") == std::string::npos;
}

std::string UIDOf(DICOMDataObject* match, uint16_t group, uint16_t element) {
  UID uid;
  uid.Set(match->Find(group, element));
  return uid.ToString();
}

// A retrieve class of either root that reads each image from the store's layout, whatever its
// class: the instance goes as it was stored (UnknownStorage takes the object's own class).
template <class Retrieve>
class StoreRetrieve : public Retrieve {
 public:
  explicit StoreRetrieve(const std::string& store) : Retrieve(nullptr, store, std::string()) {}

  int RetrieveOn(DICOMDataObject* match, DICOMDataObject** objectToSend,
                 StandardStorage** storageClass) override {
    if (!match || !objectToSend || !storageClass) return 0;
    const std::string study = UIDOf(match, 0x0020, 0x000D);
    const std::string series = UIDOf(match, 0x0020, 0x000E);
    const std::string instance = UIDOf(match, 0x0008, 0x0018);
    if (!IsUID(study) || !IsUID(series) || !IsUID(instance)) return 0;
    const std::string path =
        this->GetImageDirectory() + "/" + study + "/" + series + "/" + instance + ".dcm";
    DICOMCodec codec;
    FileReadResult result = FileReadResult::kCannotOpen;
    std::unique_ptr<DICOMDataObject> object(codec.LoadFile(path.c_str(), &result));
    if (!object || result != FileReadResult::kComplete) return 0;  // never half a file
    *objectToSend = object.release();
    *storageClass = &any_;
    return 1;
  }

 private:
  UnknownStorage any_;
};

template <class Retrieve>
bool Move(const Dispatcher& dispatcher, PDU_Service& pdu, DICOMCommandObject* request) {
  std::string error;
  CDatabase* database = QueryDatabase(dispatcher.Settings().dbConnect, &error);
  if (!database) {
    std::fprintf(stderr,
                 "kestrel serve: C-MOVE from %s: the image database cannot be reached: %s\n",
                 pdu.GetCallingAETitle().c_str(), error.c_str());
    DICOMDataObject identifier;
    return CMoveRQ::Read(request, &pdu, &identifier) &&
           CMoveRSP::Write(&pdu, request, DIMSEStatus::kUnableToProcess, CMoveRSP::Counts());
  }
  StoreRetrieve<Retrieve> retrieve(dispatcher.Settings().storeDir);
  retrieve.SetDatabase(database);
  KESTREL::SetLastErrorText("");
  const bool answered = retrieve.Read(&pdu, request) != 0;
  const std::string failure = KESTREL::GetLastErrorText();
  if (!failure.empty()) {
    std::fprintf(stderr, "kestrel serve: C-MOVE from %s: %s\n", pdu.GetCallingAETitle().c_str(),
                 failure.c_str());
    DropQueryDatabase();
  } else if (dispatcher.Settings().verbose) {
    std::fprintf(stderr, "kestrel serve: C-MOVE from %s %s\n", pdu.GetCallingAETitle().c_str(),
                 answered ? "answered" : "broke off");
  }
  return answered;
}

}  // namespace

void AddMoveHandlers(Dispatcher& dispatcher) {
  dispatcher.Add(
      CMoveRQ::kCommandField,
      [&dispatcher](PDU_Service& pdu, DICOMCommandObject* request) {
        return Move<CPatientRootRetrieve>(dispatcher, pdu, request);
      },
      "1.2.840.10008.5.1.4.1.2.1.2");
  dispatcher.Add(
      CMoveRQ::kCommandField,
      [&dispatcher](PDU_Service& pdu, DICOMCommandObject* request) {
        return Move<CStudyRootRetrieve>(dispatcher, pdu, request);
      },
      "1.2.840.10008.5.1.4.1.2.2.2");
}
