// The service class bases: their SOP class UIDs, and the requester and acceptor flows of
// verification, storage, query and retrieve against each other over loopback.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kestrel/PrintServiceClasses.h"
#include "kestrel/StandardQuery.h"
#include "kestrel/StandardRetrieve.h"
#include "kestrel/StandardStorage.h"
#include "kestrel/Verification.h"
#include "tests/TestValues.h"
#include "tests/net/NetTestSupport.h"

using namespace net_test;

namespace {

constexpr char kMRStorage[] = "1.2.840.10008.5.1.4.1.1.4";
constexpr char kStudyRootMove[] = "1.2.840.10008.5.1.4.1.2.2.2";
constexpr char kPatientRootFind[] = "1.2.840.10008.5.1.4.1.2.1.1";

void PushEven(DICOMObject* object, uint16_t group, uint16_t element, std::string text) {
  if (text.size() % 2) text.push_back(group == 0x0008 ? '\0' : ' ');
  auto* vr = new VR(group, element, static_cast<uint32_t>(text.size()), true);
  std::memcpy(vr->Data, text.data(), text.size());
  ASSERT_TRUE(object->Push(vr));
}

DICOMDataObject* NewImage(const char* sopClass, const std::string& instance) {
  auto* data = new DICOMDataObject;
  PushEven(data, 0x0008, 0x0016, sopClass);
  PushEven(data, 0x0008, 0x0018, instance);
  PushEven(data, 0x0010, 0x0010, "DOE^JOHN");
  return data;
}

template <class Service>
std::function<int(UID&)> Of() {
  return [](UID& uid) { return Service().GetUID(uid); };
}

// The UIDs of the standard (PS3.4 Annexes A, B, C, H, K) and of the two outside services.
TEST(ServiceClasses, GetUIDGivesTheSOPClass) {
  struct Case {
    std::function<int(UID&)> get;
    const char* uid;
  };
  const Case cases[] = {
      {Of<Verification>(), "1.2.840.10008.1.1"},
      {Of<CRStorage>(), "1.2.840.10008.5.1.4.1.1.1"},
      {Of<DXStorage>(), "1.2.840.10008.5.1.4.1.1.1.1"},
      {Of<DXRStorage>(), "1.2.840.10008.5.1.4.1.1.1.1.1"},
      {Of<MGStorage>(), "1.2.840.10008.5.1.4.1.1.1.2"},
      {Of<MGRStorage>(), "1.2.840.10008.5.1.4.1.1.1.2.1"},
      {Of<CTStorage>(), "1.2.840.10008.5.1.4.1.1.2"},
      {Of<USMultiframeStorage>(), "1.2.840.10008.5.1.4.1.1.3"},
      {Of<USNMultiframeStorage>(), "1.2.840.10008.5.1.4.1.1.3.1"},
      {Of<MRStorage>(), "1.2.840.10008.5.1.4.1.1.4"},
      {Of<NMStorage>(), "1.2.840.10008.5.1.4.1.1.5"},
      {Of<USStorage>(), "1.2.840.10008.5.1.4.1.1.6"},
      {Of<USNStorage>(), "1.2.840.10008.5.1.4.1.1.6.1"},
      {Of<SCStorage>(), "1.2.840.10008.5.1.4.1.1.7"},
      {Of<XAStorage>(), "1.2.840.10008.5.1.4.1.1.12.1"},
      {Of<RFStorage>(), "1.2.840.10008.5.1.4.1.1.12.2"},
      {Of<XABiStorage>(), "1.2.840.10008.5.1.4.1.1.12.3"},
      {Of<NMNStorage>(), "1.2.840.10008.5.1.4.1.1.20"},
      {Of<PETStorage>(), "1.2.840.10008.5.1.4.1.1.128"},
      {Of<PatientRootQuery>(), "1.2.840.10008.5.1.4.1.2.1.1"},
      {Of<StudyRootQuery>(), "1.2.840.10008.5.1.4.1.2.2.1"},
      {Of<PatientStudyOnlyQuery>(), "1.2.840.10008.5.1.4.1.2.3.1"},
      {Of<ModalityWorklistInformationQuery>(), "1.2.840.10008.5.1.4.31"},
      {Of<MitraReportManagementQuery>(), "1.2.840.113532.3500.8"},
      {Of<PatientRootRetrieve>(), "1.2.840.10008.5.1.4.1.2.1.2"},
      {Of<StudyRootRetrieve>(), "1.2.840.10008.5.1.4.1.2.2.2"},
      {Of<PatientStudyOnlyRetrieve>(), "1.2.840.10008.5.1.4.1.2.3.2"},
      {Of<BasicFilmSession>(), "1.2.840.10008.5.1.1.1"},
      {Of<BasicFilmBox>(), "1.2.840.10008.5.1.1.2"},
      {Of<BasicGrayscaleImageBox>(), "1.2.840.10008.5.1.1.4"},
      {Of<PreformattedGrayscaleImage>(), "1.2.840.10008.5.1.1.4.1"},
  };
  for (const Case& c : cases) {
    UID uid;
    EXPECT_EQ(c.get(uid), 1) << c.uid;
    EXPECT_EQ(uid, UID(c.uid)) << c.uid;
  }
  UID shared;
  EXPECT_EQ(CTStorage().uGetUID(shared), 1);
  EXPECT_EQ(shared, UID("1.2.840.10008.5.1.4.1.1.2"));
  StandardStorage base;
  EXPECT_EQ(base.GetUID(shared), 0);
  EXPECT_TRUE(shared.IsEmpty());
}

TEST(ServiceClasses, StorageSOPClassesAreRecognised) {
  for (const char* uid :
       {"1.2.840.10008.5.1.4.1.1.2", "1.2.840.10008.5.1.4.1.1.8", "1.2.840.10008.5.1.4.1.1.11",
        "1.2.840.113619.4.2", "1.2.840.113619.4.3", "1.2.840.10008.5.1.4.1.1.128"})
    EXPECT_TRUE(IsStorageSOPClassUID(uid)) << uid;
  for (const char* uid : {"1.2.840.10008.1.1", "1.2.840.10008.5.1.4.1.1.2.1", "", "1.2.840"})
    EXPECT_FALSE(IsStorageSOPClassUID(uid)) << uid;
}

// Answers every request of an association with the handler for it, until the release.
void ServeRequests(PDU_Service& acceptor,
                   const std::function<void(PDU_Service&, DICOMCommandObject*)>& handle) {
  for (;;) {
    DICOMCommandObject request;
    if (!acceptor.Read(&request)) return;
    handle(acceptor, &request);
  }
}

TEST(VerificationFlow, EchoBothWays) {
  int answered = 0;
  AssociationPair pair({kVerification}, [&](PDU_Service& acceptor) {
    ServeRequests(acceptor, [&](PDU_Service& pdu, DICOMCommandObject* request) {
      answered += Verification().Read(&pdu, request);
    });
  });
  ASSERT_EQ(pair.Connect(), 1);
  Verification verification;
  EXPECT_EQ(verification.Write(&pair.requester()), 1);
  EXPECT_EQ(verification.Write(&pair.requester()), 1);
  pair.requester().Close();
  pair.Join();
  EXPECT_EQ(answered, 2);
}

// A CT store that keeps what it receives and answers with a chosen status.
class KeepingStore : public CTStorage {
 public:
  uint16_t StoreOn(DICOMCommandObject* request, DICOMDataObject* dataSet,
                   const UID& transferSyntax) override {
    instances.push_back(TextOf(dataSet, 0x0008, 0x0018));
    syntaxes.push_back(transferSyntax.ToString());
    return answer;
  }
  uint16_t answer = 0x0000;
  std::vector<std::string> instances;
  std::vector<std::string> syntaxes;
};

TEST(StorageFlow, StoreAndItsStatus) {
  KeepingStore store;
  store.answer = 0xB007;
  std::vector<uint16_t> mrAnswers;
  AssociationPair pair({kCTStorage, kMRStorage}, [&](PDU_Service& acceptor) {
    ServeRequests(acceptor, [&](PDU_Service& pdu, DICOMCommandObject* request) {
      DICOMDataObject data;
      EXPECT_EQ(store.Read(&pdu, request, &data), 1);
    });
  });
  ASSERT_EQ(pair.Connect(kExplicitLittle), 1);
  uint16_t status = 0;
  std::unique_ptr<DICOMDataObject> ct(NewImage(kCTStorage, "1.2.3.1"));
  EXPECT_EQ(CTStorage().Write(&pair.requester(), ct.get(), &status), 1);
  EXPECT_EQ(status, 0xB007);
  // A CT store refuses to send an MR object at all...
  std::unique_ptr<DICOMDataObject> mr(NewImage(kMRStorage, "1.2.3.2"));
  EXPECT_EQ(CTStorage().Write(&pair.requester(), mr.get(), &status), 0);
  // ...and as acceptor answers an MR request "SOP class not supported".
  EXPECT_EQ(UnknownStorage().Write(&pair.requester(), mr.get(), &status), 1);
  EXPECT_EQ(status, 0x0122);
  pair.requester().Close();
  pair.Join();
  EXPECT_EQ(store.instances, std::vector<std::string>{"1.2.3.1"});
  EXPECT_EQ(store.syntaxes, std::vector<std::string>{kExplicitLittle});
}

// A query model over a fixed list of patients: the acceptor matches the name key, the
// requester keeps every match.
class PatientList : public PatientRootQuery {
 public:
  int SearchOn(DICOMDataObject* query, Array<DICOMDataObject*>* matches) override {
    std::string wanted = TextOf(query, 0x0010, 0x0010);
    if (wanted == "FAIL") return 0;
    for (const char* id : {"P1", "P2", "P3"}) {
      auto* match = new DICOMDataObject;
      PushEven(match, 0x0010, 0x0010, wanted);
      PushEven(match, 0x0010, 0x0020, id);
      matches->Add(match);
    }
    return 1;
  }
  int CallBack(DICOMCommandObject* response, DICOMDataObject* match) override {
    statuses.push_back(response->GetUInt16(0, 0x0900));
    kept.emplace_back(match);
    return 1;
  }
  std::vector<uint16_t> statuses;
  std::vector<std::unique_ptr<DICOMDataObject>> kept;
};

TEST(QueryFlow, PendingMatchesThenTheFinalResponse) {
  AssociationPair pair({kPatientRootFind}, [](PDU_Service& acceptor) {
    ServeRequests(acceptor, [](PDU_Service& pdu, DICOMCommandObject* request) {
      EXPECT_EQ(PatientList().Read(&pdu, request), 1);
    });
  });
  ASSERT_EQ(pair.Connect(), 1);
  PatientList query;
  DICOMDataObject keys;
  PushEven(&keys, 0x0008, 0x0052, "PATIENT ");
  PushEven(&keys, 0x0010, 0x0010, "DOE");
  PushEven(&keys, 0x0010, 0x0020, "");
  EXPECT_EQ(query.Write(&pair.requester(), &keys), 1);
  ASSERT_EQ(query.kept.size(), 3u);
  EXPECT_EQ(query.statuses, (std::vector<uint16_t>{0xFF00, 0xFF00, 0xFF00}));
  EXPECT_EQ(TextOf(query.kept[2].get(), 0x0010, 0x0020), "P3");
  EXPECT_EQ(TextOf(query.kept[0].get(), 0x0010, 0x0010), "DOE");

  PatientList failing;
  DICOMDataObject bad;
  PushEven(&bad, 0x0010, 0x0010, "FAIL");
  EXPECT_EQ(failing.Write(&pair.requester(), &bad), 0) << "final status C000 is a failure";
  EXPECT_TRUE(failing.kept.empty());
  pair.requester().Close();
}

// The move provider: three matches, one without an instance UID (skipped), objects sent with
// a CT store to the destination "DEST".
class ThreeImages : public StudyRootRetrieve {
 public:
  int SearchOn(DICOMDataObject* identifier, Array<DICOMDataObject*>* matches) override {
    for (const char* instance : {"1.1", "", "1.3"}) {
      auto* match = new DICOMDataObject;
      if (*instance) PushEven(match, 0x0008, 0x0018, instance);
      matches->Add(match);
    }
    return 1;
  }
  int RetrieveOn(DICOMDataObject* match, DICOMDataObject** object,
                 StandardStorage** storage) override {
    std::string instance = TextOf(match, 0x0008, 0x0018);
    if (instance.empty()) return 0;
    *object = NewImage(kCTStorage, instance);
    *storage = &ct_;
    return 1;
  }
  int QualifyOn(unsigned char* destination, unsigned char* localAE, unsigned char* host,
                unsigned char* port) override {
    calledLocalAE = reinterpret_cast<char*>(localAE);
    if (std::string(reinterpret_cast<char*>(destination)) != "DEST") return 0;
    std::strcpy(reinterpret_cast<char*>(host), "127.0.0.1");
    std::strcpy(reinterpret_cast<char*>(port), destinationPort.c_str());
    std::strcpy(reinterpret_cast<char*>(localAE), "MOVER");
    return 1;
  }
  int CallBack(DICOMCommandObject* response, DICOMDataObject* identifier) override {
    statuses.push_back(response->GetUInt16(0, 0x0900));
    completed.push_back(response->GetUInt16(0, 0x1021));
    failed.push_back(response->GetUInt16(0, 0x1022));
    return 0;
  }
  std::string destinationPort;
  std::string calledLocalAE;
  std::vector<uint16_t> statuses, completed, failed;

