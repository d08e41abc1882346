// The command server and the control client, over real sockets.
#include "control/SCA_TikaServiceServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

#include "control/SCA_ControlKey.h"
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

using Fields = std::vector<std::pair<const char*, std::string>>;

// "OK" or "ERR", and the fields of the reply: "OK ServerId=7 StatusObj{Mark=1}".
std::string Text(const SCA_ConfigObj& object) {
  std::string text;
  for (auto* field = object.GetFields().GetHead(); field != nullptr; field = field->GetNext()) {
    const SCA_ConfigObj* child = SCA_ToConfigObj(field);
    text += text.empty() ? "" : " ";
    text += field->GetName() +
            (child != nullptr ? "{" + Text(*child) + "}" : std::string("=") + field->GetValue());
  }
  return text;
}

// Sends requests as they are, and gives the replies as texts.
class RawClient {
 public:
  explicit RawClient(const Host& host) : transport_(nullptr) {
    unsigned long error = 0;
    EXPECT_EQ(transport_.Connect("127.0.0.1", host.Port(), 5000, &error), 1);
  }
  std::string Ask(const char* command, const Fields& fields = {}) {
    SCA_NetMessage request;
    EXPECT_EQ(request.Init(command), 1);
    for (const auto& [name, value] : fields) request.GetData()->AddField(name, value.c_str(), 0);
    return Ask(&request);
  }
  std::string Ask(SCA_NetMessage* request) {
    SCA_NetMessage reply;
    unsigned long error = 0;
    if (transport_.SendMessage(0, request, &error) == 0 ||
        transport_.WaitForMessage(10000, &reply, &error) == 0) {
      return SCA_ErrorText(error);
    }
    const std::string fields = Text(*reply.GetData());
    return reply.GetCommandName() + (fields.empty() ? "" : " " + fields);
  }

 private:
  SCA_NetTransport transport_;
};

// What a row promises: the fields of a request, the call that it makes, and the reply.
struct Exchange {
  std::string command;
  Fields asked;
  std::string call;
  std::string reply = "OK";
  unsigned mark = 0;

  template <class T>
  void Add(const char* field) {
    std::string value;
    if constexpr (std::is_same_v<T, const char*>) {
      value = std::string(SCA_ServiceTextSize - 1, 'f');
    } else if constexpr (std::is_same_v<T, char*>) {
      value = "=text " + std::to_string(++mark) + " of " + command;
    } else if constexpr (std::is_same_v<T, SCA_ConfigObj**>) {
      value = "{Mark=" + std::to_string(++mark) + "}";
    } else if constexpr (std::is_same_v<T, unsigned long long*>) {
      value = "=" + std::to_string(~0ULL - ++mark);
    } else if constexpr (std::is_pointer_v<T>) {
      value = "=" + std::to_string(0xFFFFFFFF - ++mark);
    } else {
      value = std::to_string((sizeof(T) == 2 ? 0xFFFF : 0xFFFFFFFF) - asked.size());
    }
    if (std::is_pointer_v<T> && !std::is_same_v<T, const char*>) {
      reply += std::string(" ") + field + value;
    } else {
      asked.emplace_back(field, value);
      call += " " + value;
    }
  }
};

template <class... Args>
Exchange ExchangeOf(const SCA_ServiceCommand<Args...>& row) {
  Exchange exchange;
  exchange.command = exchange.call = row.name;
  [[maybe_unused]] auto field = row.fields.begin();
  (exchange.Add<Args>(*field++), ...);
  return exchange;
}

