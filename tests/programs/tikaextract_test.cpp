#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <tuple>

#include "programs/common/Json.h"
#include "settings/SCA_TikaConfigOrv.h"
#include "tests/support/Program.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

namespace fs = std::filesystem;

// A slow document is answered when so many others have been.
constexpr int kQuickOnes = 20;
std::atomic<int> quickOnes{0};

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
    } else if (body.rfind("slow", 0) == 0) {
      EXPECT_TRUE(Eventually([] { return quickOnes.load() >= kQuickOnes; }));
      connection.Send(ChunkedReply("text of " + body, 4096));
    } else {
      connection.Send(ChunkedReply("text of " + body, 4096));
      quickOnes.fetch_add(1);
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
  // Longer than what is kept in memory.
  const std::string content(1 << 20, 'l');
  const std::string large = dir_.Write("large.doc", content);
  for (const char* variant : {"1", "2", "3"}) {
    Program program("tikaextract",
                    WithServer({"--variant", variant, second, large, first, second}));
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_EQ(program.Output(), "text of two\ntext of " + content + "text of one\ntext of two\n");
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

// Texts that differ in everything but their order are compared as lines.
std::vector<std::string> SortedLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  return lines;
}

TEST_F(TikaExtract, DirectoriesAndListsAreMirroredUnderTheOutput) {
  fs::create_directories(dir_.File("in/deep/er"));
  fs::create_directories(dir_.File("other"));
  dir_.Write("in/a.pdf", "a");
  dir_.Write("in/b.txt", "b");
  dir_.Write("in/deep/er/c.DOCX", "c");
  dir_.Write("in/deep/noext", "d");
  dir_.Write("other/a.pdf", "e");
  const std::string list = dir_.Write("list", dir_.File("in/a.pdf") + "\n\nother/../other/a.pdf\n");
  const std::string zeros =
      dir_.Write("zeros", dir_.File("in/a.pdf") + std::string(1, '\0') + "in/deep/noext");
  const std::string full = dir_.File("in/a.pdf").substr(1);
  struct Row {
    std::vector<std::string> arguments;
    std::vector<std::string> texts;
  };
  Row rows[] = {
      {{"-r", "in/"}, {"a.pdf.txt", "deep/er/c.DOCX.txt"}},
      {{"-r", "in", "other", "in/b.txt"},
       {"b.txt.txt", "in/a.pdf.txt", "in/deep/er/c.DOCX.txt", "other/a.pdf.txt"}},
      {{"-r", "--ext", ".txt,odt", "in"}, {"b.txt.txt"}},
      {{"--files-from", list}, {full + ".txt", "other/a.pdf.txt"}},
      {{"--files-from", zeros, "-0"}, {full + ".txt", "in/deep/noext.txt"}},
  };
  const std::string out = dir_.File("out");
  fs::current_path(dir_.Path());
  for (Row& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.arguments));
    fs::remove_all(out);
    std::vector<std::string> arguments = WithServer(row.arguments);
    arguments.insert(arguments.end(), {"-o", out});
    Program program("tikaextract", arguments);
    EXPECT_EQ(program.Wait(), 0) << program.Error();
    std::vector<std::string> texts;
    for (const auto& entry : fs::recursive_directory_iterator(out)) {
      if (entry.path().extension() == ".txt") {
        texts.push_back(entry.path().lexically_relative(out).string());
      }
    }
    std::sort(texts.begin(), texts.end());
    std::sort(row.texts.begin(), row.texts.end());
    EXPECT_EQ(texts, row.texts);
    EXPECT_NE(program.Error().find(std::to_string(texts.size()) + " extracted, 0 failed"),
              std::string::npos)
        << program.Error();
  }
  fs::current_path("/");
}