 private:
  CTStorage ct_;
};

TEST(RetrieveFlow, MoveOpensASubAssociationToTheDestination) {
  Listener destination;
  KeepingStore received;
  std::string subCalling, subCalled;
  PeerThread destinationThread([&] {
    PDU_Service acceptor;
    acceptor.SetTimeout(10);
    if (!acceptor.ServeSocket(destination.Accept(10000))) return;
    subCalling = acceptor.GetCallingAETitle();
    subCalled = acceptor.GetCalledAETitle();
    ServeRequests(acceptor, [&](PDU_Service& pdu, DICOMCommandObject* request) {
      DICOMDataObject data;
      received.Read(&pdu, request, &data);
    });
  });
  std::string providerLocalAE;
  AssociationPair pair({kStudyRootMove}, [&](PDU_Service& acceptor) {
    ServeRequests(acceptor, [&](PDU_Service& pdu, DICOMCommandObject* request) {
      ThreeImages provider;
      provider.destinationPort = destination.PortText();
      EXPECT_EQ(provider.Read(&pdu, request), 1);
      providerLocalAE = provider.calledLocalAE;
    });
  });
  ASSERT_EQ(pair.Connect(), 1);
  ThreeImages requester;
  DICOMDataObject identifier;
  PushEven(&identifier, 0x0008, 0x0052, "IMAGE ");
  EXPECT_EQ(requester.Write(&pair.requester(), &identifier, "DEST"), 1) << "B000 is a warning";
  destinationThread.Join();
  EXPECT_EQ(received.instances, (std::vector<std::string>{"1.1", "1.3"}));
  EXPECT_EQ(subCalling, "MOVER");
  EXPECT_EQ(subCalled, "DEST");
  EXPECT_EQ(requester.statuses, (std::vector<uint16_t>{0xFF00, 0xFF00, 0xB000}));
  EXPECT_EQ(requester.completed, (std::vector<uint16_t>{1, 1, 2}));
  EXPECT_EQ(requester.failed, (std::vector<uint16_t>{0, 1, 1}));

  ThreeImages nowhere;
  DICOMDataObject again;
  PushEven(&again, 0x0008, 0x0052, "IMAGE ");
  EXPECT_EQ(nowhere.Write(&pair.requester(), &again, "NOWHERE"), 0);
  EXPECT_EQ(nowhere.statuses, std::vector<uint16_t>{0xA801});
  pair.requester().Close();
  pair.Join();
  EXPECT_EQ(providerLocalAE, "ACCEPTOR") << "QualifyOn gets this association's called AE";
}

TEST(RetrieveFlow, UnreachableDestinationFailsEverySubOperation) {
  int closedPort;
  {
    Listener gone;
    closedPort = gone.Port();
  }
  AssociationPair pair({kStudyRootMove}, [&](PDU_Service& acceptor) {
    ServeRequests(acceptor, [&](PDU_Service& pdu, DICOMCommandObject* request) {
      ThreeImages provider;
      provider.destinationPort = std::to_string(closedPort);
      provider.Read(&pdu, request);
    });
  });
  ASSERT_EQ(pair.Connect(), 1);
  ThreeImages requester;
  DICOMDataObject identifier;
  PushEven(&identifier, 0x0008, 0x0052, "IMAGE ");
  EXPECT_EQ(requester.Write(&pair.requester(), &identifier, "DEST"), 0);
  ASSERT_FALSE(requester.statuses.empty());
  EXPECT_EQ(requester.statuses.back(), 0xA702);
  EXPECT_EQ(requester.failed.back(), 3);
  pair.requester().Close();
}

}  // namespace
