// CVerification::Client: its status codes and last-error texts against peers that answer,
// reject, accept and then stay silent, or are not there.
#include "kestrel/CVerification.h"

#include <gtest/gtest.h>

#include <string>

#include "kestrel/Status.h"
#include "tests/net/NetTestSupport.h"

using namespace net_test;
using KESTREL::KESTREL_STATUS;

namespace {

// An acceptor answering C-ECHO until the release, for `associations` connections.
void EchoAcceptor(Listener& listener, const char* config, int associations) {
  for (int i = 0; i < associations; ++i) {
    PDU_Service acceptor(config);
    acceptor.SetTimeout(10);
    if (!acceptor.ServeSocket(listener.Accept())) continue;
    DICOMCommandObject request;
    while (acceptor.Read(&request)) {
      Verification().Read(&acceptor, &request);
      request.Clear();
    }
  }
}

const std::string kUnableToConnect = "Error: Unable to connect to 127.0.0.1\r\n";

TEST(CVerificationClient, SucceedsWithStatusZero) {
  Listener listener;
  PeerThread acceptor([&] { EchoAcceptor(listener, nullptr, 2); });
  CVerification verification;
  KESTREL_STATUS status = KESTREL::KESTREL_STATUS_WRITE_FAILED;
  EXPECT_EQ(verification.Client("127.0.0.1", listener.PortText(), "KESTREL", "ANY-SCP", &status),
            1);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_OK);
  EXPECT_EQ(verification.Client("localhost", listener.PortText(), "KESTREL", "ANY-SCP", nullptr), 1)
      << "a null status is allowed";
}

// A closed port, a peer rejecting with reason 7 and a calling AE title too long to send: status
// 1 and a text saying which (the whole text, or its start where the advice follows).
TEST(CVerificationClient, FailuresToConnectGiveStatusOneAndSaySo) {
  std::string closed;
  {
    Listener gone;
    closed = gone.PortText();
  }
  Listener rejecting;
  PeerThread peerThread([&] {
    RawPeer peer(rejecting.Accept());
    RawPDU request;
    peer.ReadPDU(request);
    peer.Send(Reject(1, 1, 7));
  });
  struct Case {
    std::string port;
    const char* calling;
    std::string text;
    bool whole;
  };
  const Case cases[] = {
      {closed, "KESTREL",
       "The connection to 127.0.0.1 port " + closed + " was refused: nothing listens there\r\n",
       true},
      {rejecting.PortText(), "KESTREL",
       "Permanent Rejection from Service User because called Application Entity Title is not known",
       false},
      {"1", "ABCDEFGHIJKLMNOPQ", "The AE title ABCDEFGHIJKLMNOPQ is longer than 16 characters",
       true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    KESTREL::SetLastErrorText("");
    KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
    EXPECT_EQ(CVerification().Client("127.0.0.1", c.port, c.calling, "WRONG", &status), 0);
    EXPECT_EQ(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
    const std::string text = KESTREL::GetLastErrorText();
    if (c.whole) {
      EXPECT_EQ(text, kUnableToConnect + c.text);
    } else {
      EXPECT_EQ(text.rfind(kUnableToConnect + c.text, 0), 0u) << text;
    }
  }
}

// Our own acceptor with a configuration naming one RemoteAE refuses every other caller.
TEST(CVerificationClient, RejectionByConfiguredAcceptor) {
  TempFile config("workstation WS1 RemoteAE\n");
  Listener listener;
  PeerThread acceptor([&] { EchoAcceptor(listener, config.path().c_str(), 2); });
  CVerification verification;
  KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
  EXPECT_EQ(verification.Client("127.0.0.1", listener.PortText(), "WS2", "ANY", &status), 0);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
  EXPECT_EQ(KESTREL::GetLastErrorText(), kUnableToConnect + KESTREL::BuildRejectionText(1, 1, 3));
  EXPECT_EQ(verification.Client("127.0.0.1", listener.PortText(), "WS1", "ANY", &status), 1);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_OK);
}

TEST(CVerificationClient, SilentPeerGivesStatusTwo) {
  Listener listener;
  PeerThread peerThread([&] {
    RawPeer peer(listener.Accept());
    RawPDU request;
    peer.ReadPDU(request);
    peer.Send(AssociateAC({{ProposedContextIDs(request).at(0), 0}}));
    peer.WaitForClose(10);  // reads the echo request and never answers it
  });
  Socket::SetDefaultTimeout(1);
  CVerification verification;
  KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
  int result = verification.Client("127.0.0.1", listener.PortText(), "KESTREL", "ANY", &status);
  Socket::SetDefaultTimeout(Socket::kDefaultTimeout);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_WRITE_FAILED);
  EXPECT_EQ(KESTREL::GetLastErrorText(), "Error: Unable to write DICOM object.\r\n");
}

TEST(CVerificationClient, GetUID) {
  UID uid;
  EXPECT_EQ(CVerification().GetUID(uid), 1);
  EXPECT_EQ(uid, UID("1.2.840.10008.1.1"));
}

}  // namespace
