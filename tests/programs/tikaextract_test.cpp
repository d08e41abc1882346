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
#include <set>
#include <thread>
#include <tuple>

#include "faultlab/FaultServer.h"
#include "programs/common/Address.h"
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
    const std::size_t wanted = before + 1 + (number == SIGINT ? 1U : 0U);
    ASSERT_TRUE(Eventually([&] { return CountFiles(out) >= wanted; })) << program.Error();
    const std::string process = program.Family().front();
    Program second("tikaextract", WithServer({"-o", out, good}));
    EXPECT_TRUE(Ends(second, 2, "another run (process " + process.substr(0, process.find(':'))));
    program.Signal(number);
    EXPECT_EQ(program.Wait(), 128 + number);
    EXPECT_EQ(program.Error().find("with --resume does the rest") != std::string::npos,
              number != SIGKILL);
    before = number == SIGKILL ? 3U : 2U;
    EXPECT_EQ(CountFiles(out), before);
  }
  Program next("tikaextract", WithServer({"-o", out, good}));
  EXPECT_EQ(next.Wait(), 0) << next.Error();
  EXPECT_EQ(CountFiles(out), 2U) << "what the killed run has left goes";
  EXPECT_TRUE(fs::exists(foreign)) << "what may be another run's stays";
}

TEST_F(TikaExtract, WhatIsWrongIsSaidAndHasItsStatus) {
  const std::string file = dir_.Write("x.doc", "x");
  const std::string half = dir_.Write("half.doc", kHalf);
  const std::string large =
      dir_.Write("large.doc", "tikafault:refuse=413 " + std::string(1 << 26, 'x'));
  const std::string settings = dir_.File("settings");
  Program save("tikaextract", WithServer({"--save-settings", settings}));
  EXPECT_TRUE(Ends(save, 0));
  SCA_ConfigObj object;
  unsigned long error = 0;
  ASSERT_EQ(object.Load(settings.c_str(), &error), 1);
  object.Save(dir_.File("foreign").c_str(), 9000, 1, &error);
  object.Save(dir_.File("newer").c_str(), SCA_FileTypeSettings, 3, &error);
  object.GetFields().DeleteItem("Mode");
  object.AddField("Mode", 0, 0);
  object.Save(dir_.File("off").c_str(), SCA_FileTypeSettings, 1, &error);
  struct {
    int status;
    std::vector<std::string> arguments;
    std::string complaint;
    std::vector<std::string> environment = {};
  } const rows[] = {
      {2, {}, "FILE is required"},
      {2, {"--timeout", "soon", "x"}, "--timeout"},
      {2,
       {"--server", "http://h:1/tika", "x"},
       "has a path: name the server alone, as http://h:1/"},
      {2, {"--server", "https://h:1", "x"}, "without TLS"},
      {2, {"--server", "u:secret@h", "x"}, "before '@': name the host and the port"},
      {2, {"--server", "https://u:secret@h:1/", "x"}, "before '@'"},
      {2, {"--service", "u:secret@h:1", "x"}, "before '@'"},
      {2, {"--ext", "a,b", "--remove-ext", "B,A", "x"}, "--remove-ext leaves no extension"},
      {2, {"--add-ext", std::string(520, 'x'), "x"}, "longer than 519 bytes"},
      {2, {"--server", "host:65536", "x"}, "'host:65536' is not host:port"},
      {2, {"-o", dir_.Path(), "a/x.doc", "b/x.doc"}, "'a/x.doc' and 'b/x.doc'"},
      {2, {"-o", file + "/out", "x"}, "cannot create the directory"},
      {2, {"--settings", dir_.File("off"), file}, "switched off"},
      {2, {"--settings", dir_.File("foreign"), file}, "holds no settings"},
      {2, {"--settings", dir_.File("newer"), file}, "newer"},
      {2, {"--settings", file, file}, "not a configuration file or report"},
      {2, {"--server", "h:1", "--server", "h:3", "--save-settings", file}, "consecutive ports"},
      {2, {"--save-settings", dir_.File("no/such"), file}, "cannot save"},
      {3, {"--server", "127.0.0.1:1", file}, "no connection to 127.0.0.1:1: Connection refused"},
      {3, {"--server", "no-such-host.invalid:80", file}, "the host name could not be resolved"},
      {3, {file}, "there is no Tika server jar", {"TIKA_SERVER_JAR=" + dir_.File("missing.jar")}},
      {3, {file}, "double quote", {"TIKA_SERVER_JAR=/a\"b.jar"}},
      {3, {"--jar", file, file}, "cannot start 'java': No such file", {"PATH=" + dir_.Path()}},
      {1, WithServer({"--time-limit", "1", half}), "half.doc: the time limit"},
      {1, WithServer({"--text-limit", "1", half}), "half.doc: the text is longer"},
      {1, WithServer({large}), "large.doc: the server answered HTTP 413 before it had read"},
      {1, WithServer({dir_.Write("empty.doc", kRefused)}),
       "empty.doc: the server could not parse the document (HTTP 422); it is empty, encrypted or "
       "damaged: open it in its own program\n"},
      {1, WithServer({dir_.File("no.doc")}), "no.doc: No such file or directory; check the name\n"},
      {1, WithServer({"--timeout", "1", half}), "half.doc: timed out; raise --timeout if"},
      {1, WithServer({dir_.Path()}), ": Is a directory; name the files in it, or use -r\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.complaint);
    Program program("tikaextract", row.arguments, row.environment);
    EXPECT_TRUE(Ends(program, row.status, row.complaint));
    EXPECT_EQ(program.Output(), "");
    EXPECT_EQ(program.Error().find("secret"), std::string::npos);
    EXPECT_TRUE(row.status != 1 || Lines(program.Error()).size() == 1) << program.Error();
  }
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
  const std::string full = dir_.File("in/a.pdf").substr(1);
  const std::pair<std::vector<std::string>, std::set<std::string>> rows[] = {
      {{"-r", "in/"}, {"a.pdf.txt", "deep/er/c.DOCX.txt"}},
      {{"-r", "in", "other", "in/b.txt"},
       {"b.txt.txt", "in/a.pdf.txt", "in/deep/er/c.DOCX.txt", "other/a.pdf.txt"}},
      {{"-r", "--ext", ".txt,odt", "in"}, {"b.txt.txt"}},
      {{"--files-from", list}, {full + ".txt", "other/a.pdf.txt"}},
  };
  const std::string out = dir_.File("out");
  fs::current_path(dir_.Path());
  for (const auto& [words, expected] : rows) {
    SCOPED_TRACE(::testing::PrintToString(words));
    fs::remove_all(out);
    std::vector<std::string> arguments = WithServer(words);
    arguments.insert(arguments.end(), {"-o", out});
    Program program("tikaextract", arguments);
    EXPECT_TRUE(Ends(program, 0, std::to_string(expected.size()) + " extracted, 0 failed"));
    std::set<std::string> texts;
    for (const auto& entry : fs::recursive_directory_iterator(out)) {
      if (entry.path().extension() == ".txt") {
        texts.insert(entry.path().lexically_relative(out).string());
      }
    }
    EXPECT_EQ(texts, expected);
  }
  for (const char* said : {"2 extracted", "2 skipped"}) {
    Program beside("tikaextract", WithServer({"-r", "in", "-o", "in", "--resume"}));
    EXPECT_TRUE(Ends(beside, 0, said));
    EXPECT_EQ(ReadFile("in/deep/er/c.DOCX.txt"), "text of c");
  }
  // Neither the texts nor what else a run writes there is a document.
  dir_.Write("in/.tikaextract.other", "");
  Program all("tikaextract", WithServer({"-r", "in", "-o", "in", "--resume", "--ext", "*"}));
  all.Wait();
  EXPECT_FALSE(fs::exists("in/deep/er/c.DOCX.txt.txt")) << all.Error();
  EXPECT_FALSE(fs::exists("in/.tikaextract.journal.txt")) << all.Error();
  fs::current_path("/");
}

TEST_F(TikaExtract, ListsOfOtherSystemsAreRead) {
  const std::string a = dir_.Write("a", "a\n");
  const std::string b = dir_.Write("b\r", "b\n");
  const std::string zero(1, '\0');
  struct {
    std::string list;
    std::vector<std::string> options;
    int status;
    std::string printed;
    std::string complaint;
  } const rows[] = {
      {"\xEF\xBB\xBF" + a + "\r\n\r\n" + a, {}, 0, "text of a\ntext of a\n", "2 extracted"},
      {"\xEF\xBB\xBF\r\n" + a + "\r", {}, 0, "text of a\n", "1 extracted"},
      {b + zero + a + zero, {"-0"}, 0, "text of b\ntext of a\n", "2 extracted"},
      {b + "\n" + a + "\n", {}, 1, "text of a\n", "b: No such file"},
      {std::string("\xFF\xFE/\0a\0\n\0", 8),
       {},
       1,
       "",
       "cannot read the list: it is encoded as UTF-16"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.complaint);
    std::vector<std::string> arguments = WithServer({"--files-from", dir_.Write("list", row.list)});
    arguments.insert(arguments.end(), row.options.begin(), row.options.end());
    Program program("tikaextract", arguments);
    EXPECT_TRUE(Ends(program, row.status, row.complaint));
    EXPECT_EQ(program.Output(), row.printed);
  }
}

TEST(Address, ServersAreNamedAsPeopleDo) {
  const std::tuple<const char*, const char*, unsigned short> rows[] = {
      {"host", "host", 9998},
      {"host:1", "host", 1},
      {"[::1]", "::1", 9998},
      {"::1", "::1", 9998},
      {"[::1]:2", "::1", 2},
      {"http://h:65535/", "h", 65535},
      {"HTTP://h", "h", 80},
      {"http://[::1]/", "::1", 80},
      {"http://[::1]:3", "::1", 3},
      {"http://", nullptr, 0},
      {"http:///", nullptr, 0},
      {"http://h:0/", nullptr, 0},
      {"http://h:1//", nullptr, 0},
      {"http://h/tika", nullptr, 0},
      {"https://h/", nullptr, 0},
      {"host:", nullptr, 0},
      {"", nullptr, 0},
      {"host:65536", nullptr, 0},
  };
  for (const auto& [text, host, port] : rows) {
    SCOPED_TRACE(text);
    HostPort address;
    EXPECT_EQ(ParseServerAddress(text, 9998, &address).empty(), host != nullptr);
    EXPECT_EQ(address.host, host != nullptr ? host : "");
    EXPECT_EQ(address.port, port);
  }
}

TEST_F(TikaExtract, FoldersSayWhatIsLeftOut) {
  for (const char* name : {"in/private/deep", "in/open"}) fs::create_directories(dir_.File(name));
  for (const char* name : {"a.pdf", "draft-a.pdf", "b.odt", "noext", "private/p.pdf",
                           "private/deep/q.pdf", "open/draft-b.pdf", "open/o.pdf"}) {
    dir_.Write(std::string("in/") + name, "x");
  }
  dir_.Write("in/.tikaignore",
             "\xEF\xBB\xBF# not yet\r\ndraft-*\r\n/private/*\r\n!/private/deep/\r\n");
  dir_.Write("in/open/.tikaignore", "!draft-b.pdf\n/o.pdf");
  const std::string everything = "a.pdf b.odt noext open/draft-b.pdf private/deep/q.pdf";
  struct {
    std::vector<std::string> options;
    std::string taken;  // in the order of the alphabet
    std::string said;
  } const rows[] = {
      {{}, "a.pdf open/draft-b.pdf private/deep/q.pdf", "3 extracted"},
      {{"--ext", "*"}, everything, "5 extracted"},
      {{"--exclude", "*.pdf", "--ext", "*"}, "b.odt noext", "2 extracted"},
      {{"--include", "*o*"}, "b.odt noext", ""},
      {{"--include", "open/", "--include", "/a.pdf"}, "a.pdf open/draft-b.pdf", ""},
      {{"--include", "[ab].*", "--ext", "odt"}, "b.odt", ""},
      {{"--add-ext", "ODT", "--exclude", "deep"}, "a.pdf b.odt open/draft-b.pdf", ""},
      {{"--ext", "xyz"},
       "",
       "nothing was taken from '" + dir_.File("in") +
           "': 5 files have other extensions than xyz (--ext LIST takes others, --ext '*' takes "
           "all); 5 files and folders are left out"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.options));
    std::vector<std::string> arguments = WithServer({"--jsonl", "-r", dir_.File("in")});
    arguments.insert(arguments.end(), row.options.begin(), row.options.end());
    Program program("tikaextract", arguments);
    EXPECT_TRUE(Ends(program, 0, row.said));
    std::set<std::string> taken;
    for (const std::string& line : Lines(program.Output())) {
      const std::string path = nlohmann::json::parse(line)["path"];
      taken.insert(fs::path(path).lexically_relative(dir_.File("in")).string());
    }
    std::string words;
    for (const std::string& path : taken) words += (words.empty() ? "" : " ") + path;
    EXPECT_EQ(words, row.taken);
  }
  fs::remove(dir_.File("in/.tikaignore"));
  fs::create_directory(dir_.File("in/.tikaignore"));
  Program unknown("tikaextract", WithServer({"-r", dir_.File("in")}));
  EXPECT_TRUE(Ends(unknown, 1, "cannot read the rules of the folder"));
  EXPECT_EQ(unknown.Output(), "") << "what may be private is not taken";
}

