#include "kestrel/Socket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <tuple>

#include "net/SocketPlatform.h"
#include "tests/net/NetTestSupport.h"

namespace sockets = KESTREL::sockets;
using net_test::Listener;

namespace {

// Resolvers that count their calls; the service resolver knows one name.
std::atomic<int> hostLookups{0};
std::atomic<int> serviceLookups{0};
std::atomic<uint16_t> knownServicePort{0};

bool CountingHostResolver(const char* name, uint32_t* address) {
  ++hostLookups;
  if (std::strcmp(name, "localhost") != 0 && std::strcmp(name, "0.0.0.0") != 0) return false;
  *address =
      sockets::ParseDottedAddress(std::strcmp(name, "localhost") == 0 ? "127.0.0.1" : "0.0.0.0");
  return true;
}

bool CountingServiceResolver(const char* name, uint16_t* port) {
  ++serviceLookups;
  if (std::strcmp(name, "kestrel-test") != 0) return false;
  *port = sockets::HostToNetwork16(knownServicePort);
  return true;
}

class SocketTest : public ::testing::Test {
 protected:
  void SetUp() override {
    oldHost_ = sockets::SetHostResolver(CountingHostResolver);
    oldService_ = sockets::SetServiceResolver(CountingServiceResolver);
    hostLookups = 0;
    serviceLookups = 0;
  }
  void TearDown() override {
    sockets::SetHostResolver(oldHost_);
    sockets::SetServiceResolver(oldService_);
  }
  sockets::HostResolver oldHost_;
  sockets::ServiceResolver oldService_;
};

// A text that starts with a non-zero number never reaches the resolver; every other text does
// first. An unknown service stops Open before any connection is tried.
TEST_F(SocketTest, HostResolutionSkipsTheResolverForLeadingNumbers) {
  struct Case {
    const char* host;
    int lookups;
  };
  const Case cases[] = {
      {"10.1.2.3", 0}, {"127.0.0.1", 0}, {"1e", 0},           {"localhost", 1},
      {"0.0.0.0", 1},  {"00.1.2.3", 1},  {"no.such.host", 1},
  };
  for (const Case& c : cases) {
    hostLookups = 0;
    Socket socket;
    EXPECT_EQ(socket.Open(c.host, "no-such-service"), 0) << c.host;
    EXPECT_EQ(hostLookups.load(), c.lookups) << c.host;
  }
}

// Ports: a leading number (taken modulo 65536) is used as is; otherwise the text is a service
// name, "0" included.
TEST_F(SocketTest, PortResolution) {
  Listener listener;
  knownServicePort = static_cast<uint16_t>(listener.Port());
  struct Case {
    std::string port;
    int opened;
    int serviceLookups;
  };
  const Case cases[] = {
      {listener.PortText(), 1, 0},
      {std::to_string(listener.Port() + 65536), 1, 0},
      {listener.PortText() + "abc", 1, 0},
      {"kestrel-test", 1, 1},
      {"0", 0, 1},
      {"65536", 0, 1},
      {"nothing-known", 0, 1},
  };
  for (const Case& c : cases) {
    serviceLookups = 0;
    Socket socket;
    EXPECT_EQ(socket.Open("127.0.0.1", c.port.c_str()), c.opened) << c.port;
    EXPECT_EQ(serviceLookups.load(), c.serviceLookups) << c.port;
    if (c.opened) {
      int accepted = listener.Accept();
      EXPECT_GT(accepted, 0) << c.port;
      Socket peer;
      peer.Attach(accepted);
    }
  }
  Socket listening;
  EXPECT_EQ(listening.Listen("0"), 0) << "port 0 is a service name and normally unknown";
}

TEST_F(SocketTest, RefusedConnectKeepsTheError) {
  int port;
  {
    Listener closed;
    port = closed.Port();
  }
  Socket socket;
  EXPECT_EQ(socket.Open("127.0.0.1", std::to_string(port).c_str()), 0);
  EXPECT_NE(socket.GetError(), 0);
  EXPECT_FALSE(socket.IsConnected());
}

class ConnectedPair : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(client_.Open("127.0.0.1", listener_.PortText().c_str()), 1);
    ASSERT_EQ(server_.Attach(listener_.Accept()), 1);
  }
  Listener listener_;
  Socket client_;
  Socket server_;
};

TEST_F(ConnectedPair, PeerCloseGivesMinusOneAndClosesTheEndpoint) {
  client_.Close();
  char got[4];
  EXPECT_EQ(server_.Recv(got, sizeof got), -1);
  EXPECT_FALSE(server_.IsConnected());
  EXPECT_EQ(server_.Recv(got, sizeof got), -1) << "not connected any more";
  EXPECT_EQ(server_.Send("x", 1), 0);
}

