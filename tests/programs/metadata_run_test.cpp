// tikaextract with --meta and its relatives. The server answers requests for metadata with the
// bytes of the document itself, and refuses to extract plain text.

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <fstream>
#include <mutex>

#include "programs/common/Json.h"
#include "tests/support/Program.h"
#include "tests/support/ScriptedServer.h"

namespace {

constexpr char kRefusal[] =
    "HTTP/1.1 422 Unprocessable\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";

const std::string kWhole =
    R"([{"Content-Type":"a/b","dc:title":"T\u001b","X-TIKA:content":"one\n"},)"
    R"({"X-TIKA:embedded_resource_path":"/x","X-TIKA:content":"two"}])";
const std::string kCut =
    R"([{"X-TIKA:content":"half","X-TIKA:EXCEPTION:runtime":"a.b.IOException: gone"}])";
const std::string kLocked =
    R"([{"Content-Type":"c/d","X-TIKA:EXCEPTION:runtime":"a.EncryptedDocumentException: no"}])";
const std::string kDamaged = R"([{"tk:exception:container-exception":"a.IOException: bad"}])";

class MetadataRun : public ::testing::Test {
 protected:
  int Run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(),
                     {"--server", "127.0.0.1:" + std::to_string(server_.Port())});
    Program program("tikaextract", arguments);
    const int status = program.Wait();
    out_ = program.Output();
    error_ = program.Error();
    return status;
  }

  std::string Requests() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return requests_;
  }
  void ForgetRequests() {
    const std::lock_guard<std::mutex> guard(mutex_);
    requests_.clear();
  }

  void Answer(ServerConnection& connection) {
    // One connection at a time is served: an idle one must not keep the next one waiting.
    pollfd data{connection.Fd(), POLLIN, 0};
    if (::poll(&data, 1, 50) <= 0) return;
    const std::string request = connection.ReceiveRequest();
    if (request.empty()) return;
    if (request.rfind("GET /version", 0) == 0) {
      std::string reply = kVersionReply;
      if (isFour_) reply.replace(reply.find("3.3.2"), 5, "4.0.0");
      connection.Send(reply);
      return;
    }
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      requests_ += request.substr(0, request.find(" HTTP")) + "\n";
    }
    const bool isPlain = request.rfind("PUT /tika", 0) == 0;
    const std::string reply =
        isPlain ? kRefusal : ChunkedReply(request.substr(request.find("\r\n\r\n") + 4), 7);
    const bool isBroken = breaks_ > 0 && breaks_-- > 0;
    connection.Send(isBroken ? reply.substr(0, reply.size() / 2) : reply);
  }

  TempDir dir_;
  std::string out_;
  std::string error_;
  std::mutex mutex_;
  std::string requests_;
  std::atomic<int> breaks_{0};
  std::atomic<bool> isFour_{false};
  ScriptedServer server_{[this](ServerConnection& connection) { Answer(connection); }};
};

TEST_F(MetadataRun, ToldToPeopleAndByTheExitStatus) {
  const struct {
    const char* option;
    std::string reply;
    int status;
    std::string out;
    const char* said;
  } rows[] = {
      {"--check-complete", kWhole, 0, "one\ntwo", ""},
      {"--check-complete", kCut, 4, "half", "may not be whole (IOException: gone)"},
      {"--check-complete", kLocked, 1, "", "it is locked with a password"},
      {"--check-complete", kDamaged, 1, "", "cannot read it (IOException: bad)"},
      {"--check-complete", "[]", 1, "", "its metadata: "},
      {"--check-complete", "[{}", 1, "", "its metadata: "},
      {"--check-complete", "<html>", 1, "", "its metadata: "},
      {"--meta", kWhole, 0, "  title: T\\x1B\n", ""},
      {"--meta", kLocked, 1, "  text: locked\n", "it is locked with a password"},
      {"--detect", R"({"Content-Type":"a/b","language":"de"})", 0, ": a/b; de\n", ""},
      {"--detect", kLocked, 0, ": c/d\n", ""},
      // Plain text was refused: the reason is asked for.
      {"-v", kLocked, 1, "", "it is locked with a password"},
      {"-v", kDamaged, 1, "", "cannot read it (IOException: bad)"},
      {"-v", kWhole, 1, "", "it is empty, encrypted or damaged"},
      {"-v", "?", 1, "", "it is empty, encrypted or damaged"},
      {"-v", "", 1, "", "it is an empty file"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.option) + " " + row.reply);
    EXPECT_EQ(Run({row.option, dir_.Write("a.pdf", row.reply)}), row.status) << error_;
    EXPECT_TRUE(Has(out_, row.out));
    EXPECT_TRUE(Has(error_, row.said));
    EXPECT_EQ(out_.empty(), row.out.empty()) << out_;
  }
}

TEST_F(MetadataRun, PasswordIsAskedForWhereItCanBeSent) {
  isFour_ = true;
  for (const char* option : {"-v", "--check-complete"}) {
    EXPECT_EQ(Run({option, dir_.Write("a.pdf", kLocked)}), 1);
    EXPECT_TRUE(Has(error_, "the Tika version of its server takes none")) << option;
    EXPECT_FALSE(Has(error_, "--password-file")) << option;
  }
}

