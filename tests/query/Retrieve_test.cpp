// The retrieve classes as requester (the identifier of each level, the statuses and texts of a
// failed move) against a provider on a thread, and RetrieveOn's files and storage classes.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "kestrel/CPatientRootRetrieve.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/CStudyRootRetrieve.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/Notifier.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/StandardStorage.h"
#include "tests/TestValues.h"
#include "tests/frame/FrameTestSupport.h"
#include "tests/net/NetTestSupport.h"

namespace {

std::string notified;
void KeepNotice(const std::string& text) { notified = text; }

// A C-MOVE provider serving one association: keeps the identifier and Move Destination of the
// request and answers `status` with one completed sub-operation.
class MovePeer {
 public:
  explicit MovePeer(uint16_t status) {
    thread_ = std::make_unique<net_test::PeerThread>([this, status] {
      int handle = listener_.Accept();
      PDU_Service acceptor;
      DICOMCommandObject request;
      if (handle < 0 || !acceptor.ServeSocket(handle) || !acceptor.Read(&request) ||
          !CMoveRQ::Read(&request, &acceptor, &identifier))
        return;
      destination = TextOf(&request, 0x0000, 0x0600);
      CMoveRSP::Counts counts;
      counts.Completed = 1;
      CMoveRSP::Write(&acceptor, &request, status, counts);
      DICOMCommandObject release;
      acceptor.Read(&release);
    });
  }
  std::string Port() const { return listener_.PortText(); }
  void Join() { thread_->Join(); }

  DICOMDataObject identifier;
  std::string destination;

 private:
  net_test::Listener listener_;
  std::unique_ptr<net_test::PeerThread> thread_;
};

size_t LengthOf(DICOMObject* object, uint16_t group, uint16_t element) {
  VR* vr = object->Find(group, element);
  return vr ? vr->Length : 9999;
}

TEST(Retrieve, EachLevelSendsItsIdentifier) {
  struct Case {
    const char* level;
    uint16_t group, element;  // a key that must be there
    const char* value;        // with this value ("" for empty)
  };
  const Case cases[] = {
      {"PATIENT ", 0x0010, 0x0020, "P12"},     {"PATIENT ", 0x0010, 0x0010, ""},
      {"STUDY ", 0x0020, 0x000D, "1.2.3"},     {"STUDY ", 0x0010, 0x0020, ""},
      {"SERIES", 0x0020, 0x000E, "1.2.3.4"},   {"SERIES", 0x0008, 0x0060, ""},
      {"IMAGE ", 0x0008, 0x0018, "1.2.3.4.5"}, {"IMAGE ", 0x0020, 0x0013, ""},
  };
  for (const Case& c : cases) {
    MovePeer peer(DIMSEStatus::kSuccess);
    CResultsArray rows;
    CPatientRootRetrieve retrieve(&rows);
    const std::string level = c.level;
    if (level == "PATIENT ")
      retrieve.Retrieve("P12", "127.0.0.1", peer.Port(), "CALLER", "PEER", nullptr);
    else if (level == "STUDY ")
      retrieve.Retrieve("P12", "1.2.3", "127.0.0.1", peer.Port(), "CALLER", "PEER", nullptr);
    else if (level == "SERIES")
      retrieve.Retrieve("P12", "1.2.3", "1.2.3.4", "127.0.0.1", peer.Port(), "CALLER", "PEER",
                        nullptr);
    else
      retrieve.Retrieve("P12", "1.2.3", "1.2.3.4", "1.2.3.4.5", "127.0.0.1", peer.Port(), "CALLER",
                        "PEER", nullptr);
    peer.Join();
    VR* sent = peer.identifier.Find(0x0008, 0x0052);
    ASSERT_TRUE(sent) << c.level;
    EXPECT_EQ(std::string(static_cast<char*>(sent->Data), sent->Length), c.level);
    EXPECT_EQ(retrieve.GetLevel(), c.level);
    EXPECT_EQ(TextOf(&peer.identifier, c.group, c.element), c.value) << c.level;
    if (!*c.value) {
      EXPECT_EQ(LengthOf(&peer.identifier, c.group, c.element), 0u) << c.level;
    }
    EXPECT_EQ(peer.destination, "CALLER") << "moved to the caller's own AE";
    ASSERT_EQ(rows.GetSize(), 1);
    EXPECT_EQ(*rows[0]->GetAt(CPatientRootRetrieve::kStatus), "0000");
    EXPECT_EQ(*rows[0]->GetAt(CPatientRootRetrieve::kCompleted), "1");
    rows.DeleteAll();
  }
}

TEST(Retrieve, FailuresGiveStatusTextAndNotice) {
  KESTREL::NotifyHandler before = KESTREL::SetNotifier(KeepNotice);
  MovePeer peer(DIMSEStatus::kMoveDestinationUnknown);
  CStudyRootRetrieve retrieve(nullptr);
  retrieve.SetMoveDestination("ELSEWHERE");
  KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
  retrieve.Retrieve("1.2.3", "127.0.0.1", peer.Port(), "CALLER", "PEER", &status);
  peer.Join();
  EXPECT_EQ(peer.destination, "ELSEWHERE");
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_WRITE_FAILED);
  EXPECT_EQ(KESTREL::GetLastErrorText(),
            "ERROR: Unable to write DICOM object (Study Root Retrieve).\r\n");
  EXPECT_EQ(notified, KESTREL::GetLastErrorText());

