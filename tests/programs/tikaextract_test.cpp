#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "tests/support/Program.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;

// Stands for a Tika server: gives a document back, refuses an empty one, and
// stops half-way where the document says so.
void Serve(ServerConnection& connection) {
  for (;;) {
    const std::string request = connection.ReceiveRequest();
    if (request.empty()) return;
    const std::string body = request.substr(request.find("\r\n\r\n") + 4);
    if (body.empty()) {
      connection.Send("HTTP/1.1 422 No\r\nContent-Length: 0\r\n\r\n");
    } else if (body == "half") {
      // More than the client collects before it hands text on.
      connection.Send(ChunkedReply(std::string(3 << 20, 'h'), 32768).substr(0, 2 << 20));
      connection.WaitForEnd();
      return;
    } else {
      connection.Send(ChunkedReply("text of " + body, 4096));
    }
  }
}

class TikaExtract : public ::testing::Test {
 protected:
  std::vector<std::string> WithServer(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(),
                     {"--server", "127.0.0.1:" + std::to_string(server_.Port())});
    return arguments;
  }
  // The journal aside.
  std::size_t CountFiles(const std::string& path) const {
    std::size_t files = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
      files += entry.path().filename() == ".tikaextract.journal" ? 0U : 1U;
    }
    return files;
  }

  TempDir dir_;
  ScriptedServer server_{Serve};
};

TEST_F(TikaExtract, PrintsTheTextsInTheOrderOfTheFiles) {
  const std::string first = dir_.Write("first.doc", "one\n");
  const std::string second = dir_.Write("second.doc", "two\n");
  for (const char* variant : {"1", "2", "3"}) {
    Program program("tikaextract", WithServer({"--variant", variant, second, first, second}));
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_EQ(program.Output(), "text of two\ntext of one\ntext of two\n");
    EXPECT_EQ(program.Error(), "");
  }
}

TEST_F(TikaExtract, WritesOneFileForEachDocument) {
  const std::string blank = dir_.Write("Übersicht 2026.docx", "a");
  const std::string name = dir_.Write("b.pdf", "b");
  const std::string out = dir_.File("new/texts");
  ::umask(022);
  Program program("tikaextract", WithServer({"-o", out, blank, name}));
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_EQ(program.Output(), "");
  EXPECT_EQ(ReadFile(out + "/Übersicht 2026.docx.txt"), "text of a");
  EXPECT_EQ(ReadFile(out + "/b.pdf.txt"), "text of b");
  EXPECT_EQ(CountFiles(out), 2U);
  EXPECT_EQ(fs::status(out + "/b.pdf.txt").permissions(), fs::perms{0644});
}

TEST_F(TikaExtract, FailureOfAFileIsOneLineAndTheOthersGoOn) {
  const std::string empty = dir_.Write("empty.doc", "");
  const std::string half = dir_.Write("half.doc", "half");
  const std::string good = dir_.Write("good.doc", "good");
  const std::string missing = dir_.File("missing.doc");
  const std::string out = dir_.File("out");
  Program program("tikaextract", WithServer({"--timeout", "1", "-o", out, empty, missing, half,
                                             dir_.Path(), good}));
  EXPECT_EQ(program.Wait(), 1);
  EXPECT_EQ(program.Error(),
            "tikaextract: " + empty +
                ": the server could not parse the document (HTTP 422); it is empty, encrypted or "
                "damaged: open it in its own program\n"
                "tikaextract: " +
                missing + ": No such file or directory; check the name\n" +  //
                "tikaextract: " + half +
                ": timed out; raise --timeout if the document is large\n"
                "tikaextract: " +
                dir_.Path() + ": Is a directory; name the files in it, or use -r\n");
  // Nothing is left of the one that stopped half-way.
  EXPECT_EQ(ReadFile(out + "/good.doc.txt"), "text of good");
  EXPECT_EQ(CountFiles(out), 1U);
}

