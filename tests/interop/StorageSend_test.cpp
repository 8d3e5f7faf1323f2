// Storage objects sending themselves to DCMTK's storescp: CStorage::Client over an association
// of its own, and CreateAssociation, Send and ReleaseAssociation for many instances over one.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/CStandardStorage.h"
#include "kestrel/CStorage.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/ImageIODModule.h"
#include "kestrel/ModalityStorage.h"
#include "kestrel/Notifier.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/Status.h"
#include "kestrel/UID.h"
#include "tests/TestValues.h"
#include "tests/interop/DcmtkPeer.h"

namespace fs = std::filesystem;

namespace {

using KESTREL::KESTREL_STATUS;
using kestrel_test::FreePort;
using kestrel_test::HaveTool;
using kestrel_test::Storescp;

const std::string kSamples = "/usr/lib/python3/dist-packages/pydicom/data/test_files/";
const char kCT[] = "1.2.840.10008.5.1.4.1.1.2";
const char kMR[] = "1.2.840.10008.5.1.4.1.1.4";
const char kSC[] = "1.2.840.10008.5.1.4.1.1.7";
const char kJ2K[] = "1.2.840.10008.1.2.4.91";
const char kExplicit[] = "1.2.840.10008.1.2.1";

// What storescp stored: SOP Instance UID -> transfer syntax of the file.
std::map<std::string, std::string> Received(const Storescp& scp) {
  std::map<std::string, std::string> found;
  for (const auto& entry : fs::directory_iterator(scp.Dir())) {
    DICOMCodec codec;
    std::unique_ptr<DICOMDataObject> file(codec.LoadFile(entry.path().c_str()));
    if (file) found[TextOf(file.get(), 0x0008, 0x0018)] = TextOf(file.get(), 0x0002, 0x0010);
  }
  return found;
}

struct LoadedFile {
  std::unique_ptr<CStorage> storage;
  std::string syntax;
  std::string instance;
};

LoadedFile Load(const std::string& name) {
  LoadedFile loaded;
  char syntax[65] = {};
  CStandardStorage standard;
  loaded.storage.reset(standard.Load(kSamples + name, syntax, 64));
  loaded.syntax = syntax;
  if (loaded.storage) {
    UID instance;
    instance.Set(loaded.storage->GetIOD()->GetAttribute(0x0008, 0x0018));
    loaded.instance = instance.ToString();
  }
  return loaded;
}

std::vector<std::string> notified;
void Capture(const std::string& text) { notified.push_back(text); }

class StorageSendTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!HaveTool("storescp") || !fs::is_directory(kSamples))
      GTEST_SKIP() << "DCMTK's storescp or pydicom's sample files are not installed";
    notified.clear();
    previous_ = KESTREL::SetNotifier(Capture);
  }
  void TearDown() override { KESTREL::SetNotifier(previous_); }
  KESTREL::NotifyHandler previous_ = nullptr;
};

TEST_F(StorageSendTest, ClientSendsEachInstanceInItsOwnSyntax) {
  Storescp scp({"+xa", "-aet", "ANY-SCP"});
  std::map<std::string, std::string> expected;
  for (const char* name : {"CT_small.dcm", "MR_small_bigendian.dcm", "JPEG2000.dcm"}) {
    SCOPED_TRACE(name);
    LoadedFile file = Load(name);
    ASSERT_TRUE(file.storage);
    KESTREL_STATUS status = KESTREL::KESTREL_STATUS_WRITE_FAILED;
    EXPECT_EQ(file.storage->Client("127.0.0.1", scp.Port(), "KESTREL", "ANY-SCP", &status,
                                   file.syntax.c_str()),
              1)
        << KESTREL::GetLastErrorText();
    EXPECT_EQ(status, KESTREL::KESTREL_STATUS_OK);
    // Native data goes in explicit VR little endian (proposed first); the compressed file keeps
    // its syntax, since nothing is decompressed.
    expected[file.instance] = file.syntax == kJ2K ? kJ2K : kExplicit;
  }
  // The caller's own object, in the second form, sent by an object of another class: the SOP
  // class is the instance's.
  DICOMCodec codec;
  std::unique_ptr<DICOMDataObject> sc(codec.LoadFile((kSamples + "SC_rgb_small_odd.dcm").c_str()));
  ASSERT_TRUE(sc);
  const std::string scInstance = TextOf(sc.get(), 0x0008, 0x0018);
  CCTStorage holder;
  EXPECT_EQ(holder.Client(sc.get(), "127.0.0.1", scp.Port(), "KESTREL", "ANY-SCP", nullptr), 1)
      << KESTREL::GetLastErrorText();
  expected[scInstance] = kExplicit;
  EXPECT_EQ(Received(scp), expected);
  EXPECT_TRUE(notified.empty());
}

