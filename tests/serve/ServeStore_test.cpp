// The C-STORE path of kestrel serve in-process, over a loopback association, with the core's
// file operations replaced: a disk that fills part-way through an object, a rename or a flush
// that fails (each must give a failure status and leave no file, partial file or row), and a
// record of what reached the disk before the answer went out.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ServeConnections.h"
#include "ServeDispatcher.h"
#include "StoreObject.h"
#include "core/File.h"
#include "kestrel/CDatabase.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/RecordSets.h"
#include "kestrel/StandardStorage.h"
#include "net/SocketPlatform.h"
#include "tests/frame/FrameTestSupport.h"

namespace fs = std::filesystem;

namespace {

constexpr char kCT[] = "1.2.840.10008.5.1.4.1.1.2";
constexpr char kExplicitLittle[] = "1.2.840.10008.1.2.1";
constexpr char kInstance[] = "1.2.3.4.5";

// What the replaced operations saw, in order, with the thread that did it.
std::mutex eventsMutex;
std::vector<std::pair<std::thread::id, std::string>> events;
long roomLeft = -1;  // bytes the disk still takes; -1: no limit
KESTREL::sockets::SendCall systemSend = nullptr;

void Note(const std::string& event) {
  std::lock_guard<std::mutex> lock(eventsMutex);
  events.emplace_back(std::this_thread::get_id(), event);
}

size_t FillingWrite(const void* data, size_t size, std::FILE* file) {
  size_t n = roomLeft < 0 ? size : std::min<size_t>(size, static_cast<size_t>(roomLeft));
  n = std::fwrite(data, 1, n, file);
  if (roomLeft >= 0) roomLeft -= static_cast<long>(n);
  if (n < size) errno = ENOSPC;
  return n;
}
int NotedSync(std::FILE* file) {
  Note("sync file");
  return std::fflush(file);
}
int NotedSyncDirectory(const char* path) {
  Note(std::string("sync ") + path);
  return 0;
}
int FailingSync(std::FILE*) {
  errno = EIO;
  return -1;
}
int FailingRename(const char*, const char*) {
  errno = EXDEV;
  return -1;
}
long NotedSend(int handle, const void* data, size_t length, int flags) {
  Note("send");
  return systemSend(handle, data, length, flags);
}

void PushText(DICOMDataObject& object, uint16_t group, uint16_t element, const std::string& text,
              char a, char b) {
  std::string value = text;
  if (value.size() % 2) value += a == 'U' ? '\0' : ' ';
  auto* vr = new VR(group, element, static_cast<uint32_t>(value.size()), true);
  std::copy(value.begin(), value.end(), static_cast<char*>(vr->Data));
  vr->TypeCode = MakeTypeCode(a, b);
  object.Push(vr);
}

// A CT image of 256 x 256 16-bit pixels (128 KiB), in study 1.2.3 and series 1.2.3.4.
void MakeImage(DICOMDataObject& image) {
  PushText(image, 0x0008, 0x0016, kCT, 'U', 'I');
  PushText(image, 0x0008, 0x0018, kInstance, 'U', 'I');
  PushText(image, 0x0008, 0x0060, "CT", 'C', 'S');
  PushText(image, 0x0010, 0x0020, "P1", 'L', 'O');
  PushText(image, 0x0020, 0x000D, "1.2.3", 'U', 'I');
  PushText(image, 0x0020, 0x000E, "1.2.3.4", 'U', 'I');
  auto* pixels = new VR(0x7FE0, 0x0010, 256 * 256 * 2, true);
  pixels->TypeCode = MakeTypeCode('O', 'W');
  image.Push(pixels);
}

class ServeStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    settings_.storeDir = dir_.File("store");
    settings_.dbConnect = "DRIVER=SQLite3;Database=" + dir_.File("index.db") + ";";
    fs::create_directories(settings_.storeDir + "/.incoming");
    CDatabase database;
    std::string why;
    ASSERT_TRUE(OpenImageIndex(settings_.dbConnect, database, &why)) << why;
  }
  void TearDown() override { KESTREL::SetFileOperations(system_); }

  // One C-STORE of the image on an association of its own; the status, or 0xFFFF when none
  // came.
  uint16_t Store(const KESTREL::FileOperations& files, std::string* comment,
                 void (*addToImage)(DICOMDataObject&) = nullptr) {
    Dispatcher dispatcher(settings_, counters_);
    AddStoreHandler(dispatcher);
    Connections connections(Connections::Limits{});
    Socket listener;
    EXPECT_TRUE(listener.ListenOnFreePort());
    std::thread server([&] {
      const int handle = listener.AcceptHandle(5000);
      if (handle >= 0) dispatcher.Serve(handle, connections, connections.Admit(handle));
    });
    KESTREL::SetFileOperations(files);
    PDU_Service client;
    client.AddAbstractSyntax(UID(kCT), {UID(kExplicitLittle)});
    uint16_t status = 0xFFFF;
    DICOMDataObject image;
    MakeImage(image);
    if (addToImage) addToImage(image);
    if (client.Connect("127.0.0.1", std::to_string(listener.GetLocalPort()).c_str())) {
      const uint8_t context = client.GetAcceptedContexts()[0].PresentationContextID;
      StandardStorage::Store(&client, context, UID(kCT), UID(kInstance), &image, {}, &status,
                             comment);
      client.Close();
    }
    server.join();
    KESTREL::SetFileOperations(system_);
    return status;
  }

  std::vector<std::string> FilesInStore() const {
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(settings_.storeDir))
      if (entry.is_regular_file()) files.push_back(entry.path().string());
    return files;
  }
  std::string PatientID() const {
    CDatabase database;
    database.Open(settings_.dbConnect);
    CPatientSet set(&database);
    return set.Open() && !set.IsEOF() ? std::string(set.PatientID) : std::string("(none)");
  }
  int ImageRows() const {
    CDatabase database;
    database.Open(settings_.dbConnect);
    CImageSet set(&database);
    if (!set.Open()) return -1;
    int rows = 0;
    for (; !set.IsEOF(); set.MoveNext()) ++rows;
    return rows;
  }

  kestrel_test::TempDir dir_;
  ServeSettings settings_;
  ServeCounters counters_;
  const KESTREL::FileOperations system_ = KESTREL::GetFileOperations();
};

