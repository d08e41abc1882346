#include "product/SCA_TikaStatusList.h"

#include <gtest/gtest.h>

#include <thread>

#include "control/SCA_NetChannel.h"
#include "host/SCA_TikaLog.h"
#include "host/SCA_TikaServer.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Report.h"
#include "tests/control/fake_host.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Timing.h"

namespace {

class StatusList : public ::testing::Test {
 protected:
  StatusList() {
    record_.SetServiceId(7);
    record_.SetHostName("127.0.0.1");
    record_.SetControlPort(host_.Port());
  }
  ~StatusList() override { list_.ClearAll(); }

  FakeHost<> host_;
  unsigned long error_ = 0;
  SCA_TikaService record_;
  SCA_TikaStatusList list_;
  ReportCapture reports_;
};

TEST_F(StatusList, ConnectsOnceAndTakesLeaveOfACopiedService) {
  SCA_TikaServiceStatus* status = nullptr;
  ASSERT_EQ(list_.AddStatus(&record_, &status), 1);
  record_.SetControlPort(1);  // of the copy no more
  status->SetSvcConnectTimeout(5000);
  ASSERT_EQ(status->DoConnect(&error_), 1) << SCA_ErrorText(error_);
  EXPECT_EQ(status->DoConnect(&error_), 0);
  EXPECT_EQ(error_, SCA_ErrorInvalidData);
  EXPECT_EQ(reports_.All().back().text, "SCA_TikaServiceStatus::DoConnect: already connected");
  EXPECT_EQ(status->DoDisconnect() + status->DoDisconnect(), 2) << "the second has nothing to do";
  EXPECT_EQ(host_.service.Calls(), std::vector<std::string>{"DeleteAllServers"});
  ASSERT_EQ(status->DoConnect(&error_), 1);
  EXPECT_EQ(list_.ClearAll(), 1);
  EXPECT_EQ(host_.service.Calls().size(), 2U) << "so does the end of a status";
  ASSERT_EQ(list_.AddStatus(&record_, &status), 1);
  EXPECT_EQ(status->DoConnect(&error_), 0);
  EXPECT_EQ(error_, static_cast<unsigned long>(ECONNREFUSED));
}

TEST_F(StatusList, TheOlderOfTwoIsFoundAndTakenOutForItsCaller) {
  SCA_TikaServiceStatus* status = nullptr;
  SCA_TikaServiceStatus* found = nullptr;
  ASSERT_EQ(list_.AddStatus(&record_, &status) + list_.AddStatus(&record_, &found), 2);
  EXPECT_EQ(list_.GetStatus(7, &found), 1);
  EXPECT_EQ(found, status);
  EXPECT_EQ(list_.RemoveStatus(7) + list_.RemoveStatus(8), 2);
  EXPECT_EQ(list_.GetStatusCount(), 1U);
  status->Destroy();
}

TEST_F(StatusList, AServiceThatHangsHoldsNobodyUpForLong) {
  ScriptedServer hanging([](ServerConnection& connection) {
    SCA_Owned<SCA_VirtualTcpSock> socket(SCA_CreateTcpSock(::dup(connection.Fd())));
    SCA_NetMessage hello;
    SCA_NetChannel channel(socket.get(), SCA_NetSide::Server);
    hello.GetData()->AddField("LoginMode", 0, 0);
    hello.GetData()->AddField("Nonce", std::string(64, '0').c_str(), 0);
    EXPECT_EQ(channel.Send(SCA_FrameKind::Hello, 0, hello, 1000).Code(), 0U);
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
  EXPECT_EQ(list_.RemoveStatus(7), 1);
  clearing.join();
  EXPECT_LT(watch.Ms(), kDeadlineMs);
}

TEST_F(StatusList, RebuildsLogsAndServersFromWhatAServiceSends) {
  SCA_TikaInterface connection;
  ASSERT_EQ(connection.Connect("127.0.0.1", host_.Port(), 5000, &error_), 1);
  SCA_TikaServer sent(nullptr);
  SCA_TikaServer server(nullptr);
  sent.SetPortNumber(9980);
  host_.service.fill = [&](SCA_ConfigObj* object) { sent.Serialize(object); };
  ASSERT_EQ(connection.GetServer(0, &server), 1);
  EXPECT_EQ(server.GetPortNumber(), 9980);
  SCA_TikaLog sentLog(nullptr, 100, 0);
  SCA_TikaLog log(nullptr, 100, 0);
  tagSCA_ERROR_DESCR* record = nullptr;
  sentLog.AddMessage(SCA_LevelWarning, "two  words and %s", "a % sign");
  host_.service.fill = [&](SCA_ConfigObj* object) {
    sentLog.Serialize(object, SCA_NoItemId, SCA_NoItemId);
  };
  ASSERT_EQ(connection.GetServerLog(0, 1, 2, &log), 1);
  ASSERT_EQ(log.GetMessageByPos(0, &record), 1);
  EXPECT_STREQ(record->text, "two  words and a % sign");
  host_.service.fails = true;
  EXPECT_EQ(connection.GetServerLog(7, 1, 2, &log), 0);
  EXPECT_EQ(reports_.All().back().text,
            "SCA_TikaInterface::GetServerLog: Cannot get log of server - 7");
}

}  // namespace