  const std::string closed = net_test::Listener().PortText();  // nobody listens there now
  CPatientRootRetrieve patientRoot(nullptr);
  patientRoot.Retrieve("P1", "127.0.0.1", closed, "CALLER", "PEER", &status);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
  EXPECT_EQ(KESTREL::GetLastErrorText().rfind("ERROR: Unable to connect to 127.0.0.1\r\n", 0), 0u);
  patientRoot.Retrieve("P1", "127.0.0.1", closed, "CALLER", "PEER", nullptr);
  KESTREL::SetNotifier(before);
}

// An image of `sopClass` written at `path`.
void WriteImage(const std::string& path, const char* sopClass, const char* instance) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  DICOMDataObject object;
  net_test::PushText(&object, 0x0008, 0x0016, sopClass);
  net_test::PushText(&object, 0x0008, 0x0018, instance);
  net_test::PushText(&object, 0x7FE0, 0x0010, "PIXELS");
  DICOMCodec codec;
  ASSERT_TRUE(codec.SaveFile(path.c_str(), 3, &object, "1.2.840.10008.1.2.1"));
}

TEST(Retrieve, RetrieveOnOpensTheFileOfEachRoot) {
  kestrel_test::TempDir dir;
  const char* kCT = "1.2.840.10008.5.1.4.1.1.2";
  const char* kNM = "1.2.840.10008.5.1.4.1.1.20";
  WriteImage(dir.File("9.1.dcm"), kCT, "9.1");
  WriteImage(dir.File("9.2.dcm"), kNM, "9.2");
  WriteImage(dir.File("1.1/1.2/9.2.dcm"), kNM, "9.2");
  struct Case {
    bool patientRoot;
    const char* instance;
    int result;
    bool object;
    const char* storageClass;  // null: none given
  };
  const Case cases[] = {
      {true, "9.1", 1, true, kCT},        // flat, a class the patient root knows
      {true, "9.2", 1, true, nullptr},    // flat, but NM is not one of its five
      {false, "9.2", 1, true, kNM},       // the store layout, all eighteen classes
      {false, "9.1", 1, false, nullptr},  // not in the layout
      {true, "../9.1", 0, false, nullptr}, {true, "", 0, false, nullptr},
  };
  for (const Case& c : cases) {
    CPatientRootRetrieve patientRoot(nullptr, dir.path(), "");
    CStudyRootRetrieve studyRoot(nullptr, dir.path(), "");
    DICOMDataObject match;
    if (*c.instance) net_test::PushText(&match, 0x0008, 0x0018, c.instance);
    net_test::PushText(&match, 0x0020, 0x000D, "1.1");
    net_test::PushText(&match, 0x0020, 0x000E, "1.2");
    DICOMDataObject* object = nullptr;
    StandardStorage* storage = nullptr;
    const int result = c.patientRoot ? patientRoot.RetrieveOn(&match, &object, &storage)
                                     : studyRoot.RetrieveOn(&match, &object, &storage);
    std::unique_ptr<DICOMDataObject> owned(object);
    EXPECT_EQ(result, c.result) << c.instance;
    EXPECT_EQ(object != nullptr, c.object) << c.instance;
    UID uid;
    if (storage) storage->GetUID(uid);
    EXPECT_EQ(uid.ToString(), c.storageClass ? c.storageClass : "") << c.instance;
  }
}

}  // namespace