TEST_F(ServeStoreTest, AFailedWriteIsAnsweredAndLeavesNothing) {
  KESTREL::FileOperations fullDisk = system_, badRename = system_, badSync = system_;
  fullDisk.write = &FillingWrite;
  badRename.rename = &FailingRename;
  badSync.sync = &FailingSync;
  struct Case {
    const char* name;
    const KESTREL::FileOperations* files;
    const char* reason;  // in the log line of the failure
  };
  const Case cases[] = {{"disk full part-way", &fullDisk, "No space left on device"},
                        {"rename fails", &badRename, "Invalid cross-device link"},
                        {"flush to the disk fails", &badSync, "Input/output error"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    roomLeft = 64 * 1024;
    std::string comment;
    testing::internal::CaptureStderr();
    EXPECT_EQ(Store(*c.files, &comment), 0xA700);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(comment, "Could not write the image file");
    EXPECT_NE(
        log.find(std::string("failed (status A700): Could not write the image file: ") + c.reason),
        std::string::npos)
        << log;
    EXPECT_EQ(FilesInStore(), std::vector<std::string>{});
    EXPECT_EQ(ImageRows(), 0);
  }
}

// Private values of 60,000 bytes in group 0009 put the patient, study and series attributes
// 180 KB into the data set, past the bytes kept in memory as it arrives: they are read from
// the file, and the image is stored and indexed by them. The file, over 256 KiB, is handed to
// the disk as it arrives, and must still be whole.
TEST_F(ServeStoreTest, AttributesFarIntoTheDataSetAreReadFromItsFile) {
  std::string comment;
  const uint16_t status = Store(system_, &comment, [](DICOMDataObject& image) {
    for (uint16_t element : {0x1010, 0x1011, 0x1012}) {
      auto* bulk = new VR(0x0009, element, 60000, true);
      std::fill_n(static_cast<char*>(bulk->Data), 60000, static_cast<char>(element));
      bulk->TypeCode = MakeTypeCode('O', 'B');
      image.Push(bulk);
    }
  });
  EXPECT_EQ(status, 0x0000) << comment;
  const std::string stored = settings_.storeDir + "/1.2.3/1.2.3.4/1.2.3.4.5.dcm";
  DICOMCodec codec;
  FileReadResult result = FileReadResult::kCannotOpen;
  std::unique_ptr<DICOMDataObject> file(codec.LoadFile(stored.c_str(), &result));
  EXPECT_EQ(result, FileReadResult::kComplete);
  const VR* pixels = file ? file->Find(0x7FE0, 0x0010) : nullptr;
  EXPECT_EQ(pixels ? pixels->Length : 0u, 256u * 256u * 2u);
  EXPECT_EQ(PatientID(), "P1");
  EXPECT_EQ(ImageRows(), 1);
}

TEST_F(ServeStoreTest, SuccessIsAnsweredOnceTheFileAndItsFoldersAreOnTheDisk) {
  KESTREL::FileOperations noted = system_;
  noted.sync = &NotedSync;
  noted.syncDirectory = &NotedSyncDirectory;
  systemSend = KESTREL::sockets::SetSendCall(&NotedSend);
  const std::string store = settings_.storeDir;
  for (bool sync : {true, false}) {
    SCOPED_TRACE(sync ? "sync" : "no sync");
    settings_.sync = sync;
    events.clear();
    const std::thread::id client = std::this_thread::get_id();
    EXPECT_EQ(Store(noted, nullptr), 0x0000);
    // The server's doings: the A-ASSOCIATE-AC, the flushes, then the response and the
    // A-RELEASE-RP. Folders are flushed into their parents when they are made.
    std::vector<std::string> server;
    for (const auto& [thread, event] : events)
      if (thread != client) server.push_back(event);
    const std::vector<std::string> made = {"send",
                                           "sync " + store,
                                           "sync " + store + "/1.2.3",
                                           "sync file",
                                           "sync " + store + "/1.2.3/1.2.3.4",
                                           "send",
                                           "send"};
    const std::vector<std::string> unsynced = {"send", "send", "send"};
    EXPECT_EQ(server, sync ? made : unsynced);
    EXPECT_TRUE(fs::exists(store + "/1.2.3/1.2.3.4/1.2.3.4.5.dcm"));
    EXPECT_EQ(ImageRows(), 1);
    fs::remove_all(store + "/1.2.3");
  }
  KESTREL::sockets::SetSendCall(systemSend);
}

}  // namespace
