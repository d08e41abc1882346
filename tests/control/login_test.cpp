// Logins, and peers that mean no good, against a real server.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "control/SCA_NetLogin.h"
#include "platform/SCA_Error.h"
#include "platform/posix/SCA_Posix.h"
#include "tests/control/fake_host.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

// Keys by host: "" for the server's own, any other for clients.
struct Keys {
  Keys() { SCA_SetControlKeyProvider(&Keys::Give, this); }
  ~Keys() { SCA_SetControlKeyProvider(nullptr, nullptr); }

  static int Give(void* context, const char* host, unsigned short /*port*/, SCA_ControlKey* key,
                  unsigned long* error) {
    const auto* keys = static_cast<const Keys*>(context);
    const std::string& text = *host == '\0' ? keys->server : keys->client;
    *error = keys->error;
    std::memcpy(key->bytes, text.data(), std::min<std::size_t>(text.size(), SCA_MaxControlKey));
    key->length = text.size();
    return text.empty() ? 0 : 1;
  }

  std::string server = "the key that both ends share....";
  std::string client = server;
  unsigned long error = ENOENT;
};

class Login : public ::testing::Test {
 protected:
  unsigned long ConnectError() const { return TestClient(host_.Port()).Ask(); }

  ReportCapture reports_;  // outlives the server's threads, which report
  Keys keys_;
  FakeHost<> host_{1};
};

// A connection on which a test sends frames of its own making.
class Peer {
 public:
  explicit Peer(unsigned short port) : Peer(-1, SCA_NetSide::Client) {
    unsigned long error = 0;
    EXPECT_EQ(socket_->Connect("127.0.0.1", port, 5000, &error), 1);
  }
  Peer(int fd, SCA_NetSide side) : socket_(SCA_CreateTcpSock(fd)), channel(socket_.get(), side) {}

  SCA_FrameKind Receive(SCA_NetMessage* message) {
    SCA_NetFrame frame;
    EXPECT_EQ(channel.Receive(20000, &frame).Code(), 0U);
    SCA_NetFrames::Decode(frame, message);
    return frame.kind;
  }
  std::string ReceiveNonce() {
    SCA_NetMessage hello;
    char nonce[80] = "";
    EXPECT_EQ(Receive(&hello), SCA_FrameKind::Hello);
    EXPECT_EQ(hello.GetData()->GetFieldCount(), 2U) << "the mode and the challenge";
    hello.GetData()->GetField("Nonce", nonce, sizeof nonce);
    return nonce;
  }
  void Send(const std::string& bytes) {
    unsigned long sent = 0;
    unsigned long error = 0;
    socket_->Send(bytes.data(), bytes.size(), &sent, &error);
  }
  void Send(SCA_FrameKind kind, std::uint32_t sequence, const SCA_NetMessage& message) {
    EXPECT_EQ(channel.Send(kind, sequence, message, 5000).Code(), 0U);
  }
  void LogIn() {
    SCA_NetGreeting greeting;
    ASSERT_EQ(SCA_Login(&channel, "h", 1, false, &greeting).Code(), 0U);
  }
  // The code with which the server ends the connection, or that of a frame that is not proved.
  unsigned long Refusal() {
    SCA_NetFrame frame;
    const SCA_Result received = channel.Receive(20000, &frame);
    if (received.HasFailed()) return received.Code();
    EXPECT_EQ(frame.kind, SCA_FrameKind::Refused);
    return SCA_NetFrames::CodeOf(frame);
  }

 private:
  SCA_Owned<SCA_VirtualTcpSock> socket_;

 public:
  SCA_NetChannel channel;
};

SCA_NetMessage NonceAndProof(const std::string& nonce, const std::string& proof) {
  SCA_NetMessage message;
  message.GetData()->AddField("LoginMode", 1, 0);
  message.GetData()->AddField("Nonce", nonce.c_str(), 0);
  message.GetData()->AddField("Proof", proof.c_str(), 0);
  return message;
}

TEST_F(Login, NeedsTheSameKeyOnBothEndsAndTellsNothingBefore) {
  const std::string& right = keys_.server;
  const std::pair<std::string, unsigned long> rows[] = {
      {right, 0},
      {"T" + right.substr(1), SCA_ErrorLoginRefused},
      {right + "longer", SCA_ErrorLoginRefused},
      {std::string(15, 'k'), SCA_ErrorKeyInvalid},
      {std::string(65, 'k'), SCA_ErrorKeyInvalid},
      {"", SCA_ErrorKeyExposed}};
  keys_.error = SCA_ErrorKeyExposed;
  for (const auto& [key, error] : rows) {
    keys_.client = key;
    EXPECT_EQ(ConnectError(), error) << key;
  }
  keys_.error = ENOENT;
  EXPECT_EQ(ConnectError(), SCA_ErrorNoKey);
  EXPECT_EQ(host_.factory.authenticated, 1);
  EXPECT_EQ(host_.factory.connects, 1) << "a refused login has no events";
  EXPECT_EQ(host_.service.Calls().size(), 1U);
}