// A time-out of 0 polls and returns 0 at once; a time-out of 1 s gives -1 after it. Both keep
// the connection.
TEST_F(ConnectedPair, TimeOuts) {
  using std::chrono::milliseconds;
  for (auto [seconds, result, least, most] :
       {std::tuple{0, 0, 0, 500}, std::tuple{1, -1, 900, 5000}}) {
    SCOPED_TRACE(seconds);
    server_.SetTimeout(seconds);
    char got[4];
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(server_.Recv(got, sizeof got), result);
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, milliseconds(least));
    EXPECT_LT(waited, milliseconds(most));
    EXPECT_TRUE(server_.IsConnected());
  }
}

// The send that reports success: a dead peer is only seen by the next receive.
TEST_F(ConnectedPair, SendToAClosedPeerStillReportsSuccess) {
  server_.Close();
  std::string block(65536, 'x');
  for (int i = 0; i < 8; ++i)
    EXPECT_EQ(client_.Send(block.data(), static_cast<uint32_t>(block.size())), 1);
  char got[4];
  EXPECT_EQ(client_.Recv(got, sizeof got), -1);
}

// A blocking send returns short when a signal arrives part-way, or fails with EINTR before any
// byte went: either way the whole buffer must go out, in order, and a send that fails for good
// must leave nothing more to follow the cut on the wire.
long ShortAndInterrupted(int handle, const void* data, size_t length, int flags) {
  static int calls = 0;
  if (++calls % 3 == 0) {
    errno = EINTR;
    return -1;
  }
  return static_cast<long>(::send(handle, data, std::min<size_t>(length, 7), flags));
}
long FailsAfterSome(int handle, const void* data, size_t length, int flags) {
  static size_t sent = 0;
  if (sent >= 100) {
    errno = EPIPE;
    return -1;
  }
  long n = static_cast<long>(::send(handle, data, std::min<size_t>(length, 100 - sent), flags));
  sent += n > 0 ? n : 0;
  return n;
}

TEST_F(ConnectedPair, ShortAndInterruptedSendsCompleteOrCutTheConnection) {
  std::string message(10000, 0);
  for (size_t i = 0; i < message.size(); ++i) message[i] = static_cast<char>(i * 7);
  auto previous = KESTREL::sockets::SetSendCall(&ShortAndInterrupted);
  EXPECT_EQ(client_.Send(message.data(), static_cast<uint32_t>(message.size())), 1);
  KESTREL::sockets::SetSendCall(&FailsAfterSome);
  EXPECT_EQ(client_.Send(message.data(), static_cast<uint32_t>(message.size())), 1);
  EXPECT_EQ(client_.Send("next", 4), 1) << "reported sent, but never sent";
  KESTREL::sockets::SetSendCall(previous);
  std::string got;
  char buffer[4096];
  for (int n; (n = server_.Recv(buffer, sizeof buffer)) > 0;) got.append(buffer, n);
  EXPECT_EQ(got.size(), message.size() + 100) << "the whole first message, 100 bytes of the second";
  EXPECT_EQ(got.substr(0, message.size()), message);
  EXPECT_EQ(got.substr(message.size()), message.substr(0, 100));
}

TEST(SocketShutdown, ShutdownFromAnotherThreadWakesABlockedReceive) {
  Listener listener;
  Socket client, server;
  ASSERT_EQ(client.Open("127.0.0.1", listener.PortText().c_str()), 1);
  int handle = listener.Accept();
  ASSERT_EQ(server.Attach(handle), 1);
  server.SetTimeout(30);
  auto start = std::chrono::steady_clock::now();
  net_test::PeerThread cutter([handle] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    Socket::Shutdown(handle);
  });
  char got[4];
  EXPECT_EQ(server.Recv(got, sizeof got), -1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(SocketListen, AcceptKeepsListeningAndAcceptHandleTimesOut) {
  Socket listener;
  ASSERT_EQ(listener.ListenOnFreePort(), 1);
  std::string port = std::to_string(listener.GetLocalPort());
  EXPECT_EQ(listener.AcceptHandle(50), -1) << "nobody connected";
  for (int i = 0; i < 2; ++i) {
    Socket client;
    ASSERT_EQ(client.Open("127.0.0.1", port.c_str()), 1);
    EXPECT_EQ(listener.Accept(), 1) << "connection " << i;
    EXPECT_TRUE(listener.IsConnected());
  }
  Socket idle;
  EXPECT_EQ(idle.Accept(), 0) << "not listening";
}

TEST(SocketUDP, DatagramRoundTrip) {
  Socket receiver;
  // A free UDP port: bind to one the system names for TCP is not guaranteed free for UDP, so
  // try a few.
  int port = 0;
  for (int attempt = 0; attempt < 20 && !port; ++attempt) {
    Listener probe;
    if (receiver.BindUDP(probe.PortText().c_str())) port = probe.Port();
  }
  ASSERT_NE(port, 0);
  Socket sender;
  ASSERT_EQ(sender.OpenUDP("127.0.0.1", std::to_string(port).c_str()), 1);
  EXPECT_EQ(sender.Send("ping", 4), 1);
  receiver.SetTimeout(5);
  char got[8] = {};
  EXPECT_EQ(receiver.Recv(got, sizeof got), 4);
  EXPECT_STREQ(got, "ping");
}

}  // namespace