TEST_F(TikaExtract, InterruptLeavesNoPartOfAFile) {
  const std::string half = dir_.Write("half.doc", "half");
  const std::string good = dir_.Write("good.doc", "good");
  const std::string out = dir_.File("out");
  for (const int number : {SIGINT, SIGTERM}) {
    Program program("tikaextract", WithServer({"-v", "-o", out, good, half, good + ".other"}));
    // The text aside shows that the extraction is under way.
    while (!fs::exists(out) || CountFiles(out) < 2) {
      ASSERT_EQ(program.Family().empty(), false) << program.Error();
    }
    program.Signal(number);
    EXPECT_EQ(program.Wait(), 128 + number);
    EXPECT_EQ(CountFiles(out), 1U);
    fs::remove_all(out);
  }
}

TEST_F(TikaExtract, WrongUseSaysWhatIsWrong) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
      {{}, "FILE is required"},
      {{"--variant", "4", "x"}, "--variant"},
      {{"--timeout", "0", "x"}, "--timeout"},
      {{"--timeout", "soon", "x"}, "--timeout"},
      {{"--java-heap", "1", "x"}, "--java-heap"},
      {{"--no-such-option", "x"}, "--no-such-option"},
      {{"--server", "", "x"}, "host:port"},
      {{"--server", "host", "x"}, "'host' is not host:port"},
      {{"--server", "host:0", "x"}, "'host:0' is not host:port"},
      {{"--server", "host:65536", "x"}, "'host:65536' is not host:port"},
      {{"--server", "host:-1", "x"}, "'host:-1' is not host:port"},
      {{"--server", ":80", "x"}, "':80' is not host:port"},
      {{"-o", dir_.Path(), "a/x.doc", "b/x.doc"}, "'a/x.doc' and 'b/x.doc'"},
      {{"-o", dir_.Write("file", "") + "/out", "x"}, "cannot create the directory"},
  };
  for (const auto& [arguments, complaint] : rows) {
    SCOPED_TRACE(complaint);
    Program program("tikaextract", arguments);
    EXPECT_EQ(program.Wait(), 2);
    EXPECT_EQ(program.Output(), "");
    EXPECT_NE(program.Error().find(complaint), std::string::npos) << program.Error();
  }
}

TEST_F(TikaExtract, HelpAndVersionGoToStandardOutput) {
  Program help("tikaextract", {"--help"});
  EXPECT_EQ(help.Wait(), 0);
  EXPECT_NE(help.Output().find("--java-heap"), std::string::npos);
  Program version("tikaextract", {"--version"});
  EXPECT_EQ(version.Wait(), 0);
  EXPECT_EQ(version.Output(), "tikaextract 17.1.12\n");
}

TEST_F(TikaExtract, NoServerIsStatusThreeAndSaysWhy) {
  const std::string file = dir_.Write("x.doc", "x");
  const std::string jar = dir_.Write("no.jar", "this is no jar");
  struct Row {
    std::vector<std::string> arguments;
    std::vector<std::string> environment;
    std::string complaint;
  };
  const std::vector<Row> rows = {
      {{"--server", "127.0.0.1:1", file}, {}, "no connection to 127.0.0.1:1: Connection refused"},
      {{"--server", "no-such-host.invalid:80", file}, {}, "the host name could not be resolved"},
      {{file}, {"TIKA_SERVER_JAR=" + dir_.File("missing.jar")}, "there is no Tika server jar"},
      {{file}, {"TIKA_SERVER_JAR=/a\"b.jar"}, "double quote"},
      {{"--jar", jar, file}, {"PATH=" + dir_.Path()}, "cannot start 'java': No such file"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.complaint);
    Program program("tikaextract", row.arguments, row.environment);
    EXPECT_EQ(program.Wait(), 3);
    EXPECT_NE(program.Error().find(row.complaint), std::string::npos) << program.Error();
  }
}

TEST_F(TikaExtract, ServerThatRefusesAFileBeforeItHasReadItIsQuoted) {
  ScriptedServer refusing([](ServerConnection& connection) {
    connection.ReceiveHeader();
    connection.Send("HTTP/1.1 413 Too Large\r\nContent-Length: 0\r\n\r\n");
  });
  const std::string large = dir_.Write("large.doc", std::string(1 << 26, 'x'));
  Program program("tikaextract",
                  {"--server", "127.0.0.1:" + std::to_string(refusing.Port()), large});
  EXPECT_EQ(program.Wait(), 1);
  EXPECT_EQ(program.Error(), "tikaextract: " + large +
                                 ": the server answered HTTP 413 before it had read the file\n");
}

}  // namespace
