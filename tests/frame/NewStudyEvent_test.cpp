#include "kestrel/NewStudyEvent.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>

#include "frame/NewStudyEventName.h"
#include "frame/Platform.h"
#include "tests/frame/FrameTestSupport.h"

namespace {

using kestrel_test::RunInChild;
using Clock = std::chrono::steady_clock;

// Every test opens an event of its own under a name unique to this process and removes it
// afterwards, so the machine's "/NewStudyEvent" is never touched and /dev/shm stays clean.
class NewStudyEventTest : public testing::Test {
 protected:
  void SetUp() override {
    static std::atomic<int> counter{0};
    name_ = "/kestrel-test-" + std::to_string(getpid()) + "-" + std::to_string(++counter);
    KESTREL::SetNewStudyEventName(name_);
  }
  void TearDown() override {
    (void)KESTREL::platform::SharedEvent::Remove(name_);
    KESTREL::SetNewStudyEventName("");
  }

  // Forks a waiter that says it is ready through a pipe, then waits up to `timeoutMs`.
  // Gives the child's pid; its exit code is 0 when it saw a pulse.
  pid_t StartWaiter(int readyPipe[2], uint32_t timeoutMs) {
    std::fflush(nullptr);
    pid_t child = fork();
    if (child == 0) {
      KESTREL::CNewStudyEvent event;
      char ready = event.IsOpen() ? 'y' : 'n';
      if (write(readyPipe[1], &ready, 1) != 1) _exit(3);
      _exit(event.Wait(timeoutMs) ? 0 : 1);
    }
    return child;
  }

  std::string name_;
};

int ExitCode(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST(NewStudyEventNameTest, TheLibraryUsesTheSharedName) {
  EXPECT_EQ(KESTREL::NewStudyEventName(), "/NewStudyEvent");
}

TEST_F(NewStudyEventTest, APulseWakesWaitersInOtherProcesses) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  constexpr int kWaiters = 3;
  pid_t children[kWaiters];
  for (pid_t& child : children) {
    child = StartWaiter(ready, 10000);
    ASSERT_GT(child, 0);
  }
  for (int i = 0; i < kWaiters; ++i) {
    char answer = 0;
    ASSERT_EQ(read(ready[0], &answer, 1), 1);
    EXPECT_EQ(answer, 'y');
  }
  Clock::time_point start = Clock::now();
  EXPECT_TRUE(KESTREL::PulseNewStudyEvent());
  for (pid_t child : children) EXPECT_EQ(ExitCode(child), 0) << "waiter " << child;
  // Woken by the pulse, not by the end of their ten seconds.
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  close(ready[0]);
  close(ready[1]);
}

TEST_F(NewStudyEventTest, AWaitWithoutAPulseTimesOut) {
  int code = RunInChild([] {
    KESTREL::CNewStudyEvent event;
    Clock::time_point start = Clock::now();
    bool pulsed = event.Wait(150);
    auto waited = Clock::now() - start;
    if (!event.IsOpen()) return 3;
    if (pulsed) return 1;
    return waited >= std::chrono::milliseconds(150) && waited < std::chrono::seconds(3) ? 0 : 2;
  });
  EXPECT_EQ(code, 0);
}

TEST_F(NewStudyEventTest, APulseBetweenWaitsIsNotLost) {
  KESTREL::CNewStudyEvent waiter;
  ASSERT_TRUE(waiter.IsOpen());
  EXPECT_FALSE(waiter.Wait(0));
  // Pulsed from another process while this one was not waiting.
  EXPECT_EQ(RunInChild([] { return KESTREL::PulseNewStudyEvent() ? 0 : 1; }), 0);
  EXPECT_TRUE(waiter.Wait(0));
  EXPECT_FALSE(waiter.Wait(0)) << "one pulse must be seen once";

  // Pulses made before a handle is opened are not seen through it.
  KESTREL::CNewStudyEvent late;
  EXPECT_FALSE(late.Wait(0));
  EXPECT_TRUE(late.Pulse());
  EXPECT_TRUE(late.Wait(0));
  EXPECT_TRUE(waiter.Wait(0));
}

TEST_F(NewStudyEventTest, UnusableNameFailsCleanly) {
  KESTREL::SetNewStudyEventName("/no/slashes/allowed/inside");
  KESTREL::CNewStudyEvent event;
  EXPECT_FALSE(event.IsOpen());
  EXPECT_FALSE(event.Pulse());
  EXPECT_FALSE(event.Wait(10));
  EXPECT_FALSE(KESTREL::PulseNewStudyEvent());
}

}  // namespace
