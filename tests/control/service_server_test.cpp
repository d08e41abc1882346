// The command server and the control client, over real sockets.
#include "control/SCA_TikaServiceServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <map>
#include <thread>

#include "control/SCA_NetChannel.h"
#include "control/SCA_NetTransport.h"
#include "control/SCA_TikaServiceClient.h"
#include "platform/SCA_Error.h"
#include "tests/control/fake_host.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/Timing.h"

namespace {

using Host = FakeHost<>;

void Connect(SCA_TikaServiceClient* client, const Host& host) {
  unsigned long error = 0;
  ASSERT_EQ(client->Connect("127.0.0.1", host.Port(), 5000, &error), 1) << SCA_ErrorText(error);
}

// Sends a request as it is and gives the reply's name and the names of its fields.
class RawClient {
 public:
  explicit RawClient(const Host& host) : transport_(nullptr) {
    unsigned long error = 0;
    EXPECT_EQ(transport_.Connect("127.0.0.1", host.Port(), 5000, &error), 1);
  }
  std::string Ask(SCA_NetMessage* request) {
    SCA_NetMessage reply;
    unsigned long error = 0;
    if (transport_.SendMessage(0, request, &error) == 0 ||
        transport_.WaitForMessage(10000, &reply, &error) == 0) {
      return SCA_ErrorText(error);
    }
    std::string text = reply.GetCommandName();
    for (const SCA_Field* field = reply.GetData()->GetFields().GetHead(); field != nullptr;
         field = field->GetNext()) {
      text += std::string(" ") + field->GetName();
    }
    return text;
  }
  std::string Ask(const char* command) {
    SCA_NetMessage request;
    EXPECT_EQ(request.Init(command), 1);
    return Ask(&request);
  }
  SCA_NetTransport& Transport() { return transport_; }

 private:
  SCA_NetTransport transport_;
};

constexpr char kText[] = "text";
using Fields = std::vector<std::pair<const char*, const char*>>;

void AddAll(SCA_NetMessage* request, const Fields& fields, std::size_t without) {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i != without) request->GetData()->AddField(fields[i].first, fields[i].second, 0);
  }
}

const std::vector<std::tuple<const char*, Fields, const char*, const char*>> kCommands = {
    {"GetVersionInfo", {}, "GetVersionInfo", "OK VersionInfo"},
    {"GetDebugLog", {{"LastMessageId", "1"}, {"Count", "2"}}, "GetDebugLog 1 2", "OK DebugLogObj"},
    {"ClearDebugLog", {}, "ClearDebugLog", "OK"},
    {"GetStatus", {}, "GetStatus", "OK Status"},
    {"GetStatusObj", {}, "GetStatusObj", "OK StatusObj"},
    {"GetServerInfo", {}, "GetServerInfo", "OK ServerVersion ServerHostName"},
    {"GetServiceStatus",
     {},
     "GetServiceStatus",
     "OK ServiceStatus ErrorServers ActiveServers MemoryUsage UpTime ServersStatusObj"},
    {"GetServiceStatusEx", {}, "GetServiceStatusEx", "OK ServiceStatusObj ServersStatusObj"},
    {"StopServer", {}, "StopServer", "OK"},
    {"Suspend", {}, "Suspend", "OK"},
    {"GetServerList", {}, "GetServerList", "OK ServerListObj"},
    {"GetServer", {{"ServerId", "7"}}, "GetServer 7", "OK ServerObj"},
    {"GetServerStatusEx", {{"ServerId", "7"}}, "GetServerStatusEx 7", "OK StatusObj"},
    {"SaveTikaLog", {{"Status", "1"}, {"LogDir", ""}}, "SaveTikaLog  1", "OK StatusCode"},
    {"GetServerLog",
     {{"ServerId", "1"}, {"LastMessageId", "4294967295"}, {"Count", "3"}},
     "GetServerLog 1 4294967295 3",
     "OK LogObj"},
    {"ClearServerLog", {{"ServerId", "7"}}, "ClearServerLog 7", "OK"},
    {"AddServer",
     {{"FileName", "/a b.jar"},
      {"PortNumber", "65535"},
      {"HeapSize", "512"},
      {"JavaOptions", kText}},
     "AddServer /a b.jar|text 65535 512",
     "OK ServerId ServerStatus StatusCode"},
    {"StartServer", {{"ServerId", "7"}}, "StartServer 7", "OK ServerStatus StatusCode"},
    {"DeleteServer", {{"ServerId", "7"}}, "DeleteServer 7", "OK"},
    {"DeleteAllServers", {}, "DeleteAllServers", "OK"},
};