TEST_F(TikaExtract, StandardInputIsADocument) {
  const std::string file = dir_.Write("file", "file\n");
  const std::string large = dir_.Write("large", std::string(3 << 20, 'l') + "\n");
  const std::string program = std::string(SCA_BIN_DIR) +
                              "/tikaextract --server 127.0.0.1:" + std::to_string(server_.Port()) +
                              " ";
  const std::string out = dir_.File("out");
  struct {
    std::string command;
    int status;
    std::string printed;
    std::string complaint;
  } const rows[] = {
      {"printf 'a\\n' | $P -", 0, "text of a\n", ""},
      {"$P - " + file + " <" + file, 0, "text of file\ntext of file\n", ""},
      {"(head -c 2 >/dev/null; $P -) <" + file, 0, "text of le\n", ""},
      {"cat " + large + " | $P --name a/b.pdf -o " + out, 0, "", ""},
      {"$P --name b.pdf -o " + out + " <" + file, 0, "", ""},
      {"printf c | $P - -o " + out, 0, "", ""},
      {"printf '" + std::string(kRefused) + "' | $P --name x.pdf", 1, "",
       "x.pdf: the server could not"},
      {"$P - <&-", 1, "", "-: cannot read standard input: Bad file descriptor"},
      {"$P - <" + dir_.Path(), 1, "", "cannot read standard input: Is a directory"},
      {"printf a | TMPDIR=" + file + " $P -", 1, "", "to a temporary file in '" + file + "'"},
      {"$P - - </dev/null", 2, "", "only once"},
      {"$P - --files-from - </dev/null", 2, "", "only once"},
      {"$P --name a " + file + " </dev/null", 2, "", "--name is for the document"},
      {"$P --name a/.. </dev/null", 2, "", "no name of a file"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.command);
    std::string command = row.command;
    command.replace(command.find("$P "), 3, program);
    Program shell("/bin/sh", {"-c", command});
    EXPECT_TRUE(Ends(shell, row.status, row.complaint));
    EXPECT_EQ(shell.Output(), row.printed);
  }
  EXPECT_EQ(ReadFile(out + "/b.pdf.txt"), "text of file\n") << "the second takes the first's place";
  EXPECT_EQ(ReadFile(out + "/stdin.txt"), "text of c");
  Program record("/bin/sh", {"-c", "printf a | " + program + "--jsonl --name x.pdf"});
  EXPECT_TRUE(Ends(record, 0));
  const auto json = nlohmann::json::parse(record.Output());
  EXPECT_EQ(json["path"], "x.pdf");
  EXPECT_EQ(json["size"], 1);
}