TEST_F(TikaExtract, RecordsHoldEverythingWhateverTheBytes) {
  const std::string bad = dir_.Write(
      "b\xE4"
      "d.doc",
      "\xFF\"");
  const std::string empty = dir_.Write("empty.doc", "");
  Program program("tikaextract", WithServer({"--jsonl", bad, empty, dir_.File("missing.doc")}));
  EXPECT_EQ(program.Wait(), 1);
  std::vector<nlohmann::json> records;
  std::istringstream stream(program.Output());
  for (std::string line; std::getline(stream, line);) {
    records.push_back(nlohmann::json::parse(line));
  }
  ASSERT_EQ(records.size(), 3U);
  const std::string server = "127.0.0.1:" + std::to_string(server_.Port());
  EXPECT_EQ(records[0]["path"], dir_.File("b\uFFFDd.doc"));
  EXPECT_TRUE(records[0].contains("pathBase64"));
  EXPECT_EQ(records[0]["text"], "text of \uFFFD\"");
  EXPECT_EQ(records[0]["textBase64"], "dGV4dCBvZiD/Ig==");
  EXPECT_EQ(records[0]["textLength"], 10);
  EXPECT_EQ(records[0]["size"], 2);
  EXPECT_EQ(records[0]["outcome"], "extracted");
  EXPECT_EQ(records[0]["server"], server);
  EXPECT_TRUE(records[0]["error"].is_null());
  EXPECT_TRUE(records[0]["milliseconds"].is_number());
  EXPECT_EQ(records[1]["outcome"], "refused");
  EXPECT_FALSE(records[1].contains("text"));
  EXPECT_EQ(records[2]["outcome"], "file failed");
  EXPECT_EQ(records[2]["error"], "No such file or directory; check the name");
}

TEST_F(TikaExtract, TextsComeInTheOrderOfTheFilesUnlessItDoesNotMatter) {
  ScriptedServer other(Serve);
  const std::string slow = dir_.Write("slow.doc", "slow\n");
  std::vector<std::string> arguments{"--server", "127.0.0.1:" + std::to_string(other.Port()), slow};
  std::string expected = "text of slow\n";
  for (int i = 0; i < kQuickOnes; ++i) {
    const std::string name = std::to_string(i);
    arguments.push_back(dir_.Write(name, name + "\n"));
    expected += "text of " + name + "\n";
  }
  quickOnes = 0;
  Program ordered("tikaextract", WithServer(arguments));
  EXPECT_EQ(ordered.Wait(), 0);
  EXPECT_EQ(ordered.Output(), expected);
  arguments.push_back("--unordered");
  quickOnes = 0;
  Program unordered("tikaextract", WithServer(arguments));
  EXPECT_EQ(unordered.Wait(), 0);
  const std::string last = "text of slow\n";
  EXPECT_EQ(unordered.Output().rfind(last), unordered.Output().size() - last.size());
  EXPECT_EQ(SortedLines(unordered.Output()), SortedLines(expected));
}

TEST_F(TikaExtract, TextOfAServerThatDiesIsPrintedOnce) {
  ScriptedServer dying([](ServerConnection& connection) {
    if (connection.ReceiveRequest().empty()) return;
    connection.Send(ChunkedReply(std::string(3 << 20, 'h'), 32768).substr(0, 2 << 20));
  });
  // The other server waits until this one has had its chance.
  ScriptedServer good([&](ServerConnection& connection) {
    EXPECT_TRUE(Eventually([&] { return dying.Connections() > 0; }));
    Serve(connection);
  });
  std::vector<std::string> arguments;
  for (const ScriptedServer* server : {&dying, &good}) {
    arguments.push_back("--server");
    arguments.push_back("127.0.0.1:" + std::to_string(server->Port()));
  }
  std::string expected;
  for (int i = 0; i < 10; ++i) {
    const std::string body = "document " + std::to_string(i) + "\n";
    arguments.push_back(dir_.Write(std::to_string(i), body));
    expected += "text of " + body;
  }
  Program program("tikaextract", arguments);
  EXPECT_EQ(program.Wait(), 0) << program.Error();
  EXPECT_EQ(program.Output(), expected);
}