TEST_F(Login, CannotBeReflectedOrLeftOut) {
  // The server's own challenge and a guess at its answer to it.
  Peer reflecting(host_.Port());
  const std::string nonce = reflecting.ReceiveNonce();
  EXPECT_NE(nonce, Peer(host_.Port()).ReceiveNonce());
  reflecting.Send(SCA_FrameKind::Login, 0, NonceAndProof(nonce, nonce));
  EXPECT_EQ(reflecting.Refusal(), SCA_ErrorLoginRefused);
  Peer early(host_.Port());
  early.ReceiveNonce();
  early.Send(SCA_FrameKind::Message, 1, SCA_NetMessage());
  EXPECT_EQ(early.Refusal(), SCA_ErrorFrame);
  EXPECT_EQ(host_.factory.connects, 0);
}

TEST_F(Login, EveryLaterFrameIsProved) {
  SCA_NetMessage request;
  SCA_NetMessage reply;
  request.Init("GetStatus");
  const std::pair<SCA_FrameKind, std::uint32_t> wrong[] = {{SCA_FrameKind::Message, 1},  // again
                                                           {SCA_FrameKind::Message, 3},
                                                           {SCA_FrameKind::Login, 2}};
  for (const auto& [kind, sequence] : wrong) {
    Peer peer(host_.Port());
    peer.LogIn();
    peer.Send(SCA_FrameKind::Message, 1, request);
    EXPECT_EQ(peer.Receive(&reply), SCA_FrameKind::Message);
    peer.Send(kind, sequence, request);
    EXPECT_EQ(peer.Refusal(), SCA_ErrorFrame) << sequence;
  }
  Peer forging(host_.Port());
  forging.LogIn();
  forging.channel.Frames()->Authenticate(SCA_Digest{});
  forging.Send(SCA_FrameKind::Message, 1, request);
  EXPECT_EQ(forging.Refusal(), SCA_ErrorFrameForged) << "the refusal is proved with the real key";
}

TEST_F(Login, AHostThatAsksForNoneIsRefusedByWhoHasAKey) {
  const FakeHost<> open;
  EXPECT_EQ(TestClient(open.Port()).connectError, SCA_ErrorLoginMissing);
  SCA_NetTransport trusting(nullptr);
  unsigned long error = 0;
  trusting.SetAllowNoLogin(1);
  EXPECT_EQ(trusting.Connect("127.0.0.1", open.Port(), 5000, &error), 1);
  keys_.client.clear();
  EXPECT_EQ(TestClient(open.Port()).Ask(), 0U);
}

TEST_F(Login, AnImpostorGetsNothingButALoginThatCannotBeReplayed) {
  std::string login;
  std::string more;
  {
    ScriptedServer impostor([&](ServerConnection& connection) {
      Peer peer(::dup(connection.Fd()), SCA_NetSide::Server);
      const SCA_NetMessage message = NonceAndProof(std::string(64, 'a'), std::string(64, 'b'));
      peer.Send(SCA_FrameKind::Hello, 0, message);
      login = connection.Receive();
      peer.Send(SCA_FrameKind::Welcome, 0, message);
      more = connection.Receive();
    });
    EXPECT_EQ(TestClient(impostor.Port()).Ask(), SCA_ErrorLoginRefused);
  }
  EXPECT_EQ(more, "");
  Peer replaying(host_.Port());
  replaying.ReceiveNonce();
  replaying.Send(login);
  EXPECT_EQ(replaying.Refusal(), SCA_ErrorLoginRefused);
}

// From another address of the loopback interface.
SCA_Fd ConnectFrom(const char* address, unsigned short port) {
  SCA_Fd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in place{};
  place.sin_family = AF_INET;
  ::inet_pton(AF_INET, address, &place.sin_addr);
  EXPECT_EQ(::bind(fd.Get(), reinterpret_cast<sockaddr*>(&place), sizeof place), 0);
  place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  place.sin_port = htons(port);
  EXPECT_EQ(::connect(fd.Get(), reinterpret_cast<sockaddr*>(&place), sizeof place), 0);
  return fd;
}

TEST_F(Login, WrongOnesAreLimitedCountedAndNamed) {
  TestClient good(host_.Port());
  const std::string right = keys_.client;
  keys_.client[0] = 'T';
  std::map<unsigned long, unsigned long> errors;
  for (int i = 0; i < 300; ++i) {
    ++errors[ConnectError()];
    ASSERT_EQ(good.Ask(), 0U);
  }
  // One more each second that this takes.
  EXPECT_GE(errors[SCA_ErrorLoginRefused], 20U);
  EXPECT_LT(errors[SCA_ErrorLoginRefused], 60U);
  EXPECT_EQ(errors[SCA_ErrorLoginRefused] + errors[SCA_ErrorTooManyLogins], 300U);
  EXPECT_EQ(host_.server->GetRefusedLogins(), 300U);
  keys_.client = right;
  Peer(ConnectFrom("127.0.0.9", host_.Port()).Release(), SCA_NetSide::Client).LogIn();
  const auto told = reports_.All();
  EXPECT_LE(told.size(), 4U);
  EXPECT_NE(told.at(0).text.find("from 127.0.0.1 was not accepted"), std::string::npos);
}

