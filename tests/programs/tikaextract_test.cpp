#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>
#include <tuple>

#include "faultlab/FaultServer.h"
#include "programs/common/Json.h"
#include "settings/SCA_TikaConfigOrv.h"
#include "tests/support/Program.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

namespace fs = std::filesystem;

// Nothing more comes after more than the client collects before it hands text on.
constexpr char kRefused[] = "tikafault:status=422";
constexpr char kHalf[] = "tikafault:hang=2097152,text=3145728";

class TikaExtract : public ::testing::Test {
 protected:
  std::vector<std::string> WithServer(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(),
                     {"--server", "127.0.0.1:" + std::to_string(server_.Port())});
    return arguments;
  }
  // Journal and lock aside.
  std::size_t CountFiles(const std::string& path) const {
    std::size_t files = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
      files += entry.path().filename().string().rfind(".tikaextract.", 0) == 0 ? 0U : 1U;
    }
    return files;
  }

  TempDir dir_;
  const FaultServer server_;
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
  const std::string group = dir_.Write("group", "c");
  fs::permissions(name, fs::perms{0666});
  fs::permissions(group, fs::perms{0664});
  ::umask(002);
  // What the group of the document may do is nothing that the group of the text may do.
  const bool isOther = ::chown(group.c_str(), static_cast<uid_t>(-1), ::getegid() + 1) == 0;
  Program program("tikaextract", WithServer({"-o", out, blank, name, group}));
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_EQ(program.Output(), "");
  EXPECT_EQ(ReadFile(out + "/Übersicht 2026.docx.txt"), "text of a");
  EXPECT_EQ(ReadFile(out + "/b.pdf.txt"), "text of b");
  EXPECT_EQ(CountFiles(out), 3U);
  EXPECT_EQ(fs::status(out + "/b.pdf.txt").permissions(), fs::perms{0664});
  EXPECT_EQ(fs::status(out + "/group.txt").permissions(), fs::perms(isOther ? 0644 : 0664));
}

TEST_F(TikaExtract, FailureOfAFileIsOneLineAndTheOthersGoOn) {
  const std::string empty = dir_.Write("empty.doc", kRefused);
  const std::string half = dir_.Write("half.doc", kHalf);
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

TEST_F(TikaExtract, RunThatIsEndedLeavesNoPartOfAFile) {
  const std::string half = dir_.Write("half.doc", kHalf);
  const std::string good = dir_.Write("good.doc", "good");
  const std::string out = dir_.File("out");
  fs::create_directories(out + "/other");
  dir_.Write("out/other/.tikaextract.journal", "");
  const std::string foreign = dir_.Write("out/other/.sca-1-1.tmp", "");
  std::size_t before = 1;
  for (const int number : {SIGINT, SIGTERM, SIGKILL}) {
    Program program("tikaextract", WithServer({"-v", "-o", out, good, half, good + ".other"}));
    // The text aside shows that the extraction is under way.
    while (CountFiles(out) < before + 1 + (number == SIGINT ? 1U : 0U)) {
      ASSERT_EQ(program.Family().empty(), false) << program.Error();
    }
    const std::string process = program.Family().front();
    Program second("tikaextract", WithServer({"-o", out, good}));
    EXPECT_TRUE(Ends(second, 2, "another run (process " + process.substr(0, process.find(':'))));
    program.Signal(number);
    EXPECT_EQ(program.Wait(), 128 + number);
    before = number == SIGKILL ? 3U : 2U;
    EXPECT_EQ(CountFiles(out), before);
  }
  Program next("tikaextract", WithServer({"-o", out, good}));
  EXPECT_EQ(next.Wait(), 0) << next.Error();
  EXPECT_EQ(CountFiles(out), 2U) << "what the killed run has left goes";
  EXPECT_TRUE(fs::exists(foreign)) << "what may be another run's stays";
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
    EXPECT_TRUE(Has(program.Error(), complaint));
  }
}

