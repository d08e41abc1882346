#include "host/SCA_TikaServerList.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/SCA_Error.h"
#include "tests/support/ReportCapture.h"

namespace {

struct Lists {
  SCA_TikaConfigUser config{nullptr, nullptr};
  SCA_TikaServerList list;

  SCA_TikaServer* Add(unsigned short port, const char* jar = "tika.jar") {
    SCA_TikaServer* server = nullptr;
    unsigned long error = 0;
    EXPECT_EQ(list.AddServer(&config, jar, port, 512, "", &server, &error), 1);
    return server;
  }
};

TEST(TikaServerList, GivesIdsAndCountsChanges) {
  Lists lists;
  SCA_TikaServerList& list = lists.list;
  SCA_TikaServer* first = lists.Add(9998);
  EXPECT_EQ(first->GetProcessStatus(), SCA_ServerIdle);
  EXPECT_EQ(lists.Add(9998, "other.jar"), first);
  EXPECT_STREQ(first->GetFileName(), "tika.jar");
  EXPECT_EQ(list.Count(), 1U);
  EXPECT_EQ(list.GetServersStatusId(), 1U);
  lists.Add(9999);
  lists.Add(10000);
  EXPECT_EQ(list.DeleteServer(1), 1);
  EXPECT_EQ(list.DeleteServer(1), 0);
  EXPECT_EQ(list.GetServersStatusId(), 4U);
  EXPECT_EQ(lists.Add(10001)->GetServerId(), 3U);
  SCA_TikaServer* taken = nullptr;
  ASSERT_EQ(list.TakeServer(2, &taken), 1);
  EXPECT_EQ(taken->GetPortNumber(), 10000);
  taken->Destroy();
  list.UpdateServersStatusId();
  EXPECT_EQ(list.GetServersStatusId(), 7U);
  EXPECT_EQ(list.ClearAll(), 1);
  EXPECT_EQ(list.GetServersStatusId(), 0U);
  EXPECT_EQ(lists.Add(9998)->GetServerId(), 0U);
}

TEST(TikaServerList, RefusesWhatNoServerCanHold) {
  Lists lists;
  const ReportCapture reports;
  const std::string longPath = "/" + std::string(4095, 'x');
  const std::string longOptions(260, 'x');
  struct Row {
    const char* jar;
    unsigned long heap;
    const char* options;
    unsigned long code;
  };
  const Row rows[] = {{"a\"b.jar", 1, "", SCA_ErrorInvalidData},
                      {"a\nb.jar", 1, "", SCA_ErrorInvalidData},
                      {longPath.c_str(), 1, "", ENAMETOOLONG},
                      {"a.jar", 1, longOptions.c_str(), SCA_ErrorInvalidData},
                      {"a.jar", 1, "\x01", SCA_ErrorInvalidData},
                      {"a.jar", 1UL << 32, "", SCA_ErrorInvalidData}};
  for (const Row& row : rows) {
    SCA_TikaServer* server = nullptr;
    unsigned long error = 0;
    EXPECT_EQ(
        lists.list.AddServer(&lists.config, row.jar, 1, row.heap, row.options, &server, &error), 0);
    EXPECT_EQ(error, row.code) << row.jar;
    EXPECT_EQ(server, nullptr);
    EXPECT_EQ(reports.All().back().text,
              "SCA_TikaServerList::AddServer: cannot set Tika server configuration");
  }
  EXPECT_EQ(lists.list.Count() + lists.list.GetServersStatusId(), 0U);
}

TEST(TikaServerList, FindsCountsAndShows) {
  Lists lists;
  SCA_TikaServerList& list = lists.list;
  ::testing::internal::CaptureStdout();
  list.Show();
  lists.Add(9998);
  list.Show();
  const unsigned long statuses[] = {SCA_ServerError, SCA_ServerPending, SCA_ServerActive,
                                    SCA_ServerInactive, SCA_ServerError};
  unsigned short port = 1;
  for (const unsigned long status : statuses) {
    SCA_TikaServer* server = lists.Add(port++);
    server->SetProcessStatus(status);
    server->SetMemoryUsage(1ULL << 32);
  }
  list.DeleteServer(5);
  list.DeleteServer(4);
  list.Show();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "No Tika Servers to display.\n"
            "1 Tika Server:\n\n0 - Port: 9998 - File Name: tika.jar\n"
            "4 Tika Servers:\n\n0 - Port: 9998 - File Name: tika.jar\n"
            "1 - Port: 1 - File Name: tika.jar\n2 - Port: 2 - File Name: tika.jar\n"
            "3 - Port: 3 - File Name: tika.jar\n");
  unsigned long idle = 9;
  unsigned long active = 9;
  unsigned long inactive = 9;
  unsigned long error = 9;
  EXPECT_EQ(list.GetStats(&idle, &active, &inactive, &error), 1);
  EXPECT_EQ(std::to_string(idle) + std::to_string(active) + std::to_string(inactive) +
                std::to_string(error),
            "1101");
  EXPECT_EQ(list.GetErrorServers(), 1U);
  EXPECT_EQ(list.GetActiveServers(), 1U);
  EXPECT_EQ(list.GetMemoryUsage(), 3ULL << 32);
  SCA_TikaServer* server = nullptr;
  EXPECT_EQ(list.GetServer(static_cast<unsigned short>(2), 511UL, &server), 0);
  EXPECT_EQ(list.GetServerByPort(4711, &server), 0);
  EXPECT_EQ(server, nullptr);
  ASSERT_EQ(list.GetServer(static_cast<unsigned short>(2), 512UL, &server), 1);
  EXPECT_EQ(server->GetServerId(), 2U);
  ASSERT_EQ(list.GetServer(3UL, &server), 1);
  EXPECT_EQ(server->GetPortNumber(), 3);
}

