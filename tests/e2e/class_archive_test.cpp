// A class archive that a real Java makes of a real Tika server: both JVMs of the server begin with
// it, at its restart after a kill too.

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "platform/SCA_Error.h"
#include "platform/SCA_FreePort.h"
#include "supervision/SCA_TikaWatch.h"
#include "tests/e2e/jars.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

namespace fs = std::filesystem;

constexpr unsigned long kReadyMs = 60000;

// Lines of the log that hold a text, of a level.
long CountLines(SCA_TikaServer* server, const std::string& level, const std::string& text) {
  SCA_ConfigObj object("Log", nullptr);
  server->GetLog()->Serialize(&object, SCA_NoItemId, SCA_NoItemId);
  long count = 0;
  for (const SCA_Field* field = object.GetFields().GetHead(); field; field = field->GetNext()) {
    const std::string line = field->GetValue();
    if (line.rfind(level, 0) == 0 && line.find(text) != std::string::npos) ++count;
  }
  return count;
}

// As a bad disk does: the head is whole, of the classes a byte here and there is wrong.
void DamageArchive(const std::string& directory) {
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (entry.path().extension() != ".jsa") continue;
    fs::permissions(entry.path(), fs::perms(0600));
    std::fstream file(entry.path(), std::ios::in | std::ios::out | std::ios::binary);
    const auto size = static_cast<long>(fs::file_size(entry.path()));
    for (long at = size / 10; at < size; at += size / 400) file.seekp(at).put('Z');
  }
}

TEST(RealClassArchive, EveryJvmOfAServerBeginsWithItAfterAKillToo) {
  const TempDir dir;
  // Java tells what it maps; that is no other archive.
  const SCA_TikaLaunch launch{CachedJar("tika-server-standard-3.3.2.jar"), "-Xlog:cds=info:stderr",
                              300};
  SCA_ClassArchive archive(dir.File("archives").c_str());
  unsigned long error = 0;
  ASSERT_EQ(archive.Make(launch, nullptr, &error), 1) << SCA_ErrorText(error);

  SCA_TikaConfigUser config(nullptr, nullptr);
  SCA_TikaServer server(&config);
  SCA_TikaWatchRules rules;
  rules.archive = &archive;
  rules.purpose = SCA_JvmPurpose::Run;
  SCA_TikaWatch watch(&server, rules);
  ASSERT_EQ(server.SetBindAddress("127.0.0.1"), 1);
  ASSERT_EQ(server.SetConfig(launch.fileName.c_str(), SCA_FindFreePort(), launch.heapSize,
                             launch.javaOptions.c_str(), &error),
            1);
  ASSERT_EQ(watch.Start(&error), 1) << SCA_ErrorText(error);
  for (long starts = 1; starts <= 2; ++starts) {
    ASSERT_EQ(watch.WaitReady(kReadyMs, nullptr, &error), 1) << SCA_ErrorText(error);
    SCA_TikaWatchState state;
    ASSERT_EQ(watch.GetState(&state), 1);
    EXPECT_EQ(state.archive, SCA_ClassArchiveState::Used);
    EXPECT_EQ(CountLines(&server, "3", "Mapped dynamic region #0"), 2 * starts);
    const auto process = static_cast<pid_t>(server.GetProcessId());
    if (starts == 1) ::kill(process, SIGKILL);
    if (starts == 1) {
      ASSERT_TRUE(Eventually([&] {
        const unsigned long now = server.GetProcessId();
        return now != 0 && now != static_cast<unsigned long>(process);
      }));
    }
  }
  EXPECT_EQ(CountLines(&server, "4", "[cds"), 0);
  EXPECT_EQ(CountLines(&server, "5", "[cds"), 0);

  // A damaged one is refused before a JVM takes a class from it, and none dies of it.
  watch.Stop();
  DamageArchive(dir.File("archives"));
  ASSERT_EQ(watch.Start(&error), 1) << SCA_ErrorText(error);
  ASSERT_EQ(watch.WaitReady(kReadyMs, nullptr, &error), 1) << SCA_ErrorText(error);
  SCA_TikaWatchState state;
  ASSERT_EQ(watch.GetState(&state), 1);
  EXPECT_EQ(state.archive, SCA_ClassArchiveState::Refused);
  EXPECT_EQ(state.restarts + state.workerDeaths, 0U);
  EXPECT_EQ(archive.IsWanted(launch), false);  // within the hour
}

}  // namespace