TEST_F(TikaExtract, HelpAndVersionGoToStandardOutput) {
  Program help("tikaextract", {"--help"});
  EXPECT_EQ(help.Wait(), 0);
  EXPECT_TRUE(Has(help.Output(), "--java-heap"));
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
    EXPECT_TRUE(Ends(program, 3, row.complaint));
  }
}

TEST_F(TikaExtract, ServerThatRefusesAFileBeforeItHasReadItIsQuoted) {
  const std::string large =
      dir_.Write("large.doc", "tikafault:refuse=413 " + std::string(1 << 26, 'x'));
  Program program("tikaextract", WithServer({large}));
  EXPECT_EQ(program.Wait(), 1);
  EXPECT_EQ(program.Error(), "tikaextract: " + large +
                                 ": the server answered HTTP 413 before it had read the file\n");
}

TEST_F(TikaExtract, LimitsEndADocument) {
  const std::string half = dir_.Write("half.doc", kHalf);
  const std::string large = dir_.Write("large.doc", std::string(4 << 20, 'l'));
  const std::tuple<std::vector<std::string>, const char*> rows[] = {
      {{"--time-limit", "1", half}, "half.doc: the time limit"},
      {{"--text-limit", "3", large}, "large.doc: the text is longer"}};
  for (const auto& [arguments, complaint] : rows) {
    Program program("tikaextract", WithServer(arguments));
    EXPECT_TRUE(Ends(program, 1, complaint));
    EXPECT_EQ(program.Output(), "");
  }
  Program unlimited("tikaextract", WithServer({"--text-limit", "0", large}));
  EXPECT_EQ(unlimited.Wait(), 0) << unlimited.Error();
}

// Texts that differ in everything but their order are compared as lines.
std::vector<std::string> SortedLines(const std::string& text) {
  std::vector<std::string> lines = Lines(text);
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
    EXPECT_TRUE(Has(program.Error(), std::to_string(texts.size()) + " extracted, 0 failed"));
  }
  fs::current_path("/");
}

TEST_F(TikaExtract, RecordsHoldEverythingWhateverTheBytes) {
  const std::string bad = dir_.Write(
      "b\xE4"
      "d.doc",
      "\xFF\"");
  const std::string empty = dir_.Write("empty.doc", kRefused);
  Program program("tikaextract", WithServer({"--jsonl", bad, empty, dir_.File("missing.doc")}));
  EXPECT_EQ(program.Wait(), 1);
  std::vector<nlohmann::json> records;
  for (const std::string& line : Lines(program.Output())) {
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

// Starts a program for which two system calls fail with EIO, whenever their fourth argument is at
// least `least`: a filter is inherited from the thread that starts it.
std::unique_ptr<Program> StartFailing(std::pair<unsigned, unsigned> calls, unsigned least,
                                      const std::vector<std::string>& arguments) {
  std::unique_ptr<Program> program;
  std::thread([&] {
    constexpr unsigned kFourth = offsetof(seccomp_data, args) + 3 * sizeof(std::uint64_t);
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, calls.first, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, calls.second, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kFourth),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, least, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EIO),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog code{std::size(filter), filter};
    const bool isFiltered = ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
                            ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &code) == 0;
    EXPECT_TRUE(isFiltered);
    program = std::make_unique<Program>("tikaextract", arguments);
  }).join();
  return program;
}