TEST(ServiceServer, EveryCommandTakesAndGivesItsFieldsInOrder) {
  Host host;
  RawClient client(host);
  EXPECT_EQ(kCommands.size(), 20U);
  EXPECT_EQ(host.server->GetCommands().GetBucketsInUse(), 19U);
  for (const auto& [name, fields, call, reply] : kCommands) {
    SCOPED_TRACE(name);
    for (std::size_t without = 0; without <= fields.size(); ++without) {
      const bool isWhole = without == fields.size();
      const std::size_t calls = host.service.Calls().size();
      SCA_NetMessage request;
      request.Init(name);
      AddAll(&request, fields, without);
      EXPECT_EQ(client.Ask(&request), isWhole ? reply : "ERR");
      ASSERT_EQ(host.service.Calls().size(), calls + (isWhole ? 1 : 0));
      if (isWhole) {
        EXPECT_EQ(host.service.Calls().back(), call);
      }
    }
    host.service.fails = true;
    SCA_NetMessage request;
    request.Init(name);
    AddAll(&request, fields, fields.size());
    EXPECT_EQ(client.Ask(&request), "ERR") << "and what the operation had handed out is ended";
    host.service.fails = false;
  }
}

TEST(ServiceServer, UnknownCommandsAndWrongFieldsLeaveTheConnectionServing) {
  Host host;
  RawClient client(host);
  const std::string longest(SCA_MaxCommandName - 1, 'c');
  for (const char* name : {"getstatus", "GetStatusX", "", "%s%n%s", longest.c_str()}) {
    ReportCapture reports;
    EXPECT_EQ(client.Ask(name), "ERR");
    EXPECT_EQ(reports.All(), (std::vector<CapturedReport>{
                                 {5, "SCA_NetServer", std::string("Invalid command - ") + name}}));
  }
  const std::string fits(SCA_ServiceTextSize - 1, 'f');
  const std::string tooLong = fits + "f";
  const std::vector<std::tuple<const char*, const char*, const char*>> rows = {
      {fits.c_str(), "1", "OK ServerId ServerStatus StatusCode"},
      {tooLong.c_str(), "1", "ERR"},
      {"f", "65536", "ERR"},
      {"f", "-1", "ERR"},
      {"f", " 1", "ERR"}};
  for (const auto& [file, port, reply] : rows) {
    SCA_NetMessage request;
    request.Init("AddServer");
    AddAll(&request,
           {{"FileName", file}, {"PortNumber", port}, {"HeapSize", "1"}, {"JavaOptions", ""}}, 9);
    EXPECT_EQ(client.Ask(&request), reply) << port;
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
  EXPECT_EQ(client.Ask("GetStatus"), "OK Status");
  EXPECT_EQ(request.Init((longest + "c").c_str()), 0) << "a cut name would be another command";
}

TEST(ServiceServer, RegistersNamesOnceAndNoNullHandlers) {
  class Owner : public SCA_NetServer<Owner> {
   public:
    explicit Owner(unsigned long* error) : SCA_NetServer(this, "1", 0, error) {
      ReportCapture reports;
      EXPECT_EQ(RegisterCommand("c", nullptr), 0);
      EXPECT_EQ(
          reports.All(),
          (std::vector<CapturedReport>{{5, "SCA_NetServer", "Invalid callback function !!!"}}));
      EXPECT_EQ(RegisterCommand(nullptr, &Owner::First), 1);
      EXPECT_EQ(RegisterCommand("c", &Owner::First) + RegisterCommand("c", &Owner::Second), 2);
    }
    ~Owner() override { StopAll(); }
    int First(SCA_NetServerAgent*, SCA_NetMessage*, SCA_NetMessage*) { return 41; }
    int Second(SCA_NetServerAgent*, SCA_NetMessage*, SCA_NetMessage*) { return 42; }
    int ConnectEvent(SCA_NetServerAgent*) override { return 1; }
    int DisconnectEvent(SCA_NetServerAgent*) override { return 1; }
    unsigned long GetLoginMode() { return 7; }
  };
  unsigned long error = 0;
  Owner owner(&error);
  EXPECT_EQ(owner.IsValid(), 1);
  SCA_NetMessage request;
  request.Init("c");
  EXPECT_EQ(owner.DoCommand(nullptr, &request, nullptr), 41);
  EXPECT_EQ(owner.OpenGate(&error), 0) << "there is no login mode 7";
  EXPECT_EQ(error, static_cast<unsigned long>(EINVAL));
  EXPECT_EQ(owner.IsValid(), 0);
}

TEST(ServiceServer, ATakenPortAndAMissingKeyMakeItInvalid) {
  Host host;
  FakeFactory factory(&host.service);
  unsigned long error = 0;
  const SCA_TikaServiceServer second(&factory, host.Port(), &error);
  EXPECT_EQ(second.IsValid(), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(EADDRINUSE));

  SCA_SetControlKeyProvider(
      [](void*, const char*, unsigned short, SCA_ControlKey*, unsigned long* code) {
        *code = SCA_ErrorKeyExposed;
        return 0;
      },
      nullptr);
  FakeFactory withLogin(&host.service, 1);
  const SCA_TikaServiceServer third(&withLogin, 0, &error);
  EXPECT_EQ(third.IsValid(), 0);
  EXPECT_EQ(error, SCA_ErrorKeyExposed);
  SCA_SetControlKeyProvider(nullptr, nullptr);
}

TEST(ServiceClient, CarriesEveryOperation) {
  Host host;
  SCA_TikaServiceClient client;
  EXPECT_EQ(client.GetPort(), 0xFFFF);
  EXPECT_STREQ(client.GetFullName(), "");
  unsigned long number[3] = {};
  EXPECT_EQ(client.GetStatus(number), 0) << "not connected";
  EXPECT_EQ(client.GetLastStatusCode(), static_cast<unsigned long>(ENOTCONN));
  Connect(&client, host);
  EXPECT_EQ(client.GetFullName(), "127.0.0.1:" + std::to_string(host.Port()));
  EXPECT_STREQ(client.GetName(), "127.0.0.1");

  char text[2][SCA_ServiceTextSize];
  EXPECT_EQ(client.GetVersionInfo(text[0]) + client.GetServerInfo(text[0], text[1]), 2);
  EXPECT_STREQ(text[0], "text 1 of GetServerInfo");
  EXPECT_STREQ(text[1], "text 2 of GetServerInfo");
  EXPECT_EQ(client.AddServer("a", 65535, 2, "", &number[0], &number[1], &number[2]), 1);
  EXPECT_EQ(number[0] * 10000 + number[1] * 100 + number[2], 212223U);
  EXPECT_EQ(client.StartServer(1, &number[0], &number[1]) + client.SaveTikaLog(1, "", &number[2]),
            2);
  EXPECT_EQ(number[0] * 10000 + number[1] * 100 + number[2], 313213U);
  EXPECT_EQ(client.AddServer(nullptr, 1, 2, "", &number[0], &number[1], &number[2]), 0);

  unsigned long long wide[2] = {};
  SCA_ConfigObj* objects[9] = {};
  EXPECT_EQ(
      client.GetServiceStatus(&number[0], &number[1], &number[2], &wide[0], &wide[1], &objects[0]),
      1);
  EXPECT_EQ(number[2], 0xFFFFFFFF);
  EXPECT_EQ(wide[0], (1ULL << 32) + 1);
  EXPECT_EQ(wide[1], ~0ULL);
  EXPECT_EQ(client.GetServiceStatusEx(&objects[1], &objects[2]) +
                client.GetDebugLog(1, 2, &objects[3]) + client.GetStatusObj(&objects[4]) +
                client.GetServerList(&objects[5]) + client.GetServer(1, &objects[6]) +
                client.GetServerStatusEx(1, &objects[7]) +
                client.GetServerLog(1, 2, 3, &objects[8]),
            7);
  const std::map<int, const char*> names = {{1, "ServiceStatusObj"}, {2, "ServersStatusObj"}};
  for (int i = 0; i < 9; ++i) {
    int mark = 0;
    EXPECT_EQ(objects[i]->GetField("Mark", &mark), 1);
    EXPECT_EQ(mark, i == 2 ? 2 : 1);
    if (names.count(i) != 0) {
      EXPECT_STREQ(objects[i]->GetName(), names.at(i));
    }
    EXPECT_EQ(objects[i]->GetParent(), nullptr);
    objects[i]->Destroy();
  }
  EXPECT_EQ(client.ClearDebugLog() + client.StopServer() + client.Suspend() +
                client.ClearServerLog(1) + client.DeleteServer(1) + client.DeleteAllServers(),
            6);
  EXPECT_EQ(host.service.Calls().size(), 19U);
  EXPECT_EQ(client.Reserved(), 0);

  host.service.fails = true;
  SCA_ConfigObj* untouched = nullptr;
  EXPECT_EQ(client.GetServer(1, &untouched) + client.StopServer(), 0);
  EXPECT_EQ(untouched, nullptr);
}

TEST(ServiceClient, AReplyBeyondTheFrameLimitFailsOnBothEndsAndTheConnectionGoesOn) {
  Host host;
  SCA_TikaServiceClient client;
  Connect(&client, host);
  SCA_ConfigObj* object = nullptr;
  host.service.objectFields = 90000;
  EXPECT_EQ(client.GetServerList(&object), 1) << "a reply of many blocks";
  EXPECT_EQ(object->GetFieldCount(), 90000U);
  object->Destroy();
  object = nullptr;
  const std::string value(20000, 'v');
  const std::pair<std::function<void(SCA_ConfigObj*)>, unsigned long> rows[] = {
      {[](SCA_ConfigObj* log) {
         for (int i = 0; i < 110000; ++i) log->AddField("n", i, 0);
       },
       SCA_ErrorDataTooLarge},
      {[&](SCA_ConfigObj* log) {
         for (int i = 0; i < 900; ++i) log->AddField("n", value.c_str(), 0);
       },
       SCA_ErrorFrameTooLarge}};
  for (const auto& [fill, code] : rows) {
    host.service.fill = fill;
    ReportCapture reports;
    EXPECT_EQ(client.GetServerList(&object), 0);
    EXPECT_EQ(client.GetLastStatusCode(), code);
    EXPECT_EQ(object, nullptr);
    ASSERT_EQ(reports.All().size(), 1U);
    EXPECT_EQ(reports.All()[0].level, 5U);
    EXPECT_EQ(client.StopServer(), 1);
    EXPECT_EQ(client.GetLastStatusCode(), 0U);
  }
}

TEST(ServiceClient, ALateReplyIsNotTakenForTheNextOne) {
  Host host;
  SCA_Event go(1, 0);
  SCA_TikaServiceClient client;
  Connect(&client, host);
  host.service.onGetStatus = [&] { go.Wait(SCA_Infinite); };
  client.SetReplyTimeout(20);
  unsigned long status = 0;
  EXPECT_EQ(client.GetStatus(&status), 0);
  EXPECT_EQ(client.GetLastStatusCode(), static_cast<unsigned long>(ETIMEDOUT));
  go.Set();
  client.SetReplyTimeout(0xFFFFFFFF);
  EXPECT_EQ(client.GetReplyTimeout(), 60000U);
  char version[SCA_ServiceTextSize];
  EXPECT_EQ(client.GetVersionInfo(version), 1);
  EXPECT_STREQ(version, "text 1 of GetVersionInfo");
}

TEST(ServiceServer, StopsWithClientsConnectedAndInMidRequest) {
  Host host;
  SCA_TikaServiceClient idle;
  SCA_TikaServiceClient busy;
  Connect(&idle, host);
  Connect(&busy, host);
  SCA_Event begun(1, 0);
  SCA_Event go(1, 0);
  host.service.onGetStatus = [&] {
    begun.Set();
    go.Wait(SCA_Infinite);
  };
  std::thread caller([&] {
    unsigned long status = 0;
    EXPECT_EQ(busy.GetStatus(&status), 1) << "its reply still goes out";
  });
  begun.Wait(SCA_Infinite);
  std::thread stopper([&] { host.server.reset(); });
  EXPECT_TRUE(Eventually([&] { return idle.StopServer() == 0; })) << "an idle one ends at once";
  go.Set();
  stopper.join();
  caller.join();
  EXPECT_EQ(host.factory.Connected(), 0U);
}

TEST(ServiceServer, ACommandMayStopTheServerAndItsReplyGoesOut) {
  Host host;
  host.service.onGetStatus = [&] { host.server->StopAll(); };
  SCA_TikaServiceClient client;
  SCA_TikaServiceClient other;
  Connect(&client, host);
  Connect(&other, host);
  unsigned long status = 0;
  EXPECT_EQ(client.GetStatus(&status), 1);
  EXPECT_EQ(status, 11U);
  EXPECT_EQ(client.StopServer() + other.StopServer(), 0);
  // The port is free, before the server's end.
  EXPECT_TRUE(Eventually([&] {
    unsigned long error = 0;
    return other.Connect("127.0.0.1", host.Port(), 5000, &error) == 0 && error == ECONNREFUSED;
  }));
  unsigned long error = 0;
  EXPECT_EQ(host.server->OpenGate(&error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(EALREADY));
  host.server.reset();
  EXPECT_EQ(host.factory.Connected(), 0U);
}

TEST(ServiceServer, TheRequestThatMakesAnotherThreadStopItIsAnswered) {
  for (int round = 0; round < 200; ++round) {
    Host host;
    SCA_Event asked(1, 0);
    host.service.onGetStatus = [&] { asked.Set(); };
    std::thread stopper([&] {
      asked.Wait(SCA_Infinite);
      host.server.reset();
    });
    SCA_TikaServiceClient client;
    Connect(&client, host);
    unsigned long status = 0;
    EXPECT_EQ(client.GetStatus(&status), 1) << round << " " << client.GetLastStatusCode();
    stopper.join();
  }
}

TEST(ServiceServer, ComesAndGoesAtEveryMomentOfItsClients) {
  for (int round = 0; round < 60; ++round) {
    auto host = std::make_unique<Host>();
    const unsigned short port = host->Port();
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i) {
      clients.emplace_back([=] {
        SCA_TikaServiceClient client;
        unsigned long error = 0;
        unsigned long status = 0;
        if (client.Connect("127.0.0.1", port, 1000, &error) == 0) return;
        for (int call = 0; call < round % 7 && client.GetStatus(&status) != 0; ++call) {
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

// The threads of this process.
std::size_t Threads() {
  std::ifstream file("/proc/self/status");
  std::string line;
  while (std::getline(file, line)) {
    if (line.rfind("Threads:", 0) == 0) return std::stoul(line.substr(8));
  }
  return 0;
}

TEST(ServiceServer, EndedConnectionsLeaveNothingAndTheLimitHolds) {
  Host host;
  const std::size_t threads = Threads();
  for (int i = 0; i < 300; ++i) {
    SCA_TikaServiceClient client;
    Connect(&client, host);
    EXPECT_EQ(client.StopServer(), 1);
  }
  EXPECT_TRUE(Eventually([&] { return host.server->GetConnectionCount() == 0; }));
  EXPECT_TRUE(Eventually([&] { return Threads() == threads; }));
  EXPECT_EQ(host.factory.Connects(), 300);

  host.server->SetMaxConnections(2);
  SCA_TikaServiceClient first;
  SCA_TikaServiceClient second;
  SCA_TikaServiceClient third;
  Connect(&first, host);
  Connect(&second, host);
  EXPECT_EQ(first.StopServer() + second.StopServer(), 2);
  unsigned long error = 0;
  EXPECT_EQ(third.Connect("127.0.0.1", host.Port(), 5000, &error), 0);
  EXPECT_EQ(error, SCA_ErrorConnectionLimit);
  EXPECT_EQ(first.StopServer() + second.StopServer(), 2);

  // Those that have never asked for anything give way.
  Host quiet;
  quiet.server->SetMaxConnections(3);
  SCA_TikaServiceClient silent[5];
  for (SCA_TikaServiceClient& client : silent) Connect(&client, quiet);
  SCA_TikaServiceClient good;
  Connect(&good, quiet);
  EXPECT_EQ(good.StopServer(), 1);
}

}  // namespace