TEST_F(TikaExtract, ResumedRunDoesWhatIsLeft) {
  const std::string out = dir_.File("out");
  fs::create_directories(dir_.File("in"));
  const std::string first = dir_.Write("in/first.doc", "first");
  const std::string gone = dir_.Write("in/gone.doc", "gone");
  dir_.Write("in/empty.doc", "");
  dir_.Write("in/half.doc", "half");
  const std::vector<std::string> arguments =
      WithServer({"--timeout", "1", "-r", dir_.File("in"), "-o", out});
  std::vector<std::string> resuming = arguments;
  resuming.push_back("--resume");
  const auto summary = [](const std::vector<std::string>& words) {
    Program program("tikaextract", words);
    program.Wait();
    const std::string error = program.Error();
    const std::size_t begin = error.rfind("files: ");
    return begin == std::string::npos ? error : error.substr(begin, error.find(';', begin) - begin);
  };
  EXPECT_EQ(summary(resuming), "files: 2 extracted, 2 failed, 0 skipped");
  // A refusal is final; a time-out is not.
  EXPECT_EQ(summary(resuming), "files: 0 extracted, 1 failed, 3 skipped");
  dir_.Write("in/first.doc", "changed");
  fs::remove(out + "/gone.doc.txt");
  dir_.Write("in/half.doc", "no longer");
  const std::string journal = out + "/.tikaextract.journal";
  std::ofstream(journal, std::ios::app) << "T 7 half a li";
  EXPECT_EQ(summary(resuming), "files: 3 extracted, 0 failed, 1 skipped");
  EXPECT_EQ(ReadFile(out + "/first.doc.txt"), "text of changed");
  EXPECT_EQ(summary(resuming), "files: 0 extracted, 0 failed, 4 skipped") << ReadFile(journal);
  EXPECT_EQ(summary(arguments), "files: 3 extracted, 1 failed, 0 skipped") << "a run of its own";
  std::ofstream(journal, std::ios::trunc) << "something else\n";
  EXPECT_NE(summary(resuming).find("is no journal"), std::string::npos);
}

TEST_F(TikaExtract, SettingsAreSavedAndUsed) {
  const std::string file = dir_.File("settings");
  fs::create_directories(dir_.File("in"));
  dir_.Write("in/a.pdf", "a");
  const std::string text = dir_.Write("in/b.odt", "b");
  Program save("tikaextract", WithServer({"--ext", "odt", "--save-settings", file}));
  EXPECT_EQ(save.Wait(), 0) << save.Error();
  Program use("tikaextract", {"--settings", file, "-r", dir_.File("in")});
  EXPECT_EQ(use.Wait(), 0) << use.Error();
  EXPECT_EQ(use.Output(), "text of b");
  Program named("tikaextract", {"--settings", file, dir_.File("in/a.pdf")});
  EXPECT_EQ(named.Wait(), 0) << "what is named is taken whatever its extension";
  EXPECT_EQ(named.Output(), "text of a");
  SCA_ConfigObj object;
  unsigned long error = 0;
  ASSERT_EQ(object.Load(file.c_str(), &error), 1);
  object.Save(dir_.File("foreign").c_str(), 9000, 1, &error);
  object.Save(dir_.File("newer").c_str(), SCA_FileTypeSettings, 3, &error);
  object.GetFields().DeleteItem("Mode");
  object.AddField("Mode", 0, 0);
  object.Save(dir_.File("off").c_str(), SCA_FileTypeSettings, 1, &error);
  const std::pair<std::vector<std::string>, const char*> rows[] = {
      {{"--settings", dir_.File("off"), text}, "switched off"},
      {{"--settings", dir_.File("foreign"), text}, "holds no settings"},
      {{"--settings", dir_.File("newer"), text}, "newer"},
      {{"--settings", text, text}, "not a configuration file or report"},
      {{"--server", "h:1", "--server", "h:3", "--save-settings", file}, "follow one another"},
      {{"--save-settings", dir_.File("no/such"), text}, "cannot save"},
  };
  for (const auto& [arguments, complaint] : rows) {
    SCOPED_TRACE(complaint);
    Program program("tikaextract", arguments);
    EXPECT_EQ(program.Wait(), 2);
    EXPECT_NE(program.Error().find(complaint), std::string::npos) << program.Error();
  }
}

TEST(Json, BytesThatAreNoUtf8AreReplacedAndKept) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"", "", nullptr},
      {"a\u20AC\U0001F600\uD7FF", "a\u20AC\U0001F600\uD7FF", nullptr},
      {"\x80", "\uFFFD", "gA=="},
      {"\xC0\xAF", "\uFFFD\uFFFD", "wK8="},
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD", "7aCA"},
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD", "9JCAgA=="},
      {"a\xE2\x82", "a\uFFFD", "YeKC"},
      {"\xE2\x82\"b", "\uFFFD\"b", "4oIiYg=="}};
  for (const auto& [bytes, shown, base64] : rows) {
    nlohmann::ordered_json object;
    SetJsonText(&object, "key", bytes);
    const auto parsed = nlohmann::json::parse(JsonText(object));
    EXPECT_EQ(parsed["key"], shown);
    EXPECT_EQ(parsed.contains("keyBase64"), base64 != nullptr) << shown;
    if (base64 != nullptr) {
      EXPECT_EQ(parsed["keyBase64"], base64);
    }
  }
}

}  // namespace
