// The command server and the control client, over real sockets.
#include "control/SCA_TikaServiceServer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "control/SCA_ControlKey.h"
#include "control/SCA_NetChannel.h"
#include "platform/SCA_Error.h"
#include "tests/control/raw_client.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/Timing.h"

namespace {

using Host = FakeHost<>;

TEST(ServiceServer, UnknownCommandsAndWrongFieldsLeaveTheConnectionServing) {
  Host host;
  RawClient client(host.Port());
  const std::string longest(SCA_MaxCommandName - 1, 'c');
  for (const char* name : {"getstatus", "GetStatusX", "", "%s%n%s", longest.c_str()}) {
    ReportCapture reports;
    EXPECT_EQ(client.Ask(name), "ERR");
    EXPECT_EQ(reports.All(), (std::vector<CapturedReport>{
                                 {5, "SCA_NetServer", std::string("Invalid command - ") + name}}));
  }
  const std::string tooLong(SCA_ServiceTextSize, 'f');
  for (const auto& [file, port] :
       {std::pair(tooLong, "1"), std::pair(std::string("f"), "65536"),
        std::pair(std::string("f"), "-1"), std::pair(std::string("f"), " 1")}) {
    EXPECT_EQ(
        client.Ask(
            "AddServer",
            {{"FileName", file}, {"PortNumber", port}, {"HeapSize", "1"}, {"JavaOptions", ""}}),
        "ERR")
        << port;
  }
  SCA_NetMessage request;
  request.Init("GetServer");
  request.GetData()->AddConfigObj("ServerId");
  EXPECT_EQ(client.Ask(&request), "ERR");
  {
    ReportCapture reports;
    host.service.onGetStatus = [] { throw std::bad_alloc(); };
    EXPECT_EQ(client.Ask("GetStatus"), "ERR");
    host.service.onGetStatus = nullptr;
    EXPECT_EQ(reports.All().size(), 1U);
  }
  EXPECT_EQ(client.Ask("GetStatus"), "OK Status=4294967294");
  EXPECT_EQ(request.Init((longest + "c").c_str()), 0) << "a cut name would be another command";
}

TEST(ServiceServer, RegistersNamesOnceAndNoNullHandlers) {
  Host host;
  ReportCapture reports;
  EXPECT_EQ(host.server->RegisterCommand("c", nullptr), 0);
  EXPECT_EQ(reports.All(),
            (std::vector<CapturedReport>{{5, "SCA_NetServer", "Invalid callback function !!!"}}));
  EXPECT_EQ(host.server->RegisterCommand(nullptr, &SCA_TikaServiceServer::Suspend), 1);
  EXPECT_EQ(host.server->RegisterCommand("StopServer", &SCA_TikaServiceServer::Suspend), 1);
  RawClient(host.Port()).Ask("StopServer");
  EXPECT_EQ(host.service.Calls().back(), "StopServer");
}

TEST(ServiceServer, WhatKeepsItFromOpeningMakesItInvalid) {
  Host host;
  SCA_SetControlKeyProvider(
      [](void*, const char*, unsigned short, SCA_ControlKey*, unsigned long* code) {
        *code = SCA_ErrorKeyExposed;
        return 0;
      },
      nullptr);
  const struct {
    unsigned long mode;
    unsigned short port;
    unsigned long error;
  } rows[] = {{0, host.Port(), EADDRINUSE}, {1, 0, SCA_ErrorKeyExposed}, {7, 0, EINVAL}};
  for (const auto& row : rows) {
    FakeFactory factory(&host.service, row.mode);
    unsigned long error = 0;
    const SCA_TikaServiceServer server(&factory, row.port, &error);
    EXPECT_EQ(server.IsValid(), 0);
    EXPECT_EQ(error, row.error);
  }
  SCA_SetControlKeyProvider(nullptr, nullptr);
}

TEST(ServiceClient, CarriesEveryKindOfField) {
  Host host;
  unsigned long number[3] = {};
  EXPECT_EQ(SCA_TikaServiceClient().GetStatus(number), 0) << "not connected";
  TestClient client(host.Port());
  EXPECT_EQ(client.GetFullName(), "127.0.0.1:" + std::to_string(host.Port()));
  EXPECT_EQ(client.AddServer("/a b", 65535, 2, "", &number[0], &number[1], &number[2]), 1);
  EXPECT_EQ(host.service.Calls().back(), "AddServer /a b 65535 2 ");
  for (unsigned long i = 0; i < 3; ++i) EXPECT_EQ(number[i], 0xFFFFFFFE - i);
  EXPECT_EQ(client.AddServer(nullptr, 1, 2, "", &number[0], &number[1], &number[2]), 0);
  EXPECT_EQ(client.GetLastStatusCode(), static_cast<unsigned long>(EINVAL));
  char text[2][SCA_ServiceTextSize];
  EXPECT_EQ(client.GetServerInfo(text[0], text[1]), 1);
  EXPECT_EQ(std::string(text[0]) + text[1], "text 1 of GetServerInfotext 2 of GetServerInfo");
  unsigned long long wide[2] = {};
  SCA_ConfigObj* object = nullptr;
  EXPECT_EQ(
      client.GetServiceStatus(&number[0], &number[1], &number[2], &wide[0], &wide[1], &object), 1);
  EXPECT_TRUE(wide[0] == ~0ULL - 4 && wide[1] == ~0ULL - 5);
  EXPECT_EQ(Text(*object), "Mark=6");
  EXPECT_EQ(object->GetParent(), nullptr);
  object->Destroy();
  host.service.fails = true;
  object = nullptr;
  EXPECT_EQ(client.GetServer(1, &object) + client.StopServer() + client.Reserved(), 0);
  EXPECT_EQ(object, nullptr);
}

TEST(ServiceClient, AReplyBeyondTheFrameLimitFailsOnBothEndsAndTheConnectionGoesOn) {
  Host host;
  TestClient client(host.Port());
  const std::string value(20000, 'v');
  const struct {
    std::size_t fields;
    const char* value;
    unsigned long code;
  } rows[] = {{90000, "1", 0},  // a reply of many blocks
              {110000, "1", SCA_ErrorDataTooLarge},
              {900, value.c_str(), SCA_ErrorFrameTooLarge}};
  for (const auto& row : rows) {
    host.service.fill = [&](SCA_ConfigObj* object) {
      for (std::size_t i = 0; i < row.fields; ++i) object->AddField("n", row.value, 0);
    };
    ReportCapture reports;
    SCA_ConfigObj* object = nullptr;
    EXPECT_EQ(client.GetServerList(&object), row.code == 0 ? 1 : 0);
    EXPECT_EQ(client.GetLastStatusCode(), row.code);
    EXPECT_EQ(reports.All().size(), row.code == 0 ? 0U : 1U);
    EXPECT_EQ(object != nullptr ? object->GetFieldCount() : 0, row.code == 0 ? row.fields : 0);
    SCA_Destroyer()(object);
    EXPECT_EQ(client.StopServer(), 1);
  }
}

TEST(ServiceClient, ALateReplyIsNotTakenForTheNextOne) {
  Host host;
  SCA_Event go(1, 0);
  TestClient client(host.Port());
  host.service.onGetStatus = [&] { go.Wait(SCA_Infinite); };
  client.SetReplyTimeout(20);
  EXPECT_EQ(client.Ask(), static_cast<unsigned long>(ETIMEDOUT));
  go.Set();
  client.SetReplyTimeout(SCA_MaxReplyTimeoutMs);
  char version[SCA_ServiceTextSize];
  EXPECT_EQ(client.GetVersionInfo(version), 1);
  EXPECT_STREQ(version, "text 1 of GetVersionInfo");
}

TEST(ServiceServer, ACommandMayStopTheServerAndItsReplyGoesOut) {
  Host host;
  host.service.onGetStatus = [&] { host.server->StopAll(); };
  TestClient client(host.Port());
  TestClient other(host.Port());
  EXPECT_EQ(client.Ask(), 0U);
  EXPECT_EQ(client.StopServer() + other.StopServer(), 0);
  // The port is free, before the server's end.
  EXPECT_TRUE(Eventually([&] { return TestClient(host.Port()).connectError == ECONNREFUSED; }));
  unsigned long error = 0;
  EXPECT_EQ(host.server->OpenGate(&error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(EALREADY));
  host.server.reset();
  EXPECT_EQ(host.factory.connects, host.factory.disconnects);
}

TEST(ServiceServer, TheRequestThatMakesAnotherThreadStopItIsAnswered) {
  for (int round = 0; round < 100; ++round) {
    Host host;
    TestClient idle(host.Port());
    SCA_Event asked(1, 0);
    SCA_Event idleEnded(1, 0);
    host.service.onGetStatus = [&] {
      asked.Set();
      // Every other time it is still being served when the server waits for it.
      if (round % 2 == 0) idleEnded.Wait(SCA_Infinite);
    };
    std::thread stopper([&] {
      asked.Wait(SCA_Infinite);
      host.server.reset();
    });
    std::thread other([&] {
      EXPECT_TRUE(Eventually([&] { return idle.StopServer() == 0; }));
      idleEnded.Set();
    });
    EXPECT_EQ(TestClient(host.Port()).Ask(), 0U) << round;
    stopper.join();
    other.join();
    EXPECT_EQ(host.factory.connects, host.factory.disconnects);
  }
}

TEST(ServiceServer, ComesAndGoesAtEveryMomentOfItsClients) {
  for (int round = 0; round < 60; ++round) {
    auto host = std::make_unique<Host>();
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i) {
      clients.emplace_back([round, port = host->Port()] {
        TestClient client(port);
        for (int call = 0; call < round % 7 && client.Ask() == 0; ++call) {
        }
      });
    }
    if (round % 3 != 0) clients.back().join();
    host.reset();
    for (std::thread& client : clients) {
      if (client.joinable()) client.join();
    }
  }
}

std::ptrdiff_t Threads() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

TEST(ServiceServer, EndedConnectionsLeaveNothingAndTheLimitHolds) {
  Host host;
  EXPECT_EQ(TestClient(host.Port()).Ask(), 0U);
  const std::ptrdiff_t threads = Threads();
  for (int i = 1; i < 300; ++i) EXPECT_EQ(TestClient(host.Port()).Ask(), 0U);
  EXPECT_TRUE(Eventually([&] { return host.server->GetConnectionCount() == 0; }));
  EXPECT_TRUE(Eventually([&] { return Threads() == threads; }));
  EXPECT_EQ(host.factory.connects, 300);

  host.server->SetMaxConnections(2);
  TestClient first(host.Port());
  TestClient second(host.Port());
  EXPECT_EQ(first.Ask() + second.Ask(), 0U);
  EXPECT_EQ(TestClient(host.Port()).connectError, SCA_ErrorConnectionLimit);
  EXPECT_EQ(first.Ask() + second.Ask(), 0U);

  // Those that have never asked for anything give way.
  Host quiet;
  quiet.server->SetMaxConnections(3);
  std::vector<std::unique_ptr<TestClient>> silent;
  for (int i = 0; i < 5; ++i) silent.push_back(std::make_unique<TestClient>(quiet.Port()));
  EXPECT_EQ(TestClient(quiet.Port()).Ask(), 0U);
}

TEST(ServiceServer, CallsThatWaitHoldUpNobodyElse) {
  Host host;
  SCA_Event go(1, 0);
  std::atomic<int> waiting{0};
  host.service.onGetStatus = [&] {
    ++waiting;
    go.Wait(SCA_Infinite);
  };
  TestClient other(host.Port());
  EXPECT_EQ(other.StopServer(), 1);
  const std::ptrdiff_t threads = Threads();
  std::vector<std::thread> callers;
  for (int count : {20, 80}) {  // fewer than threads may wait, and more
    while (callers.size() < static_cast<std::size_t>(count)) {
      callers.emplace_back([&] { EXPECT_EQ(TestClient(host.Port()).Ask(), 0U); });
    }
    EXPECT_TRUE(Eventually([&] { return waiting == std::min(count, 64); })) << waiting;
    const TestClient newcomer(host.Port());
    EXPECT_EQ(newcomer.connectError, 0U);
    if (count == 20) {
      EXPECT_EQ(other.StopServer(), 1);
    }
  }
  other.SetReplyTimeout(20);
  EXPECT_EQ(other.StopServer(), 0) << "it has to wait until one of the others has ended";
  go.Set();
  for (std::thread& caller : callers) caller.join();
  other.SetReplyTimeout(SCA_MaxReplyTimeoutMs);
  EXPECT_EQ(other.StopServer(), 1);
  EXPECT_EQ(waiting, 80);
  EXPECT_TRUE(Eventually([&] { return Threads() == threads; })) << Threads() << " of " << threads;
}

TEST(ServiceServer, RepliesToRequestsSentAtOnceComeInOrderHoweverSlowlyTheyAreRead) {
  Host host(0, [](SCA_ConfigObj* object) {
    const std::string value(20000, 'v');
    for (int i = 0; i < 50; ++i) object->AddField("n", value.c_str(), 0);
  });
  SCA_NetTransport slow(nullptr);
  SCA_NetMessage message;
  unsigned long error = 0;
  ASSERT_EQ(slow.Connect("127.0.0.1", host.Port(), 5000, &error), 1);
  message.Init("GetServerList");
  for (int i = 0; i < 50; ++i) ASSERT_EQ(slow.SendMessage(0, &message, &error), 1);
  // As far as the system buffers replies of a megabyte each; the others are not made yet.
  const auto calls = [&] { return host.service.Calls().size(); };
  EXPECT_TRUE(Eventually([&] { return calls() > 0; }));
  TestClient other(host.Port());
  for (int i = 0; i < 100; ++i) EXPECT_EQ(other.StopServer(), 1);
  EXPECT_LT(calls(), 150U);
  SCA_NetMessage last;
  last.Init("StopServer");
  ASSERT_EQ(slow.SendMessage(0, &last, &error), 1);
  ASSERT_EQ(slow.WaitForMessage(20000, &message, &error), 1) << SCA_ErrorText(error);
  EXPECT_EQ(message.GetData()->GetFieldCount(), 0U) << "the reply to the last request";
  EXPECT_EQ(calls(), 151U);
}

TEST(ServiceServer, PeersThatSendHalfAMessageCannotTakeAllMemory) {
  ReportCapture reports;
  Host host;
  TestClient good(host.Port());
  const std::string header("SCA1\0\xd0\0\1\0\0\0\1\0\0\0\1", 16);
  const std::string half(13 << 20, 'x');
  std::vector<SCA_Owned<SCA_VirtualTcpSock>> peers;
  const auto refusal = [](SCA_VirtualTcpSock* peer) {
    SCA_NetChannel channel(peer, SCA_NetSide::Client);
    SCA_NetFrame frame;
    EXPECT_EQ(channel.Receive(20000, &frame).Code(), 0U);
    EXPECT_EQ(frame.kind, SCA_FrameKind::Hello);
    EXPECT_EQ(channel.Receive(20000, &frame).Code(), 0U);
    return SCA_NetFrames::CodeOf(frame);
  };
  for (int i = 0; i < 5; ++i) {
    unsigned long sent = 0;
    unsigned long error = 0;
    peers.emplace_back(SCA_CreateTcpSock(-1));
    ASSERT_EQ(peers.back()->Connect("127.0.0.1", host.Port(), 5000, &error), 1);
    for (const std::string& bytes : {header, half}) {
      peers.back()->Send(bytes.data(), bytes.size(), &sent, &error);
    }
  }
  EXPECT_EQ(refusal(peers[0].get()), static_cast<unsigned long>(ENOBUFS)) << "the slowest";
  EXPECT_EQ(good.Ask(), 0U);
  EXPECT_LE(host.server->GetConnectionCount(), 5U);
}

}  // namespace