TEST_F(TikaExtract, TextThatTheDiskLosesIsNoSuccess) {
  const std::string large = dir_.Write("large.doc", std::string(1 << 20, 'l'));
  constexpr std::pair<unsigned, unsigned> kRead{SYS_pread64, SYS_preadv};
  constexpr unsigned kMuch = 100000;  // more than a program's own start reads into its files
  const auto text = StartFailing(kRead, kMuch, WithServer({large}));
  EXPECT_EQ(text->Wait(), 1);
  const std::string complaint = "cannot read its text back from a temporary file in ";
  EXPECT_TRUE(Has(text->Error(), large + ": " + complaint));
  const auto record = StartFailing(kRead, kMuch, WithServer({"--jsonl", large}));
  EXPECT_EQ(record->Wait(), 1);
  const std::vector<std::string> lines = Lines(record->Output());
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_FALSE(nlohmann::json::accept(lines[0]));
  EXPECT_EQ(nlohmann::json::parse(lines[1])["outcome"], "sink failed");
  const std::string out = dir_.File("out");
  const auto file = StartFailing({SYS_syncfs, SYS_fsync}, 0, WithServer({"-o", out, large}));
  EXPECT_TRUE(Ends(*file, 1, "cannot write '" + out + "/large.doc.txt'"));
  EXPECT_EQ(ReadFile(out + "/.tikaextract.journal").find("\nT"), std::string::npos);
  Program nowhere("tikaextract", WithServer({large}), {"TMPDIR=" + dir_.File("missing")});
  EXPECT_TRUE(Ends(nowhere, 1, "cannot write a temporary file in '" + dir_.File("missing")));
}

TEST_F(TikaExtract, TextsComeInTheOrderOfTheFilesUnlessItDoesNotMatter) {
  // The slow one is answered once all others have come.
  constexpr int kQuickOnes = 20;
  const std::string slow = "slow\n";
  std::atomic<int> quickOnes{0};
  FaultServerOptions options;
  options.choose = [&](const DocumentHead& head) {
    if (head.bytes != slow) quickOnes.fetch_add(1);
    EXPECT_TRUE(head.bytes != slow || Eventually([&] { return quickOnes >= kQuickOnes; }));
    return FaultSpec();
  };
  const FaultServer first(options);
  const FaultServer second(options);
  std::vector<std::string> arguments{"--server", "127.0.0.1:" + std::to_string(first.Port()),
                                     "--server", "127.0.0.1:" + std::to_string(second.Port()),
                                     dir_.Write("slow.doc", slow)};
  std::string expected = "text of " + slow;
  for (int i = 0; i < kQuickOnes; ++i) {
    const std::string name = std::to_string(i);
    arguments.push_back(dir_.Write(name, name + "\n"));
    expected += "text of " + name + "\n";
  }
  Program ordered("tikaextract", arguments);
  EXPECT_EQ(ordered.Wait(), 0);
  EXPECT_EQ(ordered.Output(), expected);
  arguments.push_back("--unordered");
  quickOnes = 0;
  Program unordered("tikaextract", arguments);
  EXPECT_EQ(unordered.Wait(), 0);
  // It may overtake those that were still on their way.
  const std::string output = unordered.Output();
  const std::size_t place = std::min(output.find(slow), output.size());
  const auto end = output.begin() + static_cast<std::ptrdiff_t>(place);
  EXPECT_GE(std::count(output.begin(), end, '\n'), kQuickOnes / 2) << output;
  EXPECT_EQ(SortedLines(unordered.Output()), SortedLines(expected));
}

TEST_F(TikaExtract, TextOfAServerThatDiesIsKeptOnce) {
  std::atomic<int> wanted{1};
  FaultServerOptions deadly;
  deadly.choose = [](const DocumentHead&) {
    FaultSpec fault;
    EXPECT_EQ(ParseFault("cut=2097152,text=3145728", &fault), "");
    return fault;
  };
  const FaultServer dying(deadly);
  // The other server waits until this one has had its chance.
  FaultServerOptions patient;
  patient.choose = [&](const DocumentHead&) {
    EXPECT_TRUE(Eventually([&] { return dying.Documents() >= wanted.load(); }));
    return FaultSpec();
  };
  const FaultServer good(patient);
  std::vector<std::string> arguments{"--server", "127.0.0.1:" + std::to_string(dying.Port()),
                                     "--server", "127.0.0.1:" + std::to_string(good.Port())};
  std::string expected;
  for (int i = 0; i < 10; ++i) {
    const std::string body = "document " + std::to_string(i) + "\n";
    arguments.push_back(dir_.Write(std::to_string(i), body));
    expected += "text of " + body;
  }
  Program program("tikaextract", arguments);
  EXPECT_EQ(program.Wait(), 0) << program.Error();
  EXPECT_EQ(program.Output(), expected);
  wanted = dying.Documents() + 1;
  const std::string out = dir_.File("out");
  arguments.insert(arguments.end(), {"-o", out});
  Program files("tikaextract", arguments);
  EXPECT_EQ(files.Wait(), 0) << files.Error();
  std::string texts;
  for (int i = 0; i < 10; ++i) texts += ReadFile(out + "/" + std::to_string(i) + ".txt");
  EXPECT_EQ(texts, expected);
}