TEST_F(TikaExtract, NameThatIsTooLongIsShortenedAlwaysToTheSame) {
  const std::string begin(240, 'n');
  const std::string out = dir_.File("out");
  std::vector<std::string> arguments{"--jsonl", "-o", out};
  for (const char* end :
       {"\u00E4\u00E4\u00E4\u00E41.pdf", "\u00E4\u00E4\u00E4\u00E42.pdf", "3.pdf"}) {
    arguments.push_back(dir_.Write(begin + end, end));
  }
  std::set<std::string> texts;
  Program first("tikaextract", WithServer(arguments));
  EXPECT_TRUE(Ends(first, 0));
  for (const std::string& line : Lines(first.Output())) {
    const auto record = nlohmann::json::parse(line);
    const std::string path = record["textPath"];
    const std::string document = record["path"];
    EXPECT_EQ(ReadFile(path), "text of " + document.substr(document.find_last_of('n') + 1));
    EXPECT_EQ(path.find("nnn~") == std::string::npos, document.find("3.pdf") != std::string::npos);
    texts.insert(path);
  }
  EXPECT_EQ(texts.size(), 3U);
  arguments.emplace_back("--resume");
  Program again("tikaextract", WithServer(arguments));
  EXPECT_TRUE(Ends(again, 0, "0 extracted, 0 failed, 3 skipped"));
  std::string deep = "/";
  for (int i = 0; i < 16; ++i) deep += std::string(250, 'd') + "/";
  Program list("tikaextract", WithServer({"--jsonl", "-o", out, "--files-from",
                                          dir_.Write("list", deep + "x.pdf\n")}));
  EXPECT_TRUE(Ends(list, 1, "x.pdf: No such file"));
}

