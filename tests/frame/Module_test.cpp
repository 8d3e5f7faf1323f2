#include "frame/Module.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "kestrel/Notifier.h"
#include "tests/frame/FrameTestSupport.h"

namespace {

using kestrel_test::ReadLines;
using kestrel_test::RunInChild;
using kestrel_test::ScopedEnv;
using kestrel_test::ScopedSettings;
using kestrel_test::TempDir;

std::vector<std::string>& Notices() {
  static std::vector<std::string> notices;
  return notices;
}

void RecordNotice(const std::string& text) { Notices().push_back(text); }

bool IsZeroFilled(const void* block) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  for (int i = 0; i < KESTREL::kScratchBlockSize; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

// Each test starts detached, with the fake toolkit, a trace file, a log directory and a
// notifier that records instead of printing.
class ModuleTest : public testing::Test {
 protected:
  void SetUp() override {
    Notices().clear();
    previous_ = KESTREL::SetNotifier(RecordNotice);
  }
  void TearDown() override {
    KESTREL::DetachProcess();
    KESTREL::SetNotifier(previous_);
  }
  std::vector<std::string> Trace() const { return ReadLines(trace_); }
  std::vector<std::string> LogLines() const { return ReadLines(dir_.File("kestrel.log")); }

  TempDir dir_;
  std::string trace_ = dir_.File("trace.txt");
  ScopedSettings settings_{dir_, ScopedSettings::WithLogDir(dir_.path())};
  ScopedEnv toolkit_{"KESTREL_TKADV", KESTREL_FAKE_TKADV};
  ScopedEnv traceEnv_{"FAKE_TKADV_TRACE", trace_.c_str()};
  KESTREL::NotifyHandler previous_ = nullptr;
};

constexpr char kInit[] =
    "TK_Library_Initialization profile=set service=set reserved=null answered=0";
constexpr char kRegister[] = "TK_Register_Application KESTREL";
constexpr char kRelease[] = "TK_Library_Release";

// The toolkit's answers to its two start-up calls; `failed` names the call whose answer is a
// failure (null when both succeed): it is reported word for word and nothing follows it.
struct ToolkitCase {
  const char* initResult;
  const char* registerResult;
  const char* failed;
};

TEST_F(ModuleTest, DrivesTheToolkitInOrderAndReportsFailuresWordForWord) {
  const char* const kInitCall = "TK_Library_Initialization";
  const char* const kRegisterCall = "TK_Register_Application";
  const ToolkitCase cases[] = {
      {"1", "1", nullptr},          {"4095", "4000", nullptr}, {"4095", "1", nullptr},
      {"1", "4000", nullptr},       {"0", "1", kInitCall},     {"-12", "1", kInitCall},
      {"4000", "1", kInitCall},      // 4000 is a success code of registration only
      {"1", "4095", kRegisterCall},  // 4095 is a success code of initialisation only
      {"4095", "0", kRegisterCall},
  };
  for (const ToolkitCase& c : cases) {
    SCOPED_TRACE(std::string("init ") + c.initResult + ", register " + c.registerResult);
    std::remove(trace_.c_str());
    Notices().clear();
    ScopedEnv init("FAKE_TKADV_INIT", c.initResult);
    ScopedEnv registration("FAKE_TKADV_REGISTER", c.registerResult);

    std::vector<std::string> trace = {kInit};
    if (c.failed != kInitCall) trace.push_back(kRegister);
    const std::string code = c.failed == kInitCall ? c.initResult : c.registerResult;
    if (c.failed) trace.push_back("TK_Error_Message " + code);

    KESTREL::AttachProcess();
    EXPECT_TRUE(KESTREL::ToolkitLoaded());
    EXPECT_EQ(Trace(), trace);
    if (c.failed) {
      EXPECT_EQ(Notices(),
                std::vector<std::string>{std::string("KESTREL - ") + c.failed + " failed: (" +
                                         code + ") fake toolkit error " + code + "."});
    } else {
      EXPECT_TRUE(Notices().empty());
      EXPECT_EQ(KESTREL::ToolkitApplicationId(), 42);
    }
    EXPECT_EQ(KESTREL::HasThreadScratchBlock(), !c.failed);

    // The toolkit is released at detach whatever its start-up said.
    KESTREL::DetachProcess();
    trace.push_back(kRelease);
    EXPECT_EQ(Trace(), trace);
    EXPECT_FALSE(KESTREL::ToolkitLoaded());
    EXPECT_FALSE(KESTREL::HasThreadScratchBlock());
  }
}

TEST_F(ModuleTest, FailedToolkitLeavesTheLibraryUsable) {
  ScopedEnv init("FAKE_TKADV_INIT", "7");
  KESTREL::AttachProcess();
  ASSERT_EQ(Notices().size(), 1u);
  // The attaching thread got no block at attach, but gets one when it first asks.
  EXPECT_FALSE(KESTREL::HasThreadScratchBlock());
  void* block = KESTREL::ThreadScratchBlock();
  ASSERT_NE(block, nullptr);
  EXPECT_TRUE(IsZeroFilled(block));
}

// A toolkit that is missing, or lacks an entry point, is never called: one log line says why,
// and the library goes on without it.
TEST_F(ModuleTest, UnusableToolkitIsSkippedWithALogLine) {
  const std::string missing = dir_.File("no-such-libtkadv.so");
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {missing, {"toolkit not loaded", "no-such-libtkadv.so"}},
      {KESTREL_FAKE_TKADV_PARTIAL, {"lacks a toolkit entry point"}},
  };
  for (const auto& [library, texts] : cases) {
    SCOPED_TRACE(library);
    std::remove(dir_.File("kestrel.log").c_str());
    ScopedEnv toolkit("KESTREL_TKADV", library.c_str());
    KESTREL::AttachProcess();
    EXPECT_FALSE(KESTREL::ToolkitLoaded());
    EXPECT_TRUE(Notices().empty());
    EXPECT_TRUE(KESTREL::HasThreadScratchBlock());
    KESTREL::DetachProcess();
    EXPECT_FALSE(kestrel_test::FileExists(trace_)) << "a toolkit entry point was called";
    std::vector<std::string> log = LogLines();
    ASSERT_EQ(log.size(), 1u);
    for (const std::string& text : texts) EXPECT_NE(log[0].find(text), std::string::npos) << log[0];
  }
}

TEST_F(ModuleTest, EveryThreadGetsItsOwnZeroedBlockFreedAtExit) {
  KESTREL::AttachProcess();
  void* mine = KESTREL::ThreadScratchBlock();
  ASSERT_NE(mine, nullptr);
  EXPECT_EQ(KESTREL::ThreadScratchBlock(), mine) << "a second call must give the same block";
  std::memset(mine, 0xAB, KESTREL::kScratchBlockSize);
  int before = KESTREL::LiveScratchBlocks();

  constexpr int kThreads = 4;
  std::vector<void*> seen(kThreads, nullptr);
  std::vector<bool> zeroed(kThreads, false);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      seen[i] = KESTREL::ThreadScratchBlock();
      zeroed[i] = seen[i] && IsZeroFilled(seen[i]);
      if (seen[i]) std::memset(seen[i], i + 1, KESTREL::kScratchBlockSize);
    });
  }
  for (std::thread& thread : threads) thread.join();

  for (int i = 0; i < kThreads; ++i) {
    EXPECT_NE(seen[i], nullptr) << "thread " << i;
    EXPECT_NE(seen[i], mine) << "thread " << i;
    EXPECT_TRUE(zeroed[i]) << "thread " << i;
  }
  // The threads have exited, so their blocks are gone and only ours is left.
  EXPECT_EQ(KESTREL::LiveScratchBlocks(), before);
  KESTREL::DetachProcess();
  EXPECT_EQ(KESTREL::LiveScratchBlocks(), before - 1);
}

