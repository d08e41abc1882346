// Class archives as tikaextract makes and uses them, with a java of the tests' own: its release
// file says that it is version 17, it answers as tikafault does, writes an archive when it is told
// to stop, and refuses one that is damaged.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "tests/support/FreePort.h"
#include "tests/support/Program.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

namespace fs = std::filesystem;

constexpr char kJava[] = R"(#!/bin/sh
archive= port= last=
for word; do
  case $word in
    -XX:ArchiveClassesAtExit=*) archive=${word#*=} ;;
    -version) exit 0 ;;
  esac
  [ "$last" != -port ] || port=$word
  last=$word
done
case $JAVA_TOOL_OPTIONS in
  *SharedArchiveFile=*)
    used=${JAVA_TOOL_OPTIONS#*SharedArchiveFile=}
    case $(cat "${used%%\"*}") in
      classes) ;;
      deadly) exit 134 ;;
      broken) exit 255 ;;
      *) echo "[0.005s][error  ][cds] Not a valid shared archive file" >&2 ;;
    esac ;;
esac
[ -z "$archive" ] || [ ! -e ../hang ] || exec sleep 1000
trap 'kill $server; [ -z "$archive" ] || echo classes >"$archive"; exit 143' TERM
tikafault --port "$port" & server=$!
wait $server
)";

class ClassArchives : public ::testing::Test {
 protected:
  ClassArchives() {
    fs::create_directories(dir_.File("jdk/bin"));
    fs::create_directories(dir_.File("run"));
    dir_.Write("jdk/release", "JAVA_VERSION=\"17.0.15\"\n");
    dir_.Write("jdk/bin/java", kJava);
    ::chmod(dir_.File("jdk/bin/java").c_str(), 0755);
    dir_.Write("tika.jar", "jar");
    dir_.Write("a.doc", "a");
  }

  std::unique_ptr<Program> Run(const std::string& words) {
    const std::string command = "cd " + dir_.File("run") +
                                "; exec tikaextract --private --verbose --jar " +
                                dir_.File("tika.jar") + " " + words;
    const std::vector<std::string> variables = {
        "XDG_CACHE_HOME=" + dir_.File("cache"),
        "PATH=" + dir_.File("jdk/bin") + ":" SCA_BIN_DIR ":" + std::getenv("PATH")};
    return std::make_unique<Program>("/bin/sh", std::vector<std::string>{"-c", command}, variables);
  }

  const std::string& Place() const { return place_; }
  std::vector<std::string> Files(const std::string& extension) const {
    std::vector<std::string> files;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(Place(), ignored)) {
      if (entry.path().extension() == extension) files.push_back(entry.path());
    }
    return files;
  }
  testing::AssertionResult Extracts(const std::string& state, const std::string& words = "") {
    const auto run = Run(words + " ../a.doc");
    const auto ended = Ends(*run, 0, "class archive: " + state + "\n");
    EXPECT_TRUE(run->FamilyEndsWithin(120)) << ::testing::PrintToString(run->Family());
    return ended;
  }

  TempDir dir_;
  std::string place_ = dir_.File("cache/sca_tika/class-archives");
};

TEST_F(ClassArchives, EndOfARunMakesOneAndTheNextUsesIt) {
  EXPECT_TRUE(Extracts("off", "--no-class-archive"));
  EXPECT_TRUE(Files(".jsa").empty());
  EXPECT_TRUE(Extracts("none yet"));
  EXPECT_EQ(Files(".jsa").size(), 1U);
  EXPECT_FALSE(fs::exists(Place() + "/work"));
  EXPECT_TRUE(Extracts("used"));
  // An archive is code: where others may change it, it is not used.
  fs::permissions(Files(".jsa").front(), fs::perms(0666));
  EXPECT_TRUE(Extracts("none yet"));
}