TEST_F(StorageSendTest, ClientFailuresSayWhyWithTheirStatus) {
  LoadedFile ct = Load("CT_small.dcm");
  ASSERT_TRUE(ct.storage);
  KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
  const std::string closed = std::to_string(FreePort());

  // Nobody listening.
  EXPECT_EQ(ct.storage->Client("127.0.0.1", closed, "KESTREL", "ANY-SCP", &status), 0);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
  EXPECT_EQ(KESTREL::GetLastErrorText(),
            "Error: Unable to connect to 127.0.0.1\r\nThe connection to "
            "127.0.0.1 port " +
                closed + " was refused: nothing listens there\r\n");

  // A peer that rejects the association.
  {
    Storescp refusing({"--refuse"});
    EXPECT_EQ(ct.storage->Client("127.0.0.1", refusing.Port(), "KESTREL", "ANY-SCP", &status), 0);
    EXPECT_EQ(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
    EXPECT_EQ(KESTREL::GetLastErrorText(),
              "Error: Unable to connect to 127.0.0.1\r\n" + KESTREL::BuildRejectionText(1, 1, 1));
  }
  // A peer that aborts once it has the request.
  {
    Storescp aborting({"--abort-after"});
    LoadedFile again = Load("CT_small.dcm");
    EXPECT_EQ(again.storage->Client("127.0.0.1", aborting.Port(), "KESTREL", "ANY-SCP", &status),
              0);
    EXPECT_EQ(status, KESTREL::KESTREL_STATUS_WRITE_FAILED);
    EXPECT_EQ(KESTREL::GetLastErrorText(), "Error: Unable to write DICOM object.\r\n");
  }
  // Instances that cannot go fail before any connection (the port is closed, yet the status
  // says the write failed).
  DICOMDataObject anonymous;
  ASSERT_TRUE(
      anonymous.Push(new VR(0x0008, 0x0016, sizeof kCT - 1, const_cast<char*>(kCT), false)));
  EXPECT_EQ(ct.storage->Client(&anonymous, "127.0.0.1", closed, "KESTREL", "ANY-SCP", &status), 0);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_WRITE_FAILED);
  EXPECT_EQ(KESTREL::GetLastErrorText(),
            "Error: Unable to write DICOM object.\r\n"
            "The object has no SOP Class UID or no SOP Instance UID\r\n");
  LoadedFile jpeg = Load("JPEG2000.dcm");
  ASSERT_TRUE(jpeg.storage);
  EXPECT_EQ(jpeg.storage->Client("127.0.0.1", closed, "KESTREL", "ANY-SCP", &status, kExplicit), 0);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_WRITE_FAILED);
  EXPECT_NE(KESTREL::GetLastErrorText().find("encapsulated"), std::string::npos);

  EXPECT_EQ(ct.storage->Client("127.0.0.1", closed, "KESTREL", "A-TITLE-OF-17-CHR", &status), 0);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
  EXPECT_TRUE(notified.empty());  // Client reports through its status and text only
}