TEST_F(TikaExtract, TwoDocumentsNeverShareAText) {
  const std::string full = dir_.File("a.pdf");
  fs::create_directories(dir_.File("x"));
  fs::create_directories(dir_.Path() + fs::path(full).parent_path().string());
  fs::create_directories(dir_.File("y"));
  dir_.Write("a.pdf", "one");
  for (const std::string& name : {std::string("x/a.pdf"), std::string("y/a.pdf"), full.substr(1)}) {
    dir_.Write(name, "two");
  }
  const std::string textOfFull = full.substr(1) + ".txt";
  struct Row {
    std::string list;
    std::vector<std::string> arguments;
    int status;
    std::string text;     // below the output directory
    std::string content;  // that of the document named first
    std::string complaint;
  };
  const std::string list = dir_.File("list");
  const std::string other = " would take the place of that of '" + dir_.Path();
  const Row rows[] = {
      {"a.pdf\n", {"x/a.pdf"}, 1, "a.pdf.txt", "two", "a.pdf: its text" + other + "/x/a.pdf'"},
      {full + "\n" + full.substr(1) + "\n", {}, 1, textOfFull, "one", other + "/a.pdf'"},
      {"a.pdf\nx/../a.pdf\n", {full}, 0, "a.pdf.txt", "one", "1 extracted, 0 failed, 2 skipped"},
      // Both lead to one directory.
      {"a.pdf\nx/a.pdf\ny/a.pdf\n", {}, 1, "x/a.pdf.txt", "two", other + "/x/a.pdf'"},
      {"", {"--resume", "--files-from", list}, 1, "x/a.pdf.txt", "two", other + "/x/a.pdf'"},
      // With a former run's documents as with this one's; but a text whose document has gone or was
      // changed is nobody's.
      {"y/../y/a.pdf\n", {}, 0, "y/a.pdf.txt", "two", "1 extracted"},
      {"", {"--resume", "y/a.pdf"}, 0, "a.pdf.txt", "two", ""},
      {"", {"--resume", "a.pdf"}, 1, "a.pdf.txt", "two", other + "/y/a.pdf'"},
  };
  const std::string out = dir_.File("out");
  fs::current_path(dir_.Path());
  for (const Row& row : rows) {
    SCOPED_TRACE(row.list + ::testing::PrintToString(row.arguments));
    std::vector<std::string> arguments = WithServer(row.arguments);
    if (!row.list.empty()) {
      fs::remove_all(out);
      fs::create_directories(out + "/x");
      fs::create_directory_symlink("x", out + "/y");
      arguments.insert(arguments.end(), {"--files-from", dir_.Write("list", row.list)});
    }
    arguments.insert(arguments.end(), {"-o", out});
    Program program("tikaextract", arguments);
    EXPECT_EQ(program.Wait(), row.status);
    EXPECT_EQ(ReadFile(out + "/" + row.text), "text of " + row.content);
    EXPECT_TRUE(Has(program.Error(), row.complaint));
  }
  dir_.Write("y/a.pdf", "changed");
  // However two names came to one text: what has been written since the run began stays.
  const auto written = fs::last_write_time(out + "/a.pdf.txt");
  fs::last_write_time(out + "/a.pdf.txt", written + std::chrono::hours(1));
  Program late("tikaextract", WithServer({"--resume", "a.pdf", "-o", out}));
  EXPECT_EQ(late.Wait(), 1);
  EXPECT_NE(late.Error().find("a.pdf.txt': File exists"), std::string::npos) << late.Error();
  fs::last_write_time(out + "/a.pdf.txt", written);
  Program changed("tikaextract", WithServer({"--resume", "a.pdf", "-o", out}));
  EXPECT_EQ(changed.Wait(), 0) << changed.Error();
  EXPECT_EQ(ReadFile(out + "/a.pdf.txt"), "text of one");
  fs::current_path("/");
}

