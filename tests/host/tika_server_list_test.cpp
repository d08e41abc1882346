#include "host/SCA_TikaServerList.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/SCA_Error.h"
#include "tests/support/ReportCapture.h"

namespace {

class TikaServerList : public ::testing::Test {
 protected:
  SCA_TikaServer* Add(unsigned short port, const char* jar = "tika.jar") {
    SCA_TikaServer* server = nullptr;
    unsigned long error = 0;
    EXPECT_EQ(list_.AddServer(&config_, jar, port, 512, "", &server, &error), 1);
    return server;
  }

  SCA_TikaConfigUser config_{nullptr, nullptr};
  SCA_TikaServerList list_;
  const ReportCapture reports_;
};

TEST_F(TikaServerList, GivesIdsAndCountsChanges) {
  SCA_TikaServer* first = Add(9998);
  EXPECT_EQ(Add(9998, "other.jar"), first);
  EXPECT_STREQ(first->GetFileName(), "tika.jar");
  EXPECT_EQ(list_.GetServersStatusId(), 1U);
  Add(9999);
  Add(10000);
  EXPECT_EQ(list_.DeleteServer(1), 1);
  EXPECT_EQ(list_.DeleteServer(1), 0);
  EXPECT_EQ(list_.GetServersStatusId(), 4U);
  EXPECT_EQ(Add(10001)->GetServerId(), 3U) << "an id is not given again";
  SCA_TikaServer* taken = nullptr;
  ASSERT_EQ(list_.TakeServer(2, &taken), 1);
  const SCA_Owned<SCA_TikaServer> owned(taken);
  EXPECT_EQ(taken->GetPortNumber(), 10000);
  EXPECT_EQ(list_.GetServersStatusId(), 6U);
  EXPECT_EQ(list_.ClearAll(), 1);
  EXPECT_EQ(list_.GetServersStatusId(), 0U);
  EXPECT_EQ(Add(9998)->GetServerId(), 0U);
}

TEST_F(TikaServerList, RefusesWhatNoServerCanHold) {
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
    EXPECT_EQ(list_.AddServer(&config_, row.jar, 1, row.heap, row.options, &server, &error), 0);
    EXPECT_EQ(error, row.code) << row.jar;
    EXPECT_EQ(reports_.All().back().text,
              "SCA_TikaServerList::AddServer: cannot set Tika server configuration");
  }
  EXPECT_EQ(list_.Count() + list_.GetServersStatusId(), 0U);
}

TEST_F(TikaServerList, CountsByStateAndShows) {
  ::testing::internal::CaptureStdout();
  list_.Show();
  unsigned short port = 1;
  for (const unsigned long status : {SCA_ServerError, SCA_ServerPending, SCA_ServerActive}) {
    SCA_TikaServer* server = Add(port++);
    server->SetProcessStatus(status);
    server->SetMemoryUsage(1ULL << 32);
    if (port == 2) list_.Show();
  }
  list_.Show();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "No Tika Servers to display.\n"
            "1 Tika Server:\n\n0 - Port: 1 - File Name: tika.jar\n"
            "3 Tika Servers:\n\n0 - Port: 1 - File Name: tika.jar\n"
            "1 - Port: 2 - File Name: tika.jar\n2 - Port: 3 - File Name: tika.jar\n");
  unsigned long counts[4] = {9, 9, 9, 9};
  EXPECT_EQ(list_.GetStats(&counts[0], &counts[1], &counts[2], &counts[3]), 1);
  EXPECT_EQ(counts[0] * 1000 + counts[1] * 100 + counts[2] * 10 + counts[3], 101U);
  EXPECT_EQ(list_.GetMemoryUsage(), 3ULL << 32);
  SCA_TikaServer* server = nullptr;
  EXPECT_EQ(list_.GetServer(static_cast<unsigned short>(2), 511UL, &server), 0);
  EXPECT_EQ(list_.GetServer(static_cast<unsigned short>(2), 512UL, &server), 1);
}

TEST_F(TikaServerList, ACopyHoldsOfflineServersWithTheirIds) {
  for (unsigned short port = 1; port <= 6; ++port) Add(port);
  for (const unsigned long id : {0UL, 1UL, 3UL, 4UL}) list_.DeleteServer(id);
  SCA_ConfigObj object("List", nullptr);
  ASSERT_EQ(list_.Serialize(&object), 1);
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
  ASSERT_EQ(copy.AddServer(&config_, "", 99, 1, nullptr, &added, &error), 1);
  EXPECT_EQ(added->GetServerId(), 6U);

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