TEST_F(TikaExtract, RecordsHoldEverythingWhateverTheBytes) {
  const std::string bad = dir_.Write("b\xE4.doc", "\xFF\"");
  const std::string empty = dir_.Write("empty.doc", kRefused);
  Program program("tikaextract", WithServer({"--jsonl", bad, empty, dir_.File("missing.doc")}));
  EXPECT_EQ(program.Wait(), 1);
  std::vector<nlohmann::json> records;
  for (const std::string& line : Lines(program.Output())) {
    records.push_back(nlohmann::json::parse(line));
  }
  ASSERT_EQ(records.size(), 3U);
  EXPECT_EQ(records[0].erase("milliseconds") + records[0].erase("pathBase64"), 2U);
  EXPECT_EQ(records[0], nlohmann::json({{"path", dir_.File("b\uFFFD.doc")},
                                        {"text", "text of \uFFFD\""},
                                        {"textBase64", "dGV4dCBvZiD/Ig=="},
                                        {"textLength", 10},
                                        {"size", 2},
                                        {"outcome", "extracted"},
                                        {"server", "127.0.0.1:" + std::to_string(server_.Port())},
                                        {"error", nullptr}}));
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
    EXPECT_TRUE(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
                ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &code) == 0);
    program = std::make_unique<Program>("tikaextract", arguments);
  }).join();
  return program;
}