TEST_F(TikaExtract, ResumedRunDoesWhatIsLeft) {
  const std::string out = dir_.File("out");
  fs::create_directories(dir_.File("in"));
  dir_.Write("in/first.doc", "first");
  dir_.Write("in/gone.doc", "gone");
  dir_.Write("in/empty.doc", kRefused);
  dir_.Write("in/half.doc", kHalf);
  const std::vector<std::string> arguments =
      WithServer({"--timeout", "1", "-r", dir_.File("in"), "-o", out});
  int status = 0;
  const auto summary = [&](const std::vector<std::string>& more) {
    std::vector<std::string> words = arguments;
    words.insert(words.end(), more.begin(), more.end());
    Program program("tikaextract", words);
    status = program.Wait();
    const std::string error = program.Error();
    const std::size_t begin = error.rfind("files: ");
    return begin == std::string::npos ? error : error.substr(begin, error.find(';', begin) - begin);
  };
  const std::vector<std::string> resume{"--resume"};
  EXPECT_EQ(summary(resume), "files: 2 extracted, 2 failed, 0 skipped");
  // A refusal is final; a time-out is not.
  EXPECT_EQ(summary(resume), "files: 0 extracted, 1 failed, 3 skipped");
  dir_.Write("in/first.doc", "changed");
  fs::remove(out + "/gone.doc.txt");
  dir_.Write("in/half.doc", "no longer");
  const std::string journal = out + "/.tikaextract.journal";
  std::ofstream(journal, std::ios::app) << "T\t7 half a li";
  EXPECT_EQ(summary(resume), "files: 3 extracted, 0 failed, 1 skipped");
  EXPECT_EQ(status, 1) << "what was refused before is no success";
  EXPECT_EQ(ReadFile(out + "/first.doc.txt"), "text of changed");
  EXPECT_EQ(summary(resume), "files: 0 extracted, 0 failed, 4 skipped") << ReadFile(journal);
  EXPECT_EQ(summary({"--resume", "--retry-refused"}), "files: 0 extracted, 1 failed, 3 skipped");
  std::ofstream(out + "/first.doc.txt", std::ios::trunc).close();
  EXPECT_EQ(summary(resume), "files: 1 extracted, 0 failed, 3 skipped")
      << "a text that was emptied";
  const std::string former = ReadFile(journal);
  EXPECT_EQ(summary({}), "files: 3 extracted, 1 failed, 0 skipped") << "a run of its own";
  EXPECT_EQ(ReadFile(journal).substr(0, former.size()), former) << "adds to the journal";
  dir_.Write("in/empty.doc", "full");
  EXPECT_EQ(summary(resume), "files: 1 extracted, 0 failed, 3 skipped");
  EXPECT_EQ(status, 0);
  const std::pair<const char*, const char*> foreign[] = {
      {"something else\n", "is no journal"},
      {"tika", "files: 4 extracted"},
      {"tikaextract journal 1\nT 5 1.0 /x\n", "is of an earlier version"}};
  for (const auto& [content, complaint] : foreign) {
    std::ofstream(journal, std::ios::trunc) << content;
    EXPECT_TRUE(Has(summary(resume), complaint));
  }
  EXPECT_EQ(ReadFile(journal), foreign[2].first) << "stays as it is";
  fs::rename(journal, dir_.File("victim"));
  fs::create_symlink(dir_.File("victim"), journal);
  EXPECT_NE(summary({}).find("it is a link"), std::string::npos);
}

