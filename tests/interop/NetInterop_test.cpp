// The library's requester side against DCMTK's storescp: StandardStorage::Write of pydicom's
// sample files (the stored files must hold the same elements with the same values), and
// CVerification::Client against an accepting and a refusing storescp.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/CVerification.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/RTC.h"
#include "kestrel/StandardStorage.h"
#include "tests/TestValues.h"
#include "tests/interop/DcmtkPeer.h"

namespace fs = std::filesystem;

namespace {

using kestrel_test::DcmtkReads;
using kestrel_test::HaveTool;
using kestrel_test::Storescp;

const char kSamples[] = "/usr/lib/python3/dist-packages/pydicom/data/test_files";

// A value without its padding. Trailing blanks are not significant in text values (PS3.5
// 6.2), and storescp drops the surplus ones some writers leave (two blanks after an even value).
std::string Unpadded(const VR* vr) {
  std::string bytes(vr->Data ? static_cast<const char*>(vr->Data) : "", vr->Data ? vr->Length : 0);
  if (!bytes.empty() && bytes.size() % 2 == 0 && bytes.back() == '\0') bytes.pop_back();
  while (!bytes.empty() && bytes.back() == ' ') bytes.pop_back();
  return bytes;
}

// Pops both objects side by side; group 0002 and group lengths are not compared.
void Compare(DICOMObject* sent, DICOMObject* stored, const std::string& where,
             std::vector<std::string>& problems) {
  auto next = [](DICOMObject* object) -> std::unique_ptr<VR> {
    for (;;) {
      // Group lengths are recomputed, and storescp drops Data Set Trailing Padding.
      std::unique_ptr<VR> vr(object->Pop());
      if (!vr || (vr->Group != 2 && vr->Element != 0 && vr->Group != 0xFFFC)) return vr;
    }
  };
  for (;;) {
    std::unique_ptr<VR> a = next(sent), b = next(stored);
    if (!a && !b) return;
    char tag[32];
    std::snprintf(tag, sizeof tag, "(%04x,%04x)", a ? a->Group : b->Group,
                  a ? a->Element : b->Element);
    if (!a || !b || a->Group != b->Group || a->Element != b->Element) {
      problems.push_back(where + tag + ": elements differ");
      return;
    }
    uint32_t itemsA = a->SequenceItems ? a->SequenceItems->GetSize() : 0;
    uint32_t itemsB = b->SequenceItems ? b->SequenceItems->GetSize() : 0;
    if (itemsA != itemsB) {
      problems.push_back(where + tag + ": item counts differ");
    } else if (itemsA) {
      for (uint32_t i = 0; i < itemsA; ++i)
        Compare(a->SequenceItems->Get(i), b->SequenceItems->Get(i),
                where + tag + "[" + std::to_string(i) + "]", problems);
    } else if (Unpadded(a.get()) != Unpadded(b.get())) {
      problems.push_back(where + tag + ": values differ: [" + Unpadded(a.get()).substr(0, 64) +
                         "] [" + Unpadded(b.get()).substr(0, 64) + "]");
    }
  }
}

bool IsNative(const std::string& syntax) {
  return syntax == "1.2.840.10008.1.2" || syntax == "1.2.840.10008.1.2.1" ||
         syntax == "1.2.840.10008.1.2.2";
}

class StorescpInterop : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!HaveTool("storescp") || !HaveTool("dcmdump") || !fs::is_directory(kSamples))
      GTEST_SKIP() << "DCMTK's storescp or pydicom's sample files are not installed";
  }
};

TEST_F(StorescpInterop, StandardStorageWriteOfTheSampleFiles) {
  Storescp scp({"+xa", "-aet", "STORESCP"});
  int sent = 0;
  for (const auto& entry : fs::directory_iterator(kSamples)) {
    const std::string path = entry.path().string();
    if (entry.path().extension() != ".dcm") continue;
    PDU_Service files;
    std::unique_ptr<DICOMDataObject> object(files.LoadFile(path.c_str()));
    if (!object || !files.WasLastLoadComplete()) continue;
    std::string sopClass = TextOf(object.get(), 0x0008, 0x0016);
    std::string instance = TextOf(object.get(), 0x0008, 0x0018);
    std::string syntax = TextOf(object.get(), 0x0002, 0x0010);
    // Only what storescp can take: UIDs present, and a transfer syntax it knows.
    if (sopClass.empty() || instance.empty() ||
        !(IsNative(syntax) || syntax.rfind("1.2.840.10008.1.2.4.", 0) == 0 ||
          syntax == "1.2.840.10008.1.2.5") ||
        syntax == "1.2.840.10008.1.2.4.80" || syntax == "1.2.840.10008.1.2.4.81" ||
        !DcmtkReads(path))
      continue;
    const std::string name = entry.path().filename().string();

    PDU_Service association;
    association.SetApplicationContext("1.2.840.10008.3.1.1.1");
    association.AddAbstractSyntax(sopClass);
    association.SetLocalAddress("KESTREL");
    association.SetRemoteAddress("STORESCP");
    association.SetTimeout(30);
    // Native data is re-encoded in the default proposal; encapsulated pixel data travels in
    // its own syntax.
    ASSERT_EQ(association.Connect("127.0.0.1", scp.Port().c_str(),
                                  IsNative(syntax) ? nullptr : syntax.c_str()),
              1)
        << name;
    uint16_t status = 0xFFFF;
    UnknownStorage storage;
    EXPECT_EQ(storage.Write(&association, object.get(), &status), 1) << name;
    EXPECT_EQ(status, 0) << name;
    association.Close();
    ++sent;

    std::vector<fs::path> stored;
    for (const auto& file : fs::directory_iterator(scp.Dir())) stored.push_back(file.path());
    ASSERT_EQ(stored.size(), 1u) << name;
    // storescp writes what it received, implicit VR for native data: the dictionary gives the
    // reader the VRs, so that sequences are seen as sequences on both sides.
    PDU_Service reader;
    reader.AttachRTC(
        new RTC(false, (std::string(KESTREL_TEST_BUILD_DIR) + "/share/kestrel/dicom.bin").c_str()),
        true);
    std::unique_ptr<DICOMDataObject> original(reader.LoadFile(path.c_str()));
    std::unique_ptr<DICOMDataObject> received(reader.LoadFile(stored[0].c_str()));
    ASSERT_TRUE(original && received) << name;
    std::vector<std::string> problems;
    Compare(original.get(), received.get(), "", problems);
    EXPECT_TRUE(problems.empty()) << name << ": " << problems.front();
    fs::remove(stored[0]);
  }
  EXPECT_GT(sent, 20);
  std::printf("sent %d sample files to storescp\n", sent);
}

TEST_F(StorescpInterop, VerificationClient) {
  Storescp scp({"-aet", "STORESCP"});
  CVerification verification;
  KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_WRITE_FAILED;
  EXPECT_EQ(verification.Client("127.0.0.1", scp.Port(), "KESTREL", "STORESCP", &status), 1);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_OK);

  Storescp refusing({"--refuse"});
  EXPECT_EQ(verification.Client("127.0.0.1", refusing.Port(), "KESTREL", "STORESCP", &status), 0);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
  EXPECT_EQ(KESTREL::GetLastErrorText(),
            "Error: Unable to connect to 127.0.0.1\r\n" + KESTREL::BuildRejectionText(1, 1, 1));
}

}  // namespace