TEST_F(TikaExtract, TextThatTheDiskLosesIsNoSuccess) {
  const std::string large = dir_.Write("large.doc", std::string(1 << 20, 'l'));
  constexpr unsigned kMuch = 100000;  // more than a program's own start reads into its files
  const auto record =
      StartFailing({SYS_pread64, SYS_preadv}, kMuch, WithServer({"--jsonl", large}));
  EXPECT_TRUE(Ends(*record, 1, large + ": cannot read its text back from a temporary file in "));
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
  const FaultServer server(options);
  const std::string address = "127.0.0.1:" + std::to_string(server.Port());
  std::vector<std::string> arguments{"-j2", "--variant=1", "--server=" + address,
                                     dir_.Write("slow.doc", slow)};
  std::vector<std::string> expected{"text of slow"};
  for (int i = 0; i < kQuickOnes; ++i) {
    const std::string name = std::to_string(i);
    arguments.push_back(dir_.Write(name, name + "\n"));
    expected.push_back("text of " + name);
  }
  Program ordered("tikaextract", arguments);
  EXPECT_TRUE(Ends(ordered, 0));
  EXPECT_EQ(Lines(ordered.Output()), expected);
  arguments[1] = "--variant=2";
  arguments.emplace_back("--unordered");
  quickOnes = 0;
  Program unordered("tikaextract", arguments);
  EXPECT_TRUE(Ends(unordered, 0));
  // It may overtake those that were still on their way.
  std::vector<std::string> lines = Lines(unordered.Output());
  EXPECT_GE(std::find(lines.begin(), lines.end(), expected[0]) - lines.begin(), kQuickOnes / 2);
  std::sort(lines.begin(), lines.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(lines, expected);
}

TEST_F(TikaExtract, TextThatWasTakenBackIsKeptOnce) {
  constexpr std::size_t kLength = 3145728;
  std::vector<std::string> texts;
  std::vector<std::string> names;
  for (const char* name : {"a.doc", "b.doc"}) {
    const std::string content = std::string(name) + " tikafault:cut=2097152,text=3145728,tries=1";
    names.push_back(dir_.Write(name, content));
    texts.push_back(DocumentText(content, kLength).Next(kLength));
  }
  Program printed("tikaextract", WithServer({"--text-limit", "0", names[0]}));
  EXPECT_TRUE(Ends(printed, 0));
  EXPECT_TRUE(printed.Output() == texts[0]);
  Program written("tikaextract", WithServer({"-o", dir_.File("out"), names[1]}));
  EXPECT_TRUE(Ends(written, 0));
  EXPECT_TRUE(ReadFile(dir_.File("out/b.doc.txt")) == texts[1]);
  EXPECT_EQ(server_.Documents(), 4);
}

TEST_F(TikaExtract, TwoDocumentsNeverShareAText) {
  fs::create_directories(dir_.File("x"));
  fs::create_directories(dir_.File("y"));
  dir_.Write("a.pdf", "one");
  for (const char* name : {"x/a.pdf", "y/a.pdf"}) dir_.Write(name, "two");
  struct Row {
    std::string list;
    std::vector<std::string> arguments;
    int status;
    std::string text;     // below the output directory
    std::string content;  // that of the document named first
    std::string complaint;
  };
  const std::string list = dir_.File("list");
  const std::string other = " would replace that of '" + dir_.Path();
  const Row rows[] = {
      {"a.pdf\n", {"x/a.pdf"}, 1, "a.pdf.txt", "two", "a.pdf: its text" + other + "/x/a.pdf'"},
      {"a.pdf\nx/../a.pdf\n",
       {dir_.File("a.pdf")},
       0,
       "a.pdf.txt",
       "one",
       "1 extracted, 0 failed, 2 skipped"},
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
  EXPECT_EQ(CountFiles(out), 2U) << "nothing is left of what failed half-way";
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
      {"something else\n", "is not a journal"},
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
  std::atomic<bool> isDeadly{true};
  FaultServerOptions options;
  options.choose = [&](const DocumentHead& head) {
    FaultSpec fault;
    if (isDeadly && head.bytes == killer) ParseFault("close", &fault);
    return fault;
  };
  const FaultServer server(options);
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
  const auto run = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--server", "127.0.0.1:" + std::to_string(server.Port()),
                                       "-j", "2", "-o", dir_.File("out")});
    const int before = server.Documents();
    Program program("tikaextract", arguments);
    EXPECT_EQ(program.Wait(), isDeadly ? 1 : 0);
    sent = server.Documents() - before;
    return program.Error();
  };
  const std::string error = run({"--files-from", list});
  EXPECT_TRUE(Has(error, "200 extracted, 2 failed, 0 skipped"));
  EXPECT_TRUE(Has(
      error, "in/twin: not sent: servers died while they had '" + dir_.File("in/killer") + "'"));
  EXPECT_GE(sent, 202);
  const std::string later = dir_.Write("in/later", killer);
  EXPECT_TRUE(Has(run({"--resume", "--files-from", list, later, "--jsonl"}),
                  "0 extracted, 3 failed, 200 skipped"));
  EXPECT_EQ(sent, 0);
  run({"--resume", "--retry-refused", later});
  EXPECT_GE(sent, 2);
  isDeadly = false;
  run({"--resume", "--retry-refused", "--files-from", list, later});
  isDeadly = true;
  run({"--resume", dir_.Write("in/latest", killer)});
  EXPECT_GE(sent, 2) << "what has a text now kills no more";
}