TEST(ServiceServer, EveryCommandTakesAndGivesItsFieldsInOrder) {
  Host host;
  RawClient client(host);
#define SCA_EXCHANGE(name, parameters, arguments, fields) ExchangeOf(SCA_Commands::name),
  const Exchange exchanges[] = {SCA_SERVICE_COMMANDS(SCA_EXCHANGE)};
  EXPECT_EQ(std::size(exchanges), 20U);
  EXPECT_EQ(host.server->GetCommands().GetBucketsInUse(), 19U);
  for (const Exchange& exchange : exchanges) {
    SCOPED_TRACE(exchange.call);
    const char* command = exchange.command.c_str();
    EXPECT_EQ(client.Ask(command, exchange.asked), exchange.reply);
    const std::vector<std::string> calls = host.service.Calls();
    EXPECT_EQ(calls.back(), exchange.call);
    for (std::size_t i = 0; i < exchange.asked.size(); ++i) {
      Fields fields = exchange.asked;
      fields.erase(fields.begin() + static_cast<std::ptrdiff_t>(i));
      EXPECT_EQ(client.Ask(command, fields), "ERR") << "without " << exchange.asked[i].first;
    }
    EXPECT_EQ(host.service.Calls(), calls) << "called without a field";
    host.service.fails = true;
    EXPECT_EQ(client.Ask(command, exchange.asked), "ERR");
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
  RawClient(host).Ask("StopServer");
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
  SCA_TikaServiceClient client;
  EXPECT_EQ(client.GetPort(), 0xFFFF);
  unsigned long number[3] = {};
  EXPECT_EQ(client.GetStatus(number), 0) << "not connected";
  EXPECT_EQ(client.GetLastStatusCode(), static_cast<unsigned long>(ENOTCONN));
  Connect(&client, host);
  EXPECT_EQ(client.GetFullName(), "127.0.0.1:" + std::to_string(host.Port()));
  EXPECT_STREQ(client.GetName(), "127.0.0.1");

  EXPECT_EQ(client.AddServer("/a b", 65535, 2, "", &number[0], &number[1], &number[2]), 1);
  EXPECT_EQ(host.service.Calls().back(), "AddServer /a b 65535 2 ");
  for (unsigned long i = 0; i < 3; ++i) EXPECT_EQ(number[i], 0xFFFFFFFE - i);
  EXPECT_EQ(client.AddServer(nullptr, 1, 2, "", &number[0], &number[1], &number[2]), 0);
  EXPECT_EQ(client.GetLastStatusCode(), static_cast<unsigned long>(EINVAL));
  char text[2][SCA_ServiceTextSize];
  EXPECT_EQ(client.GetServerInfo(text[0], text[1]), 1);
  EXPECT_STREQ(text[0], "text 1 of GetServerInfo");
  EXPECT_STREQ(text[1], "text 2 of GetServerInfo");
  unsigned long long wide[2] = {};
  SCA_ConfigObj* objects[3] = {};
  EXPECT_EQ(
      client.GetServiceStatus(&number[0], &number[1], &number[2], &wide[0], &wide[1], &objects[0]),
      1);
  EXPECT_TRUE(wide[0] == ~0ULL - 4 && wide[1] == ~0ULL - 5);
  EXPECT_EQ(client.GetServiceStatusEx(&objects[1], &objects[2]), 1);
  EXPECT_STREQ(objects[1]->GetName(), "ServiceStatusObj");
  const char* marks[] = {"Mark=6", "Mark=1", "Mark=2"};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(Text(*objects[i]), marks[i]);
    EXPECT_EQ(objects[i]->GetParent(), nullptr);
    objects[i]->Destroy();
  }
  host.service.fails = true;
  SCA_ConfigObj* untouched = nullptr;
  EXPECT_EQ(client.GetServer(1, &untouched) + client.StopServer() + client.Reserved(), 0);
  EXPECT_EQ(untouched, nullptr);
}

TEST(ServiceClient, AReplyBeyondTheFrameLimitFailsOnBothEndsAndTheConnectionGoesOn) {
  Host host;
  SCA_TikaServiceClient client;
  Connect(&client, host);
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
  SCA_TikaServiceClient client;
  Connect(&client, host);
  host.service.onGetStatus = [&] { go.Wait(SCA_Infinite); };
  client.SetReplyTimeout(20);
  unsigned long status = 0;
  EXPECT_EQ(client.GetStatus(&status), 0);
  EXPECT_EQ(client.GetLastStatusCode(), static_cast<unsigned long>(ETIMEDOUT));
  go.Set();
  client.SetReplyTimeout(SCA_MaxReplyTimeoutMs);
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
  EXPECT_EQ(status, 0xFFFFFFFE);
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
