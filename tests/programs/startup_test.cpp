// How every program starts, fails and speaks, whatever it was started with.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "faultlab/FaultServer.h"
#include "tests/support/Program.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

namespace fs = std::filesystem;

class Startup : public ::testing::Test {
 protected:
  std::string Server() const { return "127.0.0.1:" + std::to_string(server_.Port()); }
  // Runs a script that ends in one of the programs.
  std::vector<std::string> Script(const std::string& script) const {
    return {"-c", "cd " + dir_.Path() + "; PATH=" SCA_BIN_DIR ":$PATH; " + script};
  }

  TempDir dir_;
  FaultServer server_;
};

TEST_F(Startup, ClosedDescriptorsAreNeverThoseOfFilesAndConnections) {
  dir_.Write("a.doc", "a");
  dir_.Write("b.doc", "b");
  const std::string extract = "exec tikaextract --server " + Server() + " ";
  const std::pair<std::string, int> rows[] = {
      {extract + "a.doc b.doc 1>&-", 1},
      {extract + "a.doc b.doc 0<&- 1>&- 2>&-", 1},
      {extract + "--jsonl a.doc b.doc 1>/dev/full", 1},
      {extract + "--files-from - 0<&-", 1},
      {extract + "-o out a.doc b.doc 0<&- 1>&- 2>&-", 0},
      {"exec tikafault --version 1>&-", 1},
      {"exec tikafault --port 0 1>&-", 1},
      {"exec tikactl --help 1>/dev/full", 1},
      {"exec tikasvc --version 0<&- 1>&-", 1},
      {"exec scaconf --help 1>&-", 1},
      // The port is taken, which is found when the lock has been taken.
      {"XDG_CONFIG_HOME=$PWD exec tikasvc --config $PWD/root.trv --control-port " +
           std::to_string(server_.Port()) + " 0<&- 1>&- 2>&-",
       4},
  };
  for (const auto& [script, status] : rows) {
    SCOPED_TRACE(script);
    Program program("/bin/sh", Script(script));
    EXPECT_EQ(program.Wait(), status);
    const bool isSilent = status == 0 || script.find("2>&-") != std::string::npos;
    EXPECT_EQ(program.Error().empty(), isSilent) << program.Error();
  }
  EXPECT_EQ(server_.Strange(), 0) << "a connection was standard output";
  EXPECT_EQ(ReadFile(dir_.File("out/b.doc.txt")), "text of b");
  const std::string lock = ReadFile(dir_.File("Tika Service/data/tikasvc.lock"));
  EXPECT_EQ(lock.find_first_not_of("0123456789\n"), std::string::npos) << lock;
}

TEST_F(Startup, IgnoredChildrenAreWatchedAllTheSame) {
  dir_.Write("java", "#!/bin/sh\necho what java said\nexit 7\n");
  ::chmod(dir_.File("java").c_str(), 0755);
  Program program("/bin/sh",
                  Script("PATH=$PWD:$PATH; exec env --ignore-signal=CHLD tikaextract --jar " +
                         dir_.Write("a.jar", "") + " a.doc"));
  EXPECT_TRUE(Ends(program, 3, "ended with exit status 7; its last lines:\n"));
  EXPECT_TRUE(Has(program.Error(), "what java said"));
}

TEST_F(Startup, WhatTheSystemRefusesIsOneLine) {
  fs::create_directory_symlink("loop", dir_.File("loop"));
  dir_.Write("list", "sub/a.doc\n");
  fs::create_directory(dir_.File("sub"));
  dir_.Write("sub/a.doc", "a");
  const std::string extract = "exec tikaextract --server " + Server() + " ";
  fs::create_directory(dir_.File("out"));
  fs::create_directory_symlink("sub", dir_.File("out/sub"));
  const std::string deleted = "mkdir gone; cd gone; rmdir ../gone; ";
  const std::string longName(300, 'n');
  struct {
    std::string script;
    int status;
    std::string complaint;
  } const rows[] = {
      {extract + "-o " + longName + " sub/a.doc", 2, "File name too long"},
      {extract + "-o loop/out sub/a.doc", 2, "Too many levels of symbolic links"},
      {extract + "-r -o " + dir_.File("out2") + "/" + longName + " sub", 2, "File name too long"},
      {deleted + extract + "-o out a.doc", 2, "No such file or directory"},
      {deleted + extract + "-o " + dir_.File("out2") + " -r . a.doc", 1, "a.doc: No such file"},
      {deleted + "echo ../a.doc | " + extract + "-o " + dir_.File("out2") + " --files-from -", 1,
       "../a.doc: No such file"},
      {extract + "-o out --files-from list", 1, "Too many levels of symbolic links"},
      {"exec tikaextract --jar loop/tika.jar sub/a.doc", 3, "Too many levels of symbolic links"},
      {"exec tikaextract --jar " + longName + " sub/a.doc", 3, "File name too long"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.script);
    Program program("/bin/sh", Script(row.script));
    EXPECT_TRUE(Ends(program, row.status, row.complaint));
    EXPECT_EQ(program.Error().find("terminate"), std::string::npos) << program.Error();
  }
}