TEST_F(TikaExtract, SettingsAreSavedAndUsed) {
  const std::string file = dir_.File("settings");
  fs::create_directories(dir_.File("in"));
  dir_.Write("in/a.pdf", "a");
  dir_.Write("in/b.odt", "b");
  Program save("tikaextract", WithServer({"--ext", "odt", "--save-settings", file}));
  EXPECT_TRUE(Ends(save, 0));
  Program use("tikaextract", {"--settings", file, "-r", dir_.File("in")});
  EXPECT_TRUE(Ends(use, 0));
  EXPECT_EQ(use.Output(), "text of b");
  Program edit("tikaextract", {"--settings", file, "--add-ext", ".PDF,odt", "--remove-ext", "ODT",
                               "--save-settings", file});
  EXPECT_TRUE(Ends(edit, 0));
  Program show("scaconf", {file});
  EXPECT_TRUE(Ends(show, 0) && Has(show.Output(), "(settings of text extraction)"));
  EXPECT_TRUE(Has(show.Output(), "FileExtensions = PDF\n"));
  Program edited("tikaextract", {"--settings", file, "-r", dir_.File("in")});
  EXPECT_TRUE(Ends(edited, 0));
  EXPECT_EQ(edited.Output(), "text of a");
  Program named("tikaextract", {"--settings", file, dir_.File("in/a.pdf")});
  EXPECT_EQ(named.Wait(), 0) << "what is named is taken whatever its extension";
  EXPECT_EQ(named.Output(), "text of a");
}