TEST_F(Login, HostilePeersDoNotKeepAGoodClientFromBeingServed) {
  TestClient good(host_.Port());
  const std::string header = "SCA1";
  const std::string noise[] = {
      "",                                                                          // says nothing
      "GET / HTTP/1.1\r\n\r\n",                                                    //
      header,                                                                      // half a header
      header + std::string("\xFF\xFF\xFF\xFF\0\0\0\3", 8) + std::string(4, '\0'),  // 4 GiB
      header + std::string("\0\0\x0F\xFF\0\0\0\3\0\0\0\0", 12) + std::string(9, '\xFF'),
      header + std::string("\0\0\0\x20\0\0\0\3\0\0\0\0", 12) + std::string(32, 'n'),
  };
  std::vector<std::unique_ptr<Peer>> silent;
  for (int i = 0; i < 1000; ++i) {
    auto peer = std::make_unique<Peer>(host_.Port());
    peer->Send(noise[static_cast<std::size_t>(i) % std::size(noise)]);
    if (i % 3 == 0) silent.push_back(std::move(peer));
    if (i % 50 == 0) {
      ASSERT_EQ(good.Ask(), 0U);
    }
  }
  EXPECT_EQ(ConnectError(), 0U) << "newcomers take the place of strangers";
  EXPECT_EQ(good.Ask(), 0U);
  EXPECT_EQ(host_.factory.connects, 2);
}

TEST_F(Login, HasATimeLimitThatBytesDoNotExtend) {
  const SCA_Fd fd = ConnectFrom("127.0.0.1", host_.Port());
  const std::string header("SCA1\0\0\x0f\0\0\0\0\3\0\0\0\0", 16);
  const Stopwatch watch;
  bool isOpen = true;
  for (std::size_t sent = 0; isOpen && watch.Ms() < kDeadlineMs; ++sent) {
    const char byte = sent < header.size() ? header[sent] : 'x';
    isOpen = ::send(fd.Get(), &byte, 1, MSG_NOSIGNAL) == 1;
    pollfd entry{fd.Get(), POLLRDHUP, 0};
    isOpen = ::poll(&entry, 1, 300) == 0 && isOpen;
  }
  EXPECT_GE(watch.Ms(), 4000);
  EXPECT_LT(watch.Ms(), 9000);
}

TEST(ControlKey, IsMadeOnceAndKeptFromOthers) {
  const TempDir dir;
  unsigned long error = 0;
  SCA_ControlKey key;
  EXPECT_EQ(SCA_LoadControlKey(dir.File("none").c_str(), &key, &error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(ENOENT));
  const std::string last = dir.File("a19/b/control.key");
  for (int round = 0; round < 20; ++round) {
    const std::string contested = dir.File("a" + std::to_string(round) + "/b/control.key");
    SCA_ControlKey keys[4];
    std::vector<std::thread> makers;
    for (SCA_ControlKey& made : keys) {
      makers.emplace_back([&contested, &made] {
        unsigned long code = 0;
        EXPECT_EQ(SCA_CreateControlKey(contested.c_str(), &code), 1) << code;
        EXPECT_EQ(SCA_LoadControlKey(contested.c_str(), &made, &code), 1) << code;
      });
    }
    for (std::thread& maker : makers) maker.join();
    for (const SCA_ControlKey& made : keys) {
      EXPECT_EQ(std::memcmp(keys[0].bytes, made.bytes, SCA_ControlKeySize), 0) << "one for all";
    }
  }
  for (const mode_t mode : {0640, 0604, 0620}) {
    ASSERT_EQ(::chmod(last.c_str(), mode), 0);
    EXPECT_EQ(SCA_LoadControlKey(last.c_str(), &key, &error), 0);
    EXPECT_EQ(error, SCA_ErrorKeyExposed);
  }
}

TEST(ControlKey, TakesHexadecimalDigitsAlone) {
  const TempDir dir;
  const std::string digits(128, 'F');
  const std::pair<std::string, unsigned long> rows[] = {{digits.substr(96), 16},
                                                        {digits + " \r\n", 64},
                                                        {digits.substr(98), 0},
                                                        {digits + "FF", 0},
                                                        {digits.substr(95), 0},
                                                        {std::string(32, 'g'), 0},
                                                        {"0x" + digits.substr(96), 0},
                                                        {std::string(5000, 'a'), 0},
                                                        {"", 0}};
  for (const auto& [text, length] : rows) {
    const std::string file = dir.Write("key", text);
    ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
    SCA_ControlKey key;
    unsigned long error = 0;
    EXPECT_EQ(SCA_LoadControlKey(file.c_str(), &key, &error), length > 0 ? 1 : 0) << text;
    EXPECT_EQ(length > 0 ? key.length : error, length > 0 ? length : SCA_ErrorKeyInvalid) << text;
  }
}

}  // namespace
