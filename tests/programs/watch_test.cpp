#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "faultlab/FaultServer.h"
#include "programs/common/Json.h"
#include "tests/support/Program.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

namespace fs = std::filesystem;

class Watch : public ::testing::Test {
 protected:
  Watch() { fs::create_directories(dir_.File("in")); }

  std::vector<std::string> Arguments(const std::vector<std::string>& more) const {
    std::vector<std::string> arguments{"--server", "127.0.0.1:" + std::to_string(server_.Port()),
                                       "-j2", "--watch", dir_.File("in")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  // Written elsewhere, and long ago: nobody may be writing to it any more.
  void MoveIn(const std::string& name, const std::string& content) const {
    const std::string aside = dir_.Write("aside", content);
    fs::last_write_time(aside, fs::last_write_time(aside) - std::chrono::hours(1));
    fs::rename(aside, dir_.File("in/" + name));
  }
  bool HasText(const std::string& name, const std::string& content) const {
    const std::string path = dir_.File("out/" + name + ".txt");
    return Eventually([&] { return fs::exists(path) && ReadFile(path) == "text of " + content; },
                      kDeadlineMs, 5);
  }

  TempDir dir_;
  std::atomic<bool> isSlow_{false};  // "first" is answered when it no longer is
  std::atomic<int> slowOnes_{0};
  const FaultServer server_{[this] {
    FaultServerOptions options;
    options.choose = [this](const DocumentHead& head) {
      if (head.bytes == "first") slowOnes_.fetch_add(1);
      EXPECT_TRUE(head.bytes != "first" || Eventually([&] { return !isSlow_; }));
      return FaultSpec();
    };
    return options;
  }()};
};

TEST_F(Watch, WhatComesAndChangesIsExtractedOnceAndAfterARestart) {
  const std::vector<std::string> arguments = Arguments({"-r", "-o", dir_.File("out")});
  MoveIn("early.pdf", "early");
  {
    Program program("tikaextract", arguments);
    ASSERT_TRUE(program.WaitForError("watching"));
    dir_.Write("in/written.pdf", "written");
    MoveIn("moved.pdf", "moved");
    dir_.Write("in/other.kind", "other");
    dir_.Write("in/link.pdf", "link");
    fs::create_hard_link(dir_.File("in/link.pdf"), dir_.File("in/hard.pdf"));
    dir_.Write("in/vanishing.pdf", "vanishing");
    fs::remove(dir_.File("in/vanishing.pdf"));
    fs::create_directories(dir_.File("in/a/b"));
    dir_.Write("in/a/b/deep.pdf", "deep");
    fs::create_directories(dir_.File("tree/c"));
    MoveIn("../tree/c/carried.pdf", "carried");
    fs::rename(dir_.File("tree"), dir_.File("in/tree"));
    for (const char* name : {"written", "moved", "hard", "a/b/deep", "tree/c/carried", "early"}) {
      const std::string content = name[0] == 'h' ? "link" : fs::path(name).filename().string();
      EXPECT_TRUE(HasText(std::string(name) + ".pdf", content)) << name << program.Error();
    }
    dir_.Write("in/written.pdf", "changed");
    EXPECT_TRUE(HasText("written.pdf", "changed"));
    // What happens in a folder that was moved away and back has its new name.
    fs::rename(dir_.File("in/tree"), dir_.File("tree"));
    fs::rename(dir_.File("tree"), dir_.File("in/wood"));
    EXPECT_TRUE(HasText("wood/c/carried.pdf", "carried"));
    MoveIn("wood/c/late.pdf", "late");
    EXPECT_TRUE(HasText("wood/c/late.pdf", "late"));
    program.Signal(SIGTERM);
    EXPECT_EQ(program.Wait(), 128 + SIGTERM);
    EXPECT_TRUE(Has(program.Error(), " 0 failed"));
  }
  EXPECT_FALSE(fs::exists(dir_.File("out/vanishing.pdf.txt")));
  EXPECT_TRUE(fs::exists(dir_.File("out/tree/c/carried.pdf.txt"))) << "texts stay";
  const int before = server_.Documents();
  MoveIn("early.pdf", "changed while nobody watched");
  Program again("tikaextract", arguments);
  EXPECT_TRUE(HasText("early.pdf", "changed while nobody watched"));
  EXPECT_EQ(server_.Documents(), before + 1) << "what has its text is not sent again";
}

TEST_F(Watch, FileThatChangesWhileItIsReadIsExtractedAgain) {
  isSlow_ = true;
  Program program("tikaextract", Arguments({"-o", dir_.File("out")}));
  ASSERT_TRUE(program.WaitForError("watching"));
  MoveIn("a.pdf", "first");
  MoveIn("gone.pdf", "first");
  ASSERT_TRUE(Eventually([&] { return slowOnes_ == 2; }));
  MoveIn("a.pdf", "second");
  fs::remove(dir_.File("in/gone.pdf"));
  isSlow_ = false;
  EXPECT_TRUE(HasText("a.pdf", "second"));
  std::string content;
  {
    std::ofstream growing(dir_.File("in/growing.pdf"));
    for (int i = 0; i < 40; ++i) {
      growing << "line " << i << std::endl;
      content += "line " + std::to_string(i) + "\n";
      ::poll(nullptr, 0, 5);
    }
  }
  EXPECT_TRUE(HasText("growing.pdf", content)) << program.Error();
  program.Signal(SIGINT);
  EXPECT_EQ(program.Wait(), 128 + SIGINT);
  EXPECT_TRUE(Has(program.Error(), "0 failed"));
}

TEST_F(Watch, WhatIsUnderWayWhenItEndsIsUntouched) {
  isSlow_ = true;
  const std::vector<std::string> arguments = Arguments({"-o", dir_.File("out")});
  {
    Program program("tikaextract", arguments);
    MoveIn("a.pdf", "first");
    ASSERT_TRUE(Eventually([&] { return slowOnes_ == 1; }));
    program.Signal(SIGTERM);
    EXPECT_EQ(program.Wait(), 128 + SIGTERM);
    EXPECT_TRUE(Has(program.Error(), "0 extracted, 0 failed"));
    EXPECT_FALSE(fs::exists(dir_.File("out/a.pdf.txt")));
  }
  isSlow_ = false;
  Program again("tikaextract", arguments);
  EXPECT_TRUE(HasText("a.pdf", "first"));
}

TEST_F(Watch, MoreEventsThanTheSystemKeepsLoseNothing) {
  Program program("tikaextract", Arguments({"-o", dir_.File("out")}));
  ASSERT_TRUE(program.WaitForError("watching"));
  program.Signal(SIGSTOP);
  unsigned most = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
  if (most > 200000) GTEST_SKIP() << "the system keeps too many";
  // Events that are alike are kept as one when they follow each other.
  const std::string names[] = {dir_.Write("in/0", ""), dir_.Write("in/1", "")};
  for (unsigned i = 0; i <= most; ++i) fs::permissions(names[i % 2], fs::perms::owner_all);
  MoveIn("last.pdf", "last");
  program.Signal(SIGCONT);
  EXPECT_TRUE(program.WaitForError("more has changed at once"));
  EXPECT_TRUE(HasText("last.pdf", "last"));
}

TEST_F(Watch, FolderThatGoesIsAwaited) {
  dir_.Write("in/.tikaignore", "private.pdf\n");
  dir_.Write("in/private.pdf", "private");
  Program program("tikaextract", Arguments({"--jsonl"}));
  ASSERT_TRUE(program.WaitForError("watching"));
  fs::rename(dir_.File("in"), dir_.File("former"));
  ASSERT_TRUE(program.WaitForError("is gone"));
  dir_.Write("former/unseen.pdf", "unseen");
  fs::create_directories(dir_.File("in"));
  MoveIn("a.pdf", "a");
  ASSERT_TRUE(program.WaitForError("is back"));
  const auto records = [&] { return Lines(program.Output()); };
  ASSERT_TRUE(Eventually([&] { return records().size() == 1; }));
  EXPECT_EQ(nlohmann::json::parse(records()[0])["text"], "text of a");
  // A rule that goes gives what it kept back.
  dir_.Write("in/.tikaignore", "b.pdf\n");
  MoveIn("b.pdf", "b");
  MoveIn("c.pdf", "c");
  ASSERT_TRUE(Eventually([&] { return Has(program.Output(), "text of c"); }));
  EXPECT_EQ(program.Output().find("text of b"), std::string::npos);
  fs::remove(dir_.File("in/.tikaignore"));
  EXPECT_TRUE(Eventually([&] { return Has(program.Output(), "text of b"); }));
}

TEST_F(Watch, WhatCannotBeWatchedIsSaid) {
  const std::string in = dir_.File("in");
  struct {
    std::vector<std::string> options;
    int status;
    const char* complaint;
  } const rows[] = {
      {{"--watch", in}, 2, "--watch needs -o or --jsonl"},
      {{"--watch", in, "--jsonl", "x"}, 2, "leave out FILE"},
      {{"--watch", in, "-o", in + "/../in"}, 2, "a directory of their own"},
      {{"--watch", in + "/no", "--jsonl"}, 1, "no': No such file"},
      {{"--watch", dir_.Write("file", ""), "--jsonl"}, 1, "it is no folder"},
  };
  for (const auto& row : rows) {
    std::vector<std::string> arguments = row.options;
    arguments.push_back("--server=127.0.0.1:" + std::to_string(server_.Port()));
    Program program("tikaextract", arguments);
    EXPECT_TRUE(Ends(program, row.status, row.complaint));
  }
}

}  // namespace