TEST(Json, BytesThatAreNoUtf8AreReplacedAndKept) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"a\u20AC\U0001F600\uD7FF", "a\u20AC\U0001F600\uD7FF", nullptr},
      {"\xC0\xAF", "\uFFFD\uFFFD", "wK8="},
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD", "7aCA"},
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD", "9JCAgA=="},
      {"a\xE2\x82", "a\uFFFD", "YeKC"},
      {"\xE2\x82\"b", "\uFFFD\"b", "4oIiYg=="},
      {"\xF1\x80\xC3\xA4\x9B\x9B\x9B\x9B", "\uFFFD\u00E4\uFFFD\uFFFD\uFFFD\uFFFD", "8YDDpJubm5s="}};
  for (const auto& [bytes, shown, base64] : rows) {
    nlohmann::ordered_json object;
    SetJsonText(&object, "key", bytes);
    const std::string whole = JsonText(object);
    const auto parsed = nlohmann::json::parse(whole);
    EXPECT_EQ(parsed["key"], shown);
    EXPECT_EQ(parsed.value("keyBase64", ""), base64 != nullptr ? base64 : "") << shown;
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
        return !written.append(piece).empty();
      }));
      EXPECT_EQ("{" + written + "}", whole) << "in pieces of " << size;
    }
  }
}

}  // namespace
