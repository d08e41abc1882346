#include "host/SCA_TikaLog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <thread>
#include <tuple>
#include <vector>

#include "foundation/SCA_ConfigFile.h"
#include "host/SCA_TikaServer.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/TempDir.h"

namespace {

using Ids = std::vector<unsigned long>;

Ids IdsOf(SCA_TikaLog& log) {
  Ids ids;
  for (auto* node = log.GetMessageList()->GetHead(); node != nullptr; node = node->GetNext()) {
    ids.push_back(node->GetId());
  }
  return ids;
}

Ids IdsIn(const SCA_ConfigObj& object) {
  Ids ids;
  for (const SCA_Field* field = object.GetFields().GetHead(); field; field = field->GetNext()) {
    ids.push_back(std::stoul(field->GetName()));
  }
  return ids;
}

std::string Text(SCA_TikaLog& log, unsigned long position) {
  tagSCA_ERROR_DESCR* record = nullptr;
  return log.GetMessageByPos(position, &record) != 0 ? record->text : "(none)";
}

void Fill(SCA_TikaLog* log, int count) {
  for (int i = 0; i < count; ++i) EXPECT_EQ(log->AddMessage(3, "message %d", i), 1);
}

TEST(TikaLog, KeepsTheNewestUpToItsCapacityUntilItIsCleared) {
  for (const unsigned long capacity : {1UL, 2UL, 500UL}) {
    SCA_TikaLog log(nullptr, capacity, 0);
    Fill(&log, 5);
    const unsigned long kept = std::min(capacity, 5UL);
    ASSERT_EQ(log.GetMessageCount(), kept);
    for (unsigned long i = 0; i < kept; ++i) {
      EXPECT_EQ(IdsOf(log)[i], 5 - kept + i);
      EXPECT_EQ(Text(log, i), "message " + std::to_string(5 - kept + i));
    }
    log.AddMessage(5, "x");
    EXPECT_EQ(log.GetErrorCount(), 1U);
    EXPECT_EQ(log.Clear(), 1);
    EXPECT_EQ(log.GetErrorCount() + log.GetMessageCount() + log.GetSessionId(), 0U);
    EXPECT_EQ(log.GetLastMessageId(), SCA_NoItemId);
    Fill(&log, 1);
    EXPECT_EQ(log.GetLastMessageId(), 0U);
  }
  SCA_TikaLog none(nullptr, 0, 0);
  EXPECT_EQ(none.AddMessage(3, "x"), 0);
}

TEST(TikaLog, TextsFitAndCannotForgeLines) {
  SCA_TikaLog log(nullptr, 10, 0);
  const std::string euro = "\u20ac";
  const std::pair<std::string, std::string> rows[] = {
      {"100 %s %d", "100 %s %d"},
      {"a\nERR b\r\n\x01\tc\x7f", "a ERR b   \tc "},
      {std::string(260, 'x'), std::string(259, 'x')},
      {std::string(256, 'x') + euro, std::string(256, 'x') + euro},
      {std::string(257, 'x') + euro, std::string(257, 'x')},
      {std::string(9000, '\xff'), std::string(259, '\xff')}};
  for (const auto& [given, kept] : rows) {
    EXPECT_EQ(log.AddMessage(3, "%s", given.c_str()), 1);
    EXPECT_EQ(Text(log, log.GetMessageCount() - 1), kept);
  }
  tagSCA_ERROR_DESCR record{5, {}, {}, {}};
  std::memset(record.date, ' ', sizeof record.date);
  std::memset(record.text, '\n', sizeof record.text);
  EXPECT_EQ(log.AddMessage(&record, 99), 1);
  // Whatever has come in can be sent, and comes out as what it was.
  SCA_ConfigObj object("Log", nullptr);
  ASSERT_EQ(log.Serialize(&object, SCA_NoItemId, SCA_NoItemId), 1);
  std::vector<char> bytes(object.GetDataSize());
  unsigned long written = 0;
  unsigned long error = 0;
  EXPECT_EQ(SCA_WriteConfigBytes(object, bytes.data(), bytes.size(), &written, &error), 1);
  SCA_TikaLog copy(nullptr, 10, 0);
  EXPECT_EQ(copy.Deserialize(&object), 1);
  EXPECT_EQ(copy.GetMessageCount(), log.GetMessageCount() - 1) << "but the one of blanks";
}

TEST(TikaLog, SerializesARunThatEndsWithTheNewest) {
  SCA_TikaLog log(nullptr, 500, 0);
  Fill(&log, 5);
  constexpr unsigned long kNone = 0xFFFFFFFF;
  const std::tuple<unsigned long, unsigned long, Ids> rows[] = {
      {0, 3, {4}},    {1, kNone, {3, 4}}, {4, 4, {0, 1, 2, 3, 4}}, {5, 2, {3, 4}},
      {kNone, 4, {}}, {~0UL, 3, {4}},     {kNone, 0, {1, 2, 3, 4}}};
  for (const auto& [back, afterId, ids] : rows) {
    SCA_ConfigObj object("Log", nullptr);
    EXPECT_EQ(log.Serialize(&object, back, afterId), 1);
    EXPECT_EQ(IdsIn(object), ids) << back << ", " << afterId;
  }
}

TEST(TikaLog, ACopyHasTheSendersIdsAndCounts) {
  SCA_TikaLog log(nullptr, 500, 0);
  Fill(&log, 3);
  log.AddMessage(5, " an  error ");
  SCA_ConfigObj object("Log", nullptr);
  ASSERT_EQ(log.Serialize(&object, 1, 0), 1);
  SCA_TikaLog copy(nullptr, 500, 0);
  copy.AddMessage(5, "goes");
  ASSERT_EQ(copy.Deserialize(&object), 1);
  EXPECT_EQ(IdsOf(copy), Ids({2, 3}));
  EXPECT_EQ(Text(copy, 1), "an  error ");
  EXPECT_EQ(copy.GetLastMessageId(), 3U);
  EXPECT_EQ(copy.GetErrorCount(), 1U);
  EXPECT_EQ(copy.GetSessionId(), 0U);
  struct {
    const char *name, *value;
    int result;
    unsigned long lastId;
  } const rows[] = {
      {"5", "3 2026-01-01 10:00:00 x", 1, 5},   {"5", "3 2026-01-01 10:00:00", 1, SCA_NoItemId},
      {"5", "3 2026-01-01", 0, SCA_NoItemId},   {"5", nullptr, 0, SCA_NoItemId},
      {"5", "high a b x", 0, SCA_NoItemId},     {"4294967296", "3 a b x", 0, SCA_NoItemId},
      {"4294967295", "3 a b x", 1, 0},  // what has no id takes the next one
      {"5", "3 much-too-long-a-date b x", 1, 5}};
  for (const auto& row : rows) {
    SCA_ConfigObj received("Log", nullptr);
    received.AddField(row.name, row.value, 0);
    EXPECT_EQ(copy.Deserialize(&received), row.result) << row.name << ": " << row.value;
    EXPECT_EQ(copy.GetLastMessageId(), row.lastId) << row.value;
  }
  SCA_ConfigObj nested("Log", nullptr);
  nested.AddConfigObj("5");
  EXPECT_EQ(copy.Deserialize(&nested), 0);
}

TEST(TikaLog, IsAQueueWithoutALimit) {
  SCA_TikaLog log(nullptr, 2, 0);
  tagSCA_ERROR_DESCR* record = nullptr;
  EXPECT_EQ(log.PopMessage(&record), 0);
  const ReportCapture reports;
  EXPECT_EQ(log.PushMessage(static_cast<const char*>(""), 3UL, "x"), 0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(log.PushMessage(5, "message %d", i), 1);
  EXPECT_EQ(log.PushMessage("named", 3UL, "%s", "x"), 1);
  EXPECT_EQ(log.GetLastMessageId(), 3U);
  ASSERT_EQ(log.PopMessage(&record), 1);
  EXPECT_STREQ(record->text, "message 0");
  std::free(record);
  // An addition drops one message, named or not, and the new one has no name.
  for (int i = 0; i < 3; ++i) EXPECT_EQ(log.AddMessage(3, "added"), 1);
  EXPECT_EQ(IdsOf(log), Ids({4, 5, 6}));
  EXPECT_EQ(log.GetMessageList()->GetTail()->GetName(), nullptr);
}

TEST(TikaLog, FindsMessagesByIdAndLevel) {
  SCA_TikaLog log(nullptr, 500, 0);
  for (const unsigned long level : {3UL, 5UL, 3UL, 5UL}) {
    log.AddMessage(level, "%lu", log.GetMessageCount());
  }
  struct {
    unsigned long afterId, level;
    const char* text;  // null when there is none
  } const rows[] = {{0, SCA_AnyLevel, "1"}, {0, 3, "2"}, {1, 5, "3"}, {2, 3, nullptr}};
  for (const auto& row : rows) {
    tagSCA_ERROR_DESCR* record = nullptr;
    EXPECT_EQ(log.GetNextMessage(row.afterId, row.level, &record), row.text != nullptr ? 1 : 0);
    EXPECT_STREQ(record != nullptr ? record->text : nullptr, row.text);
  }
}

TEST(TikaLog, PlainTextForms) {
  const TempDir dir;
  const ReportCapture reports;
  SCA_TikaLog log(nullptr, 500, 0);
  for (const unsigned long level : {2UL, 3UL, 4UL, 5UL, 6UL}) log.AddMessage(level, "m%lu", level);
  std::vector<char> exact(25);
  ASSERT_EQ(log.GetDataLength(), exact.size());
  EXPECT_EQ(log.FillBuffer(exact.data(), 24), 0);
  EXPECT_EQ(log.FillBuffer(exact.data(), 25), 1);
  EXPECT_STREQ(exact.data(), "m2\nm3\nm4\nm5\nm6\n");
  tagSCA_ERROR_DESCR* first = nullptr;
  ASSERT_EQ(log.GetMessageByPos(0, &first), 1);
  const std::string stamp = std::string(" ") + first->date + " " + first->time + " ";
  const std::string lines =
      " I " + stamp + "m3\n W " + stamp + "m4\nERR" + stamp + "m5\nUNN" + stamp + "m6\n";
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(log.Show(), 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), lines);
  const std::string file = dir.Write("report.txt", std::string(1000, 'x'));
  EXPECT_EQ(log.SaveTextReport(file.c_str()), 1);
  EXPECT_EQ(ReadFile(file), " D " + stamp + "m2\n" + lines);
  EXPECT_EQ(log.SaveTrvReport(dir.File("report.trv").c_str()), 1);
  SCA_ConfigObj object("", nullptr);
  SCA_ConfigFileInfo info;
  unsigned long error = 0;
  ASSERT_EQ(SCA_LoadConfigFile(dir.File("report.trv").c_str(), &object, &info, &error), 1);
  EXPECT_EQ(info.fileType, 1011U);
  EXPECT_EQ(IdsIn(object), Ids({0, 1, 2, 3, 4}));
  for (const char* nowhere : {"none/report", "."}) {
    EXPECT_EQ(log.SaveTextReport(dir.File(nowhere).c_str()), 0);
    EXPECT_EQ(log.SaveTrvReport(dir.File(nowhere).c_str()), 0);
  }
}

TEST(TikaLog, DailyFilesGetWhatServersSay) {
  const TempDir dir;
  const ReportCapture reports;
  SCA_TikaConfigUser config(nullptr, nullptr);
  SCA_TikaServer server(nullptr);
  server.SetServerId(7);
  SCA_TikaLog log(&config, 500, 0);
  char name[40] = "tika_log_";
  const std::time_t now = std::time(nullptr);
  std::strftime(name + 9, 31, "%Y%m%d_7.txt", std::localtime(&now));
  ASSERT_EQ(config.SetTikaLogDir(dir.File("logs").c_str()), 1);
  log.AddMessage(&server, 3, "off");
  config.SetSaveTikaLog(1);
  EXPECT_EQ(log.AddMessage(&server, 3, "no directory"), 1);
  std::filesystem::create_directory(dir.File("logs"));
  log.AddMessage(&server, 5, "first");
  log.AddMessage(3, "of nobody");
  log.AddMessage(&server, 2, "second");

  const std::string path = dir.File("logs/" + std::string(name));
  const std::string lines = ReadFile(path);
  EXPECT_EQ(lines.substr(0, 4), "ERR ");
  EXPECT_NE(lines.find(" first\n D "), std::string::npos) << lines;
  EXPECT_EQ(lines.substr(lines.size() - 8), " second\n");
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  EXPECT_TRUE(reports.All().empty());
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  EXPECT_EQ(log.AddMessage(&server, 3, "kept all the same"), 1);
  EXPECT_EQ(reports.All().back().text, "SCA_TikaLog::SaveTikaLog: cannot open log file - " + path);
}

TEST(TikaLog, WritersReadersAndSerializersMeet) {
  SCA_TikaLog log(nullptr, 50, 0);
  std::vector<std::thread> threads;
  const auto play = [&threads](auto action) {
    threads.emplace_back([action] {
      for (int i = 0; i < 500; ++i) action(i);
    });
  };
  for (int i = 0; i < 2; ++i) play([&log](int number) { log.AddMessage(5, "added %d", number); });
  play([&log](int) { log.PushMessage(3, "pushed"); });
  play([&log](int) {
    tagSCA_ERROR_DESCR* record = nullptr;
    if (log.PopMessage(&record) != 0) std::free(record);
  });
  play([&log](int) {
    SCA_ConfigObj object("Log", nullptr);
    EXPECT_EQ(log.Serialize(&object, 20, SCA_NoItemId), 1);
    SCA_TikaLog copy(nullptr, 500, 0);
    EXPECT_EQ(copy.Deserialize(&object), 1);
  });
  play([&log](int number) {
    std::vector<char> buffer(200000);
    EXPECT_EQ(log.FillBuffer(buffer.data(), buffer.size()), 1);
    if (number % 100 == 0) log.Clear();
  });
  for (std::thread& thread : threads) thread.join();
  const Ids ids = IdsOf(log);
  EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
}

}  // namespace