TEST_F(StorageSendTest, OneAssociationCarriesManyInstances) {
  Storescp scp({"+xa", "-aet", "ANY-SCP"});
  // The CT twice and the MR in two native syntaxes share contexts; the JPEG 2000 secondary
  // capture needs one of its own.
  std::vector<UID> classes = {UID(kCT), UID(kCT), UID(kMR), UID(kMR), UID(kSC)};
  std::vector<UID> syntaxes = {UID(), UID(kExplicit), UID("1.2.840.10008.1.2.2"), UID(), UID(kJ2K)};
  PDU_Service* pdu =
      CStorage::CreateAssociation("127.0.0.1", scp.Port(), "KESTREL", "ANY-SCP", classes, syntaxes);
  ASSERT_NE(pdu, nullptr) << KESTREL::GetLastErrorText();
  EXPECT_EQ(pdu->GetProposedContexts().size(), 3u);

  std::map<std::string, std::string> expected;
  for (const char* name : {"CT_small.dcm", "MR_small.dcm", "JPEG2000.dcm"}) {
    SCOPED_TRACE(name);
    LoadedFile file = Load(name);
    ASSERT_TRUE(file.storage);
    KESTREL_STATUS status = KESTREL::KESTREL_STATUS_WRITE_FAILED;
    EXPECT_EQ(file.storage->Send(pdu, nullptr, file.syntax.c_str(), &status), 1)
        << KESTREL::GetLastErrorText();
    EXPECT_EQ(status, KESTREL::KESTREL_STATUS_OK);
    expected[file.instance] = file.syntax == kJ2K ? kJ2K : kExplicit;
  }
  // A secondary capture in a native syntax was not proposed: refused, and the association
  // goes on.
  LoadedFile sc = Load("SC_rgb_small_odd.dcm");
  ASSERT_TRUE(sc.storage);
  KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
  EXPECT_EQ(sc.storage->Send(pdu, nullptr, sc.syntax.c_str(), &status), 0);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
  EXPECT_NE(KESTREL::GetLastErrorText().find("accepted no context"), std::string::npos);
  EXPECT_TRUE(pdu->IsAssociated());
  LoadedFile rle = Load("MR_small_RLE.dcm");  // nor was RLE for the MR
  ASSERT_TRUE(rle.storage);
  EXPECT_EQ(rle.storage->Send(pdu, nullptr, rle.syntax.c_str(), &status), 0);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
  CStorage::ReleaseAssociation(pdu);
  CStorage::ReleaseAssociation(nullptr);
  EXPECT_EQ(Received(scp), expected);
}

TEST_F(StorageSendTest, AssociationFailuresGoToTheNotifier) {
  const std::string closed = std::to_string(FreePort());
  EXPECT_EQ(CStorage::CreateAssociation("127.0.0.1", closed, "KESTREL", "ANY-SCP", {UID(kCT)}, {}),
            nullptr);
  ASSERT_EQ(notified.size(), 1u);
  EXPECT_EQ(notified[0],
            "ERROR: Unable to connect to 127.0.0.1\r\nThe connection to 127.0.0.1 port " + closed +
                " was refused: nothing listens there\r\n");
  EXPECT_EQ(KESTREL::GetLastErrorText(), notified[0]);

  // More SOP classes than an association has contexts for.
  std::vector<UID> many;
  for (int i = 0; i < 129; ++i)
    many.push_back(UID("1.2.826.0.1.3680043.9.9999." + std::to_string(i)));
  EXPECT_EQ(CStorage::CreateAssociation("127.0.0.1", closed, "KESTREL", "ANY-SCP", many, {}),
            nullptr);
  ASSERT_EQ(notified.size(), 2u);
  EXPECT_NE(notified[1].find("More than 128"), std::string::npos) << notified[1];
  EXPECT_EQ(CStorage::CreateAssociation("127.0.0.1", closed, "KESTREL", "ANY-SCP", {}, {}),
            nullptr);
  EXPECT_EQ(notified.size(), 3u);

  // A peer that aborts: the failed Send leaves a dead association behind.
  Storescp aborting({"--abort-after"});
  PDU_Service* pdu = CStorage::CreateAssociation("127.0.0.1", aborting.Port(), "KESTREL", "ANY-SCP",
                                                 {UID(kCT)}, {});
  ASSERT_NE(pdu, nullptr) << KESTREL::GetLastErrorText();
  LoadedFile ct = Load("CT_small.dcm");
  KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
  EXPECT_EQ(ct.storage->Send(pdu, nullptr, ct.syntax.c_str(), &status), 0);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_WRITE_FAILED);
  EXPECT_FALSE(pdu->IsAssociated());
  CStorage::ReleaseAssociation(pdu);
}

}  // namespace
