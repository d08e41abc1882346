#include "product/SCA_TikaStatusList.h"

#include <gtest/gtest.h>

#include <thread>

#include "control/SCA_NetChannel.h"
#include "control/SCA_TikaServiceServer.h"
#include "host/SCA_TikaLog.h"
#include "host/SCA_TikaServerList.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Report.h"
#include "tests/control/fake_service.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Timing.h"

namespace {

class StatusList : public ::testing::Test {
 protected:
  StatusList() : factory_(&service_), server_(&factory_, 0, &error_) {
    record_.SetServiceId(7);
    record_.SetHostName("127.0.0.1");
    record_.SetControlPort(server_.GetPort());
  }
  ~StatusList() override { list_.ClearAll(); }

  FakeService service_;
  FakeFactory factory_;
  unsigned long error_ = 0;
  SCA_TikaServiceServer server_;
  SCA_TikaService record_;
  SCA_TikaStatusList list_;
};

TEST_F(StatusList, ConnectsOnceAndTakesLeave) {
  SCA_TikaServiceStatus* status = nullptr;
  ASSERT_EQ(list_.AddStatus(&record_, &status), 1);
  EXPECT_EQ(status->GetSvcConnectTimeout(), 200U);
  EXPECT_EQ(status->GetTikaConnectTimeout(), 1000U);
  EXPECT_EQ(status->IsConnected() + status->GetClients()->Count(), 0U);
  EXPECT_EQ(status->DoDisconnect(), 1) << "nothing to do";
  status->SetSvcConnectTimeout(5000);
  ASSERT_EQ(status->DoConnect(&error_), 1) << SCA_ErrorText(error_);
  SCA_TikaInterface* connection = status->GetInterface();
  ReportCapture reports;
  EXPECT_EQ(status->DoConnect(&error_), 0);
  EXPECT_EQ(error_, SCA_ErrorInvalidData);
  EXPECT_EQ(reports.All(),
            (std::vector<CapturedReport>{{5, "SCA_TikaServiceStatus",
                                          "SCA_TikaServiceStatus::DoConnect: already connected"}}));
  EXPECT_EQ(status->GetInterface(), connection);
  EXPECT_EQ(status->DoDisconnect(), 1);
  EXPECT_EQ(service_.Calls(), std::vector<std::string>{"DeleteAllServers"});
  EXPECT_EQ(status->IsConnected(), 0);
  ASSERT_EQ(status->DoConnect(&error_), 1);
  EXPECT_EQ(list_.ClearAll(), 1);
  EXPECT_EQ(service_.Calls().size(), 2U) << "so does the end of a status";

  record_.SetControlPort(1);
  ASSERT_EQ(list_.AddStatus(&record_, &status), 1);
  EXPECT_EQ(status->DoConnect(&error_), 0);
  EXPECT_EQ(error_, static_cast<unsigned long>(ECONNREFUSED));
  EXPECT_EQ(status->IsConnected(), 0);
}

TEST_F(StatusList, KeepsACopyOfTheRecordAndClientsThatAreNotItsOwn) {
  SCA_TikaServiceStatus* status = nullptr;
  ASSERT_EQ(list_.AddStatus(&record_, &status), 1);
  record_.SetHostName("elsewhere");
  EXPECT_STREQ(status->GetService()->GetHostName(), "127.0.0.1");
  EXPECT_EQ(status->UpdateService(&record_), 1);
  EXPECT_EQ(status->UpdateService(nullptr), 0);
  EXPECT_STREQ(status->GetService()->GetHostName(), "elsewhere");
  EXPECT_EQ(status->GetServiceId(), 7U);

  SCA_TikaConfigOrv settings;
  SCA_TikaClient first(&settings, "h", 9998);
  SCA_TikaClient second(&settings, "h", 9999);
  first.SetClientId(41);
  unsigned long id = 99;
  EXPECT_EQ(status->AddClient(&first, &id) + status->AddClient(&second, &id), 2);
  EXPECT_EQ(id, 99U) << "is not written";
  EXPECT_EQ(status->GetClients()->GetItemPos(41), 0U);
  SCA_TikaClient* found = nullptr;
  EXPECT_EQ(status->GetClientByPort(9999, &found), 1);
  EXPECT_EQ(found, &second);
  EXPECT_EQ(status->GetClientByPort(1, &found), 0);

  SCA_TikaServiceStatus* other = nullptr;
  ASSERT_EQ(list_.AddStatus(&record_, &other), 1);
  EXPECT_EQ(list_.GetStatus(7, &other), 1);
  EXPECT_EQ(other, status) << "the older of two is found";
  EXPECT_EQ(list_.RemoveStatus(7) + list_.RemoveStatus(8), 2);
  EXPECT_EQ(list_.GetStatusCount(), 1U);
  EXPECT_EQ(status->GetServiceId(), 7U) << "still alive";
  status->Destroy();
  EXPECT_EQ(list_.GetHeadStatus()->GetId(), 7U);
}

TEST_F(StatusList, AServiceThatIsGoneOrHangsHoldsNobodyUpForLong) {
  ScriptedServer hanging([](ServerConnection& connection) {
    SCA_Owned<SCA_VirtualTcpSock> socket(SCA_CreateTcpSock(::dup(connection.Fd())));
    SCA_NetMessage hello;
    SCA_NetChannel channel(socket.get(), SCA_NetSide::Server);
    unsigned long error = 0;
    hello.GetData()->AddField("LoginMode", 0, 0);
    hello.GetData()->AddField("Nonce", std::string(64, '0').c_str(), 0);
    channel.Send(SCA_FrameKind::Hello, 0, hello, 1000, &error);
    connection.WaitForEnd();
  });
  record_.SetControlPort(hanging.Port());
  SCA_TikaServiceStatus* status = nullptr;
  ASSERT_EQ(list_.AddStatus(&record_, &status), 1);
  status->SetSvcConnectTimeout(5000);
  ASSERT_EQ(status->DoConnect(&error_), 1) << SCA_ErrorText(error_);
  const Stopwatch watch;
  std::thread clearing([&] { list_.ClearAll(); });
  // The list is free while the status is taking leave.
  ASSERT_TRUE(Eventually([&] { return list_.GetStatusCount() == 0; }));
  EXPECT_EQ(list_.AddStatus(&record_, &status), 1);
  EXPECT_EQ(list_.RemoveStatus(7), 1);
  status->Destroy();
  clearing.join();
  EXPECT_LT(watch.Ms(), kDeadlineMs);
}

TEST_F(StatusList, RebuildsLogsAndServersFromWhatAServiceSends) {
  SCA_TikaInterface connection;
  ASSERT_EQ(connection.Connect("127.0.0.1", server_.GetPort(), 5000, &error_), 1);
  SCA_TikaLog sentLog(nullptr, 100, 0);
  sentLog.AddMessage(SCA_LevelWarning, "two  words and %s", "a % sign");
  SCA_TikaServerList sentServers;
  SCA_TikaServer* sentServer = nullptr;
  ASSERT_EQ(sentServers.AddServer(nullptr, "/a b.jar", 9980, 512, "-Da=b", &sentServer, &error_),
            1);
  SCA_TikaServerList servers;
  SCA_TikaServer server(nullptr);
  SCA_TikaLog log(nullptr, 100, 0);
  service_.fill = [&](SCA_ConfigObj* object) { sentServers.Serialize(object); };
  ASSERT_EQ(connection.GetServerList(&servers), 1);
  ASSERT_EQ(servers.Count(), 1U);
  EXPECT_STREQ(servers.GetHead()->GetItem()->GetFileName(), "/a b.jar");
  service_.fill = [&](SCA_ConfigObj* object) { sentServer->Serialize(object); };
  ASSERT_EQ(connection.GetServer(0, &server), 1);
  EXPECT_EQ(server.GetPortNumber(), 9980);
  service_.fill = [&](SCA_ConfigObj* object) {
    sentLog.Serialize(object, SCA_NoItemId, SCA_NoItemId);
  };
  for (const bool isDebugLog : {true, false}) {
    ASSERT_EQ(
        isDebugLog ? connection.GetDebugLog(1, 2, &log) : connection.GetServerLog(0, 1, 2, &log),
        1);
    tagSCA_ERROR_DESCR* record = nullptr;
    ASSERT_EQ(log.GetMessageByPos(0, &record), 1);
    EXPECT_STREQ(record->text, "two  words and a % sign");
    EXPECT_EQ(record->level, SCA_LevelWarning);
  }
  service_.fails = true;
  ReportCapture reports;
  EXPECT_EQ(connection.GetServerList(&servers) + connection.GetServer(7, &server) +
                connection.GetDebugLog(1, 2, &log) + connection.GetServerLog(7, 1, 2, &log),
            0);
  const char* source = "SCA_TikaInterface";
  EXPECT_EQ(reports.All(),
            (std::vector<CapturedReport>{
                {5, source, "SCA_TikaInterface::GetServerList: Cannot get server list"},
                {5, source, "SCA_TikaInterface::GetServer: Cannot get server - 7"},
                {5, source, "SCA_TikaInterface::GetDebugLog: Cannot get remote debug log"},
                {5, source, "SCA_TikaInterface::GetServerLog: Cannot get log of server - 7"}}));
}

}  // namespace
