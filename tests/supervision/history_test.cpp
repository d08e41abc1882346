#include "supervision/SCA_TikaDeathHistory.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "foundation/SCA_ConfigFile.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

namespace fs = std::filesystem;

// The numbers that a file holds.
std::string OnDisk(const std::string& file) {
  SCA_ConfigObj deaths("History", nullptr);
  SCA_ConfigFileInfo info;
  unsigned long error = 0;
  std::string names;
  if (SCA_LoadConfigFile(file.c_str(), &deaths, &info, &error) == 0) return names;
  for (const SCA_Field* field = deaths.GetFields().GetHead(); field; field = field->GetNext()) {
    if (SCA_ToConfigObj(field) != nullptr) names += std::string(field->GetName()) + " ";
  }
  return names;
}

TEST(TikaDeathHistory, OutlivesFailedSavesKillsAndDamage) {
  const TempDir dir;
  const std::string file = dir.File("history.trv");
  const ReportCapture reports;
  const auto block = [&] {
    fs::rename(file, file + ".away");
    fs::create_directory(file);
  };
  // As it was written before it had the next number.
  SCA_ConfigObj former("History", nullptr);
  former.AddConfigObj("7")->AddField(SCA_DeathFields::Number, 7, 0);
  unsigned long error = 0;
  ASSERT_EQ(SCA_SaveConfigFile(former, file.c_str(), SCA_FileTypeHistory, 1, &error), 1);
  {
    SCA_TikaDeathHistory history(file.c_str());
    EXPECT_EQ(history.Add(SCA_TikaDeath()), 1);
    ASSERT_TRUE(Eventually([&] { return OnDisk(file) == "7 8 "; }));
    block();
    EXPECT_EQ(history.Add(SCA_TikaDeath()), 1);
    EXPECT_TRUE(Eventually([&] { return !reports.All().empty(); }));
    fs::remove(file);
    ASSERT_TRUE(Eventually([&] { return OnDisk(file) == "7 8 9 "; })) << "tried again by itself";
    EXPECT_TRUE(Eventually([&] { return reports.All().back().level == SCA_LevelInfo; }));
    block();
    EXPECT_EQ(history.Add(SCA_TikaDeath()), 1);
    EXPECT_TRUE(Eventually([&] { return reports.All().back().level == SCA_LevelWarning; }));
    // The last save tells that it is through; a death comes right then.
    SCA_SetReportSink(
        [](void* context, unsigned long /*level*/, const char* /*source*/, int /*line*/,
           const char* /*text*/) {
          static_cast<SCA_TikaDeathHistory*>(context)->Add(SCA_TikaDeath());
        },
        &history);
    fs::remove(file);
  }
  SCA_SetReportSink(nullptr, nullptr);
  EXPECT_EQ(OnDisk(file), "7 8 9 10 11 ") << "at its end too";

  const pid_t killed = ::fork();
  if (killed == 0) {
    SCA_TikaDeathHistory history(file.c_str());
    block();
    history.Add(SCA_TikaDeath());
    ::_exit(0);  // with a number that was told and not saved
  }
  ::waitpid(killed, nullptr, 0);
  fs::remove(file);
  fs::rename(file + ".away", file);
  const auto addOne = [&] {
    SCA_TikaDeathHistory(file.c_str()).Add(SCA_TikaDeath());
    const std::string numbers = OnDisk(file);
    return std::stoull(numbers.substr(numbers.rfind(' ', numbers.size() - 2) + 1));
  };
  const unsigned long long afterKill = addOne();
  EXPECT_GT(afterKill, 12U);
  std::ofstream(file) << "nonsense";
  EXPECT_GT(addOne(), afterKill);
  EXPECT_TRUE(fs::exists(file + ".unreadable"));
}

}  // namespace
