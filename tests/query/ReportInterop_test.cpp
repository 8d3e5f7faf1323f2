// CMitraReportQuery against DCMTK's dcmqrscp holding pydicom's SR samples and a CT image.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "kestrel/CMitraReportQuery.h"
#include "kestrel/CResultsArray.h"
#include "tests/frame/FrameTestSupport.h"
#include "tests/interop/DcmtkPeer.h"

namespace {

const std::string kSamples = "/usr/lib/python3/dist-packages/pydicom/data/test_files/";
// The study of test-SR.dcm (a verified, complete Comprehensive SR) and of CT_small.dcm.
constexpr char kReportStudy[] = "1.2.276.0.7230010.3.1.4.2139363186.7819.982086466.2";
constexpr char kReport[] = "1.2.276.0.7230010.3.1.4.2139363186.7819.982086466.4";
constexpr char kImageStudy[] = "1.3.6.1.4.1.5962.1.2.1.20040119072730.12322";

class Dcmqrscp {
 public:
  Dcmqrscp(const kestrel_test::TempDir& dir, int port) {
    std::filesystem::create_directories(dir.File("db"));
    std::ofstream(dir.File("qr.cfg"))
        << "NetworkTCPPort = " << port
        << "\nMaxPDUSize = 16384\nMaxAssociations = 4\nHostTable BEGIN\nHostTable END\n"
           "VendorTable BEGIN\nVendorTable END\nAETable BEGIN\nQRSCP "
        << dir.File("db") << " RW (10, 1024mb) ANY\nAETable END\n";
    std::string files;
    for (const char* name : {"test-SR.dcm", "reportsi.dcm", "CT_small.dcm"})
      files += " '" + kSamples + name + "'";
    indexed_ = std::system(("dcmqridx '" + dir.File("db") + "'" + files).c_str()) == 0;
    pid_ = fork();
    if (pid_ == 0) {
      execlp("dcmqrscp", "dcmqrscp", "-c", dir.File("qr.cfg").c_str(), std::to_string(port).c_str(),
             static_cast<char*>(nullptr));
      _exit(127);
    }
    for (int i = 0; i < 200; ++i) {  // up to 10 s for it to listen
      Socket probe;
      if (probe.Open("127.0.0.1", std::to_string(port).c_str())) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
  ~Dcmqrscp() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      int status;
      waitpid(pid_, &status, 0);
    }
  }
  bool Indexed() const { return indexed_; }

 private:
  pid_t pid_ = -1;
  bool indexed_ = false;
};

TEST(ReportInterop, ReportsOfAStudyFromDcmqrscp) {
  if (!kestrel_test::HaveTool("dcmqrscp") || !kestrel_test::HaveTool("dcmqridx") ||
      !std::filesystem::exists(kSamples + "test-SR.dcm"))
    GTEST_SKIP() << "DCMTK or pydicom's sample files not installed";
  kestrel_test::TempDir dir;
  const std::string port = std::to_string(kestrel_test::FreePort());
  Dcmqrscp archive(dir, std::stoi(port));
  ASSERT_TRUE(archive.Indexed());

  CResultsArray rows;
  CMitraReportQuery query(&rows);
  KESTREL::KESTREL_STATUS status;
  ASSERT_EQ(query.Query(kReportStudy, "127.0.0.1", port, "KESTREL", "QRSCP", &status), 1)
      << KESTREL::GetLastErrorText();
  ASSERT_EQ(rows.GetSize(), 1) << "one SR in the study; the other SR belongs to another";
  EXPECT_EQ(*rows[0]->GetAt(CMitraReportQuery::kSOPInstanceUID), kReport);
  EXPECT_EQ(*rows[0]->GetAt(CMitraReportQuery::kSeriesInstanceUID),
            "1.2.276.0.7230010.3.1.4.2139363186.7819.982086466.3");
  // dcmqrscp answers only the keys of its index: the report flags come back empty or not at
  // all, never wrong.
  const std::string* completion = rows[0]->GetAt(CMitraReportQuery::kCompletionFlag);
  EXPECT_TRUE(!completion || completion->empty() || *completion == "COMPLETE");
  rows.DeleteAll();

  ASSERT_EQ(query.Query(kImageStudy, "127.0.0.1", port, "KESTREL", "QRSCP", &status), 1);
  EXPECT_EQ(rows.GetSize(), 0) << "a study of images only has no reports";
  EXPECT_EQ(query.Query(kImageStudy, "127.0.0.1", port, "KESTREL", "WRONGAE", &status), 0);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
  rows.DeleteAll();
}

}  // namespace