TEST_F(TikaExtract, ContentThatKillsServersIsNotSentAgain) {
  const std::string killer = "killer";
  std::atomic<bool> areSafe{false};
  FaultServerOptions options;
  options.choose = [&](const DocumentHead& head) {
    FaultSpec fault;
    if (!areSafe && head.bytes == killer) ParseFault("close", &fault);
    return fault;
  };
  const FaultServer first(options);
  const FaultServer second(options);
  std::vector<std::string> arguments{"--server", "127.0.0.1:" + std::to_string(first.Port()),
                                     "--server", "127.0.0.1:" + std::to_string(second.Port()),
                                     "-o",       dir_.File("out")};
  // More than are under way at once, so that the twin is found when the first one has ended.
  const std::string list = dir_.File("list");
  std::ofstream names(list);
  fs::create_directories(dir_.File("in"));
  names << dir_.Write("in/killer", killer) << "\n";
  for (int i = 0; i < 200; ++i) {
    names << dir_.Write("in/" + std::to_string(i), "number") << "\n";
  }
  names << dir_.Write("in/twin", killer) << "\n";
  names.close();
  int sent = 0;
  const auto run = [&](const std::vector<std::string>& more) {
    std::vector<std::string> words = arguments;
    words.insert(words.end(), more.begin(), more.end());
    const int before = first.Documents() + second.Documents();
    Program program("tikaextract", words);
    EXPECT_EQ(program.Wait(), areSafe ? 0 : 1);
    sent = first.Documents() + second.Documents() - before;
    return program.Error();
  };
  const std::string error = run({"--files-from", list});
  EXPECT_TRUE(Has(error, "200 extracted, 2 failed, 0 skipped"));
  const std::string complaint =
      "in/twin: not sent: servers died while they had '" + dir_.File("in/killer") + "'";
  EXPECT_TRUE(Has(error, complaint));
  EXPECT_GE(sent, 202);
  const std::string later = dir_.Write("in/later", killer);
  const std::string records = run({"--resume", "--files-from", list, later, "--jsonl"});
  EXPECT_TRUE(Has(records, "0 extracted, 3 failed, 200 skipped"));
  EXPECT_EQ(sent, 0);
  run({"--resume", "--retry-refused", later});
  EXPECT_GE(sent, 2);
  areSafe = true;
  run({"--resume", "--retry-refused", "--files-from", list, later});
  areSafe = false;
  run({"--resume", dir_.Write("in/latest", killer)});
  EXPECT_GE(sent, 2) << "what has a text now kills no more";
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
    EXPECT_TRUE(Ends(program, 2, complaint));
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
      {"\xE2\x82\"b", "\uFFFD\"b", "4oIiYg=="},
      {"\xF0\x9F\x98", "\uFFFD", "8J+Y"},
      {"\xF1\x80\xC3\xA4\x9B\x9B\x9B\x9B", "\uFFFD\u00E4\uFFFD\uFFFD\uFFFD\uFFFD", "8YDDpJubm5s="}};
  for (const auto& [bytes, shown, base64] : rows) {
    nlohmann::ordered_json object;
    SetJsonText(&object, "key", bytes);
    const std::string whole = JsonText(object);
    const auto parsed = nlohmann::json::parse(whole);
    EXPECT_EQ(parsed["key"], shown);
    EXPECT_EQ(parsed.contains("keyBase64"), base64 != nullptr) << shown;
    if (base64 != nullptr) {
      EXPECT_EQ(parsed["keyBase64"], base64);
    }
    for (std::size_t size = 1; size < 5; ++size) {
      std::string written;
      const auto blocks = [&](const TextTake& take) {
        std::string_view rest = bytes;
        for (; !rest.empty(); rest.remove_prefix(std::min(size, rest.size()))) {
          take(rest.substr(0, size));
        }
        return true;
      };
      EXPECT_TRUE(WriteJsonText("key", blocks, [&written](std::string_view piece) {
        written += piece;
        return true;
      }));
      EXPECT_EQ("{" + written + "}", whole) << "in pieces of " << size;
    }
  }
}

}  // namespace