TEST_F(MetadataRun, RecordsHoldWhatTikaTells) {
  const std::string whole = dir_.Write("whole.pdf", kWhole);
  EXPECT_EQ(Run({"--jsonl", "--meta", "--embedded", whole, dir_.Write("cut.pdf", kCut),
                 dir_.Write("locked.pdf", kLocked)}),
            1);
  const std::vector<std::string> lines = Lines(out_);
  ASSERT_GE(lines.size(), 4U) << out_;
  const auto first = nlohmann::json::parse(lines[0]);
  EXPECT_EQ(first["text"], "one\n");
  EXPECT_EQ(first["title"], "T\x1b");
  EXPECT_EQ(first["complete"], true);
  EXPECT_EQ(first["embedded"][0]["path"], "/x");
  EXPECT_EQ(first["metadata"]["Content-Type"], "a/b");
  const auto embedded = nlohmann::json::parse(lines[1]);
  EXPECT_EQ(embedded["path"], whole);
  EXPECT_EQ(embedded["embeddedPath"], "/x");
  EXPECT_EQ(embedded["text"], "two");
  const auto cut = nlohmann::json::parse(lines[2]);
  EXPECT_EQ(cut["outcome"], "truncated");
  EXPECT_EQ(cut["complete"], false);
  EXPECT_EQ(cut["text"], "half");
  const auto locked = nlohmann::json::parse(lines[3]);
  EXPECT_EQ(locked["outcome"], "locked");
  EXPECT_EQ(locked["contentType"], "c/d");
  EXPECT_EQ(locked.count("text"), 0U);
}

TEST_F(MetadataRun, BrokenReplyLeavesNothingBehind) {
  breaks_ = 1;
  const std::string name = dir_.Write("a.pdf", kWhole);
  EXPECT_EQ(Run({"--jsonl", "--meta", "--embedded", name}), 0) << error_;
  ASSERT_EQ(Lines(out_).size(), 2U) << out_;
  EXPECT_EQ(nlohmann::json::parse(Lines(out_)[0])["text"], "one\n");
  EXPECT_EQ(nlohmann::json::parse(Lines(out_)[1])["text"], "two");
}

TEST_F(MetadataRun, JournalKnowsWhatWasChecked) {
  const std::string whole = dir_.Write("whole.pdf", kWhole);
  const std::string cut = dir_.Write("cut.pdf", kCut);
  const std::string locked = dir_.Write("locked.pdf", kLocked);
  const std::string password = dir_.Write("password", "\xEF\xBB\xBFsecret\r\nmore");
  const std::string out = dir_.File("out");
  const std::vector<std::string> all = {"-o", out, "--resume", whole, cut, locked};
  const auto run = [&](std::vector<std::string> more) {
    ForgetRequests();
    more.insert(more.end(), all.begin(), all.end());
    return Run(more);
  };
  EXPECT_EQ(run({"--check-complete"}), 1);
  EXPECT_EQ(Lines(Requests()).size(), 3U) << Requests();
  EXPECT_EQ(ReadFile(out + "/cut.pdf.txt"), "half");
  EXPECT_EQ(run({"--check-complete"}), 1);
  EXPECT_EQ(Requests(), "");
  EXPECT_TRUE(Has(error_, "1 of the skipped documents have texts that may not be whole"));
  EXPECT_EQ(run({"--password-file", password, "--check-complete"}), 1);
  // An attachment that was locked may be why a text is not whole.
  EXPECT_EQ(Lines(Requests()).size(), 2U) << Requests();
  EXPECT_TRUE(Has(error_, "the password of --password-file does not open it"));
  EXPECT_FALSE(Has(error_ + out_, "secret"));
  EXPECT_EQ(run({"--check-complete", "--retry-refused"}), 1);
  EXPECT_EQ(Lines(Requests()).size(), 2U) << Requests();
  // A text that was not checked is extracted again by a run that checks.
  const std::string journal = out + "/.tikaextract.journal";
  std::string lines = ReadFile(journal);
  for (std::size_t at = 0; (at = lines.find("\nC\t", at)) != std::string::npos;) lines[++at] = 'T';
  std::ofstream(journal) << lines;
  EXPECT_EQ(run({"-v"}), 1);
  EXPECT_EQ(Requests(), "");
  EXPECT_EQ(run({"--check-complete"}), 1);
  EXPECT_EQ(Lines(Requests()).size(), 1U) << Requests();
}

TEST_F(MetadataRun, WrongUseIsSaid) {
  const std::string name = dir_.Write("a.pdf", kWhole);
  const struct {
    std::vector<std::string> arguments;
    const char* said;
  } rows[] = {
      {{"--detect", "-o", dir_.File("o"), name}, "--detect makes no texts"},
      {{"--embedded", name}, "--embedded requires"},
      {{"--meta", "--markdown", name}, "excludes"},
      {{"--variant", "1", "--meta", name}, "--variant 1 and 2 are for plain text"},
      {{"--password-file", dir_.File("none"), name}, "cannot read the password file"},
      {{"--password-file", dir_.Write("empty", "\n"), name}, "is empty"},
      {{"--ocr", "perhaps", name}, "--ocr"},
      {{"--ocr-lang", "deu\r\nX: y", name}, "language"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Run(row.arguments), 2) << row.said;
    EXPECT_TRUE(Has(error_, row.said));
  }
  EXPECT_EQ(server_.Connections(), 0);
}

}  // namespace