// A list that says nothing for a while is a wait, and no end.
TEST_F(Startup, ASignalEndsTheWaitForAList) {
  dir_.Write("a.doc", "a");
  const std::string fifo = dir_.File("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const std::string extract = "exec tikaextract --server " + Server() + " -o out --files-from ";
  for (const std::string from : {"- <>fifo", "fifo"}) {
    SCOPED_TRACE(from);
    fs::remove_all(dir_.File("out"));
    Program program("/bin/sh", Script(extract + from));
    int writer = -1;
    EXPECT_TRUE(
        Eventually([&] { return (writer = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK)) >= 0; }));
    EXPECT_EQ(::write(writer, "a.doc\nb", 7), 7);
    EXPECT_TRUE(Eventually([&] { return fs::exists(dir_.File("out/a.doc.txt")); }));
    program.Signal(SIGTERM);
    EXPECT_EQ(program.Wait(), 128 + SIGTERM);
    EXPECT_EQ(program.Error().find("b:"), std::string::npos) << program.Error();
    ::close(writer);
  }
}

TEST_F(Startup, ListsAreReadToTheirEndHoweverTheyCome) {
  dir_.Write("a.doc", "a");
  dir_.Write("b.doc", "b");
  const std::string longLine(200000, 'x');
  dir_.Write("long", "a.doc\n" + longLine + "\nb.doc\n");
  const std::string extract = "tikaextract --server " + Server() + " --files-from ";
  struct {
    std::string script;
    int status;
    std::string output;
    std::string complaint;
  } const rows[] = {
      {"(printf a.d; printf 'oc\\n\\n\\n'; printf b.doc) | " + extract + "-", 0,
       "text of atext of b", "2 extracted, 0 failed"},
      {"printf 'b.doc\\0a.doc\\0' | " + extract + "/dev/stdin -0", 0, "text of btext of a",
       "2 extracted, 0 failed"},
      {extract + "long", 1, "text of a", "long: cannot read the list: an entry is longer"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.script);
    Program program("/bin/sh", Script(row.script));
    EXPECT_EQ(program.Wait(), row.status);
    EXPECT_EQ(program.Output(), row.output);
    EXPECT_TRUE(Has(program.Error(), row.complaint));
  }
}

// Who watches the progress has documents counted beforehand, which would use up a pipe.
TEST_F(Startup, APipeIsReadOnceOnATerminalToo) {
  dir_.Write("a.doc", "a");
  const std::string run = "echo a.doc | tikaextract -o out --files-from /dev/stdin --server ";
  Program program("/bin/sh", Script("script -qec '" + run + Server() + "' /dev/null"));
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_TRUE(Has(program.Output(), "1 extracted, 0 failed"));
}

TEST_F(Startup, NamesCannotSpeakToTheTerminal) {
  const std::string evil = "\x1b[31m\xE2\x80\xAE\nforged";
  const std::string shown = "\\x1B[31m\\xE2\\x80\\xAE\\nforged";
  const std::string file = dir_.Write("a.doc", "a");
  const std::vector<std::string> rows[] = {
      {"tikaextract", "--server", Server(), evil},
      {"tikaextract", "-v", "--server", Server(), evil},
      {"tikaextract", "--server", evil, file},
      {"tikaextract", "--variant", evil, file},
      {"tikaextract", "--" + evil, file},
      {"tikaextract", "-o", file + "/" + evil, file},
      {"tikaextract", "-o", dir_.File("out"), "a/" + evil, "b/" + evil},
      {"tikaextract", "--files-from", evil},
      {"tikaextract", "--settings", evil, file},
      {"tikaextract", "--save-settings", dir_.File("no/" + evil), "--server", Server(), file},
      {"tikaextract", "--server", Server(), "--key", evil, file},
      {"tikaextract", "--jar", evil, file},
      {"tikactl", "-H", evil + ":", "status"},
      {"tikactl", "--key", evil, "status"},
      {"tikactl", "status", evil},
      {"tikasvc", "--tika-bind", evil},
      {"tikasvc", "--metrics", evil},
      {"scaconf", evil},
  };
  for (const std::vector<std::string>& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row));
    Program program(row.front(), {row.begin() + 1, row.end()}, {"XDG_CONFIG_HOME=" + dir_.Path()});
    EXPECT_NE(program.Wait(), 0);
    const std::string error = program.Error();
    EXPECT_TRUE(Has(error, shown));
    EXPECT_EQ(error.find('\x1b'), std::string::npos);
    EXPECT_EQ(error.find("\nforged"), std::string::npos) << error;
  }
}

}  // namespace