TEST_F(ClassArchives, RefusedOneIsThrownAwayAndMadeAgainLater) {
  EXPECT_TRUE(Ends(*Run("--make-class-archive"), 0));
  for (const char* damage : {"damaged", "deadly", "broken"}) {
    SCOPED_TRACE(damage);
    ASSERT_EQ(Files(".jsa").size(), 1U);
    dir_.Write("damage", damage);
    fs::rename(dir_.File("damage"), Files(".jsa").front());
    // A JVM that dies of it is started again without it.
    EXPECT_TRUE(Extracts(damage[1] == 'a' ? "refused" : "none yet"));
    EXPECT_TRUE(Files(".jsa").empty());
    // At once it would only be refused again.
    EXPECT_TRUE(Extracts("none yet"));
    EXPECT_TRUE(Files(".jsa").empty());
    ASSERT_EQ(Files(".failed").size(), 1U);
    const auto now = fs::file_time_type::clock::now();
    fs::last_write_time(Files(".failed").front(), now - std::chrono::minutes(61));
    EXPECT_TRUE(Extracts("none yet"));
    EXPECT_TRUE(Files(".failed").empty());
  }
}

TEST_F(ClassArchives, OneProcessTrainsAndNothingOutlivesItsDeath) {
  dir_.Write("hang", "");
  const auto first = Run("--make-class-archive");
  ASSERT_TRUE(Eventually([&] { return fs::exists(Place() + "/work/train-timetable-de.xls"); }));
  EXPECT_TRUE(Ends(*Run("--make-class-archive"), 1, "another process is making one"));
  EXPECT_TRUE(Extracts("none yet"));  // and nothing is started that would only find the lock
  first->Signal(SIGKILL);
  EXPECT_TRUE(first->FamilyEndsWithin(5)) << ::testing::PrintToString(first->Family());
  fs::remove(dir_.File("hang"));
  EXPECT_TRUE(Ends(*Run("--make-class-archive"), 0));
  EXPECT_EQ(Files(".jsa").size(), 1U);
  EXPECT_FALSE(fs::exists(Place() + "/work"));
}

TEST_F(ClassArchives, HostMakesOneInTheBackgroundAndItsNextStartUsesIt) {
  const std::vector<std::string> variables = {
      "XDG_CONFIG_HOME=" + dir_.Path(),
      "PATH=" + dir_.File("jdk/bin") + ":" SCA_BIN_DIR ":" + std::getenv("PATH")};
  const Program host(
      "tikasvc",
      {"--config", dir_.File("root.trv"), "--control-port", "0", "--jar", dir_.File("tika.jar"),
       "--heap", "64", "--first-port", std::to_string(FreePort())},
      variables);
  const auto control = [&](const std::vector<std::string>& words) {
    Program program("tikactl", words, variables);
    return program.Wait() == 0 ? program.Output() : program.Error();
  };
  place_ = dir_.File("Tika Service/data/class-archives");
  ASSERT_TRUE(Eventually([&] { return Files(".jsa").size() == 1; })) << host.Error();
  EXPECT_TRUE(Has(control({"servers"}), "none yet"));
  control({"suspend", "--wait", "10"});
  control({"start", "0", "--wait", "10"});
  EXPECT_TRUE(Has(control({"servers"}), " used "));
}

TEST_F(ClassArchives, CacheThatTakesNoneIsNoError) {
  dir_.Write("cache", "a file is in the way");
  EXPECT_TRUE(Extracts("none yet"));
  EXPECT_TRUE(Ends(*Run("--make-class-archive"), 1, "cannot make a class archive in "));
  fs::remove(dir_.File("cache"));
  fs::create_directory(dir_.File("cache"));
  const SmallDisk disk(dir_.File("cache"), 64);
  if (!disk.IsMounted()) GTEST_SKIP() << "this account cannot mount a disk";
  EXPECT_TRUE(Extracts("none yet"));
  EXPECT_TRUE(Ends(*Run("--make-class-archive"), 1, "No space left"));
  EXPECT_TRUE(Files(".jsa").empty());
}

}  // namespace
