#include "control/SCA_NetChannel.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <optional>

#include "control/SCA_NetTransport.h"
#include "control/SCA_TikaServiceClient.h"
#include "platform/SCA_Error.h"
#include "tests/support/ScriptedSocket.h"
#include "tests/support/Timing.h"

namespace {

// A channel whose peer is a script.
struct Scripted {
  Scripted(SCA_NetSide side, std::vector<std::string> pieces, const SCA_Digest* key = nullptr)
      : script(ScriptOf(std::move(pieces))),
        sockets(&script),
        socket(SCA_CreateTcpSock(-1)),
        channel(socket.get(), side) {
    if (key != nullptr) channel.Frames()->Authenticate(*key);
  }
  // The error of the next frame, or 0.
  unsigned long Receive() { return channel.Receive(SCA_Infinite, &frame).Code(); }
  static SocketScript ScriptOf(std::vector<std::string> pieces) {
    SocketScript script;
    script.pieces = std::move(pieces);
    return script;
  }

  SocketScript script;
  const ScriptedSockets sockets;
  const SCA_Owned<SCA_VirtualTcpSock> socket;
  SCA_NetChannel channel;
  SCA_NetFrame frame;
};

// The bytes of a frame, as a channel of that side sends it.
std::string FrameBytes(SCA_NetSide side, SCA_FrameKind kind, std::uint32_t sequence,
                       const SCA_NetMessage& message, const SCA_Digest* key = nullptr) {
  Scripted sender(side, {}, key);
  EXPECT_EQ(sender.channel.Send(kind, sequence, message, 0).Code(), 0U);
  return sender.script.sent;
}

TEST(NetChannel, SendsTheDocumentedBytes) {
  SCA_NetMessage message;
  message.Init("GetServer");
  message.first = 1;
  message.second = 0x01020304;
  message.GetData()->AddField("ServerId", 7, 0);
  const std::string bytes = FrameBytes(SCA_NetSide::Client, SCA_FrameKind::Message, 2, message);
  EXPECT_EQ(bytes, std::string("SCA1\0\0\0\x24\0\0\0\1\0\0\0\2"
                               "\0\0\0\1\1\2\3\4\x09GetServer"
                               "2\1\1"
                               "1\1ServerId\1"
                               "7\1"
                               "0\1",
                               52));
}

TEST(NetChannel, FramesArriveWholeHoweverTheyAreCut) {
  SCA_NetMessage small;
  small.Init("small");
  SCA_NetMessage large;
  large.Init(std::string(SCA_MaxCommandName - 1, 'n').c_str());
  const std::string value(20000, 'v');
  for (int i = 0; i < 10; ++i) large.GetData()->AddField("value", value.c_str(), 0);
  const SCA_Digest key{1, 2, 3};
  for (const SCA_Digest* used : {static_cast<const SCA_Digest*>(nullptr), &key}) {
    std::string bytes;
    for (std::uint32_t i = 0; i < 6; ++i) {
      bytes += FrameBytes(SCA_NetSide::Server, SCA_FrameKind::Message, i,
                          i % 2 == 0 ? small : large, used);
    }
    for (const std::size_t piece : {1U, 7U, 16U, 4096U, 100000U, 1000000U}) {
      SCOPED_TRACE(piece);
      Scripted reader(SCA_NetSide::Client, InPieces(bytes, piece), used);
      reader.channel.Frames()->AllowLargeFrames();
      for (std::uint32_t i = 0; i < 6; ++i) {
        ASSERT_EQ(reader.Receive(), 0U) << i;
        ASSERT_EQ(reader.frame.sequence, i);
        SCA_NetMessage read;
        ASSERT_TRUE(SCA_NetFrames::Decode(reader.frame, &read));
        const SCA_NetMessage& sent = i % 2 == 0 ? small : large;
        ASSERT_STREQ(read.GetCommandName(), sent.GetCommandName());
        ASSERT_EQ(read.GetData()->Compare(sent.GetData()), 1);
      }
      EXPECT_EQ(reader.Receive(), static_cast<unsigned long>(ECONNRESET));
    }
  }
}

TEST(NetChannel, TakesMemoryOnlyAsBytesArrive) {
  Scripted reader(SCA_NetSide::Server,
                  {std::string("SCA1\x01\0\0\0\0\0\0\1\0\0\0\0", 16), std::string(100000, 'x')});
  reader.channel.Frames()->AllowLargeFrames();
  EXPECT_EQ(reader.Receive(), static_cast<unsigned long>(ECONNRESET));
  for (const unsigned long room : reader.script.receiveSizes) EXPECT_LE(room, 200000U);
  Scripted early(SCA_NetSide::Server, {std::string("SCA1\0\0\x10\x01\0\0\0\3\0\0\0\0", 16)});
  EXPECT_EQ(early.Receive(), SCA_ErrorFrameTooLarge) << "4097 bytes before a login";
}

TEST(NetChannel, WaitsAsLongAsItIsToldAndKeepsHalfAFrame) {
  SCA_NetMessage message;
  message.Init("half");
  const std::string bytes = FrameBytes(SCA_NetSide::Server, SCA_FrameKind::Message, 1, message);
  int fds[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
  const SCA_Owned<SCA_VirtualTcpSock> ours(SCA_CreateTcpSock(fds[0]));
  const SCA_Owned<SCA_VirtualTcpSock> peer(SCA_CreateTcpSock(fds[1]));
  SCA_NetChannel channel(ours.get(), SCA_NetSide::Client);
  SCA_NetFrame frame;
  unsigned long error = 0;
  unsigned long sent = 0;
  const auto timesOut = [&](unsigned long timeoutMs) {
    const Stopwatch watch;
    return channel.Receive(timeoutMs, &frame).Code() == ETIMEDOUT && watch.Ms() < kDeadlineMs;
  };
  EXPECT_TRUE(timesOut(0));
  EXPECT_TRUE(timesOut(20));
  ASSERT_EQ(peer->Send(bytes.data(), 20, &sent, &error), 1);
  EXPECT_TRUE(timesOut(20));
  ASSERT_EQ(peer->Send(bytes.data() + 20, bytes.size() - 20, &sent, &error), 1);
  EXPECT_EQ(channel.Receive(20000, &frame).Code(), 0U);
  EXPECT_EQ(frame.sequence, 1U);
}

TEST(NetChannel, EveryChangedBitOfAProvedFrameIsNoticed) {
  SCA_NetMessage message;
  message.Init("StopServer");
  const SCA_Digest key{7};
  const std::string good =
      FrameBytes(SCA_NetSide::Client, SCA_FrameKind::Message, 1, message, &key);
  const auto errorOf = [&](const std::string& bytes, SCA_NetSide receiver) {
    return Scripted(receiver, {bytes}, &key).Receive();
  };
  EXPECT_EQ(errorOf(good, SCA_NetSide::Server), 0U);
  EXPECT_EQ(errorOf(good, SCA_NetSide::Client), SCA_ErrorFrameForged) << "sent back to its sender";
  for (std::size_t at = 0; at < good.size(); ++at) {
    std::string bad = good;
    bad[at] = static_cast<char>(bad[at] ^ 4);
    EXPECT_NE(errorOf(bad, SCA_NetSide::Server), 0U) << at;
  }
}

TEST(NetChannel, RefusesBodiesThatAreNoMessages) {
  const std::string prefix(8, '\0');
  const std::string object =
      "2\1\1"
      "0\1";
  const std::string good = prefix + '\2' + "OK" + object;
  const std::pair<std::string, bool> rows[] = {
      {good, true},
      {prefix + '\0' + object, true},
      {prefix + std::string("\2O\0", 3) + object, false},
      {prefix + '\x40' + std::string(64, 'n') + object, false},
      {prefix + '\x3f' + std::string(62, 'n'), false},
      {good + "x", false},
      {prefix + '\2' + "OK1\1n\1v\1", false}};
  const auto decode = [](const std::string& body) {
    SCA_NetMessage message;
    SCA_NetFrame frame;
    frame.body = body.data();
    frame.length = body.size();
    return SCA_NetFrames::Decode(frame, &message);
  };
  for (const auto& [body, isMessage] : rows) EXPECT_EQ(decode(body), isMessage) << body;
  for (std::size_t end = 0; end < good.size(); ++end) EXPECT_FALSE(decode(good.substr(0, end)));
}

// What a client makes of a server that says these bytes.
struct ToldClient {
  explicit ToldClient(const std::string& bytes) {
    SCA_NetMessage hello;
    hello.GetData()->AddField("LoginMode", 0, 0);
    hello.GetData()->AddField("Nonce", std::string(64, '0').c_str(), 0);
    script.pieces = {FrameBytes(SCA_NetSide::Server, SCA_FrameKind::Hello, 0, hello), bytes};
    sockets.emplace(&script);
    unsigned long error = 0;
    EXPECT_EQ(client.Connect("h", 9001, 100, &error), 1) << SCA_ErrorText(error);
  }
  SCA_TikaServiceClient client;
  SocketScript script;
  std::optional<ScriptedSockets> sockets;
};

std::string Reply(const char* name, std::uint32_t sequence,
                  const std::vector<std::pair<const char*, bool>>& members) {
  SCA_NetMessage message;
  message.Init(name);
  for (const auto& [member, isObject] : members) {
    if (isObject) {
      message.GetData()->AddConfigObj(member);
    } else {
      message.GetData()->AddField(member, 5, 0);
    }
  }
  return FrameBytes(SCA_NetSide::Server, SCA_FrameKind::Message, sequence, message);
}

TEST(ServiceClient, TakesRepliesAsTheyShouldBeAndNoOthers) {
  const char* service = "ServiceStatusObj";
  const char* servers = "ServersStatusObj";
  const std::string good = Reply("OK", 1, {{service, true}, {servers, true}});
  const struct {
    const char* what;
    std::string reply;
    int result;
    unsigned long code;
  } rows[] = {
      {"both", good, 1, 0},
      {"another name", Reply("YES", 1, {{servers, true}, {service, true}}), 1, 0},
      {"an error", Reply("ERR", 1, {{service, true}, {servers, true}}), 0, 0},
      {"one missing", Reply("OK", 1, {{service, true}}), 0, 0},
      {"a plain field", Reply("OK", 1, {{service, true}, {servers, false}}), 0, 0},
      {"one twice", Reply("OK", 1, {{service, true}, {service, false}, {servers, true}}), 1, 0},
      {"a late one before", Reply("OK", 0, {}) + good, 1, 0},
      {"the future's", Reply("OK", 2, {{service, true}, {servers, true}}), 0, SCA_ErrorFrame},
      {"noise", "HTTP/1.1 200 OK\r\n\r\n", 0, SCA_ErrorFrame},
      {"half", good.substr(0, 50), 0, ECONNRESET},
      {"nothing", "", 0, ECONNRESET},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    ToldClient told(row.reply);
    SCA_ConfigObj* objects[2] = {};
    EXPECT_EQ(told.client.GetServiceStatusEx(&objects[0], &objects[1]), row.result);
    EXPECT_EQ(told.client.GetLastStatusCode(), row.code);
    for (SCA_ConfigObj* object : objects) {
      EXPECT_EQ(object != nullptr, row.result == 1) << "all or none";
      SCA_Destroyer()(object);
    }
    EXPECT_EQ(told.client.GetNetTransport()->Connected(), row.code == 0 ? 1 : 0);
  }
  unsigned long number = 0;
  EXPECT_EQ(ToldClient(Reply("OK", 1, {{"Status", true}})).client.GetStatus(&number), 0);
}

}  // namespace