TEST(TikaServerList, ACopyHoldsOfflineServersWithTheirIds) {
  Lists lists;
  for (unsigned short port = 1; port <= 6; ++port) lists.Add(port);
  for (const unsigned long id : {0UL, 1UL, 3UL, 4UL}) lists.list.DeleteServer(id);
  SCA_ConfigObj object("List", nullptr);
  ASSERT_EQ(lists.list.Serialize(&object), 1);
  // Order and names say nothing, and a plain field is no server.
  object.GetFields().MoveItemToHead("5");
  object.AddField("7", "x", 0);
  SCA_TikaServerList copy;
  ASSERT_EQ(copy.Deserialize(&object), 1);
  ASSERT_EQ(copy.Count(), 2U);
  EXPECT_EQ(copy.GetHead()->GetId(), 5U);
  EXPECT_EQ(copy.GetHead()->GetItem()->GetPortNumber(), 6);
  EXPECT_EQ(copy.GetHead()->GetItem()->IsOffline(), 1);
  SCA_TikaServer* added = nullptr;
  unsigned long error = 0;
  ASSERT_EQ(copy.AddServer(&lists.config, "", 99, 1, nullptr, &added, &error), 1);
  EXPECT_EQ(added->GetServerId(), 6U);

  const ReportCapture reports;
  EXPECT_EQ(lists.list.Serialize(nullptr), 0);
  EXPECT_EQ(copy.Deserialize(nullptr), 0);
  EXPECT_EQ(copy.Count(), 0U);
  SCA_ConfigObj none("List", nullptr);
  none.AddConfigObj("0")->AddField("ServerId", SCA_NoItemId, 0);
  EXPECT_EQ(copy.Deserialize(&none), 0);
  SCA_ConfigObj many("List", nullptr);
  for (unsigned long id = 0; id <= SCA_MaxServers; ++id) {
    many.AddConfigObj("s")->AddField("ServerId", id, 0);
  }
  EXPECT_EQ(copy.Deserialize(&many), 0);
  EXPECT_EQ(copy.Count(), SCA_MaxServers);
}

}  // namespace