TEST_F(ModuleTest, WithoutAThreadSlotStartUpStopsBeforeTheToolkit) {
  int code = RunInChild([] {
    // Take every key the process may have, so the library's slot cannot be had.
    std::vector<pthread_key_t> taken;
    for (pthread_key_t key; pthread_key_create(&key, nullptr) == 0;) taken.push_back(key);
    KESTREL::AttachProcess();
    bool skipped = !KESTREL::ToolkitLoaded() && KESTREL::ThreadScratchBlock() == nullptr;
    KESTREL::DetachProcess();
    for (pthread_key_t key : taken) pthread_key_delete(key);
    return skipped ? 0 : 1;
  });
  EXPECT_EQ(code, 0);
  EXPECT_FALSE(kestrel_test::FileExists(trace_)) << "the toolkit was called without a slot";
}

TEST_F(ModuleTest, AttachingTwiceStartsTheToolkitOnce) {
  KESTREL::AttachProcess();
  KESTREL::AttachProcess();
  KESTREL::DetachProcess();
  KESTREL::DetachProcess();
  EXPECT_EQ(Trace(), (std::vector<std::string>{kInit, kRegister, kRelease}));
}

// The real thing: the loader runs start-up when libkestrel.so is loaded and the release when
// it is unloaded.
TEST_F(ModuleTest, LoadingTheSharedLibraryStartsAndStopsTheToolkit) {
  int code = RunInChild([] {
    void* library = dlopen(KESTREL_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (!library) {
      std::fprintf(stderr, "%s\n", dlerror());
      return 2;
    }
    dlclose(library);
    // If the library stays mapped, its destructor runs at exit instead.
    std::exit(0);
  });
  ASSERT_EQ(code, 0);
  EXPECT_EQ(Trace(), (std::vector<std::string>{kInit, kRegister, kRelease}));
}

}  // namespace
