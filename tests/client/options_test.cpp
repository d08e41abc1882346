// What the options of a request become, by the version of the server.

#include <gtest/gtest.h>

#include <array>
#include <cerrno>

#include "client/SCA_TikaRequestHead.h"
#include "platform/SCA_Error.h"
#include "tests/client/client_harness.h"
#include "tests/support/ScriptedServer.h"

namespace {

SCA_TikaVersion Version(const char* number) {
  return SCA_TikaVersion::Parse((std::string("Apache Tika ") + number).c_str());
}

TEST(Version, IsReadFromWhatServersAnswer) {
  struct Row {
    const char* text;
    std::array<unsigned long, 4> version;  // line, major, minor, patch
  };
  constexpr Row kRows[] = {
      {"Apache Tika 1.28.5", {1, 1, 28, 5}},
      {"Apache Tika 3.3.2", {3, 3, 3, 2}},
      {"Apache Tika 4.0.0-SNAPSHOT", {4, 4, 0, 0}},
      {"Apache Tika 2.9\n", {2, 2, 9, 0}},
      {"Apache Tika 12.1.0", {4, 12, 1, 0}},
      {"Apache Tika 0.9", {}},
      {"Apache Tika", {}},
      {"Apache Tika x", {}},
      {"Apache Tika 3", {}},
      {"Apache Tika 3.", {}},
      {"Apache Tika 3333333333333333333333.1", {}},
      {"nginx 1.24", {}},
      {"", {}},
      {nullptr, {}},
  };
  for (const Row& row : kRows) {
    const SCA_TikaVersion version = SCA_TikaVersion::Parse(row.text);
    const std::array<unsigned long, 4> read = {version.GetLine(), version.GetMajor(),
                                               version.GetMinor(), version.GetPatch()};
    EXPECT_EQ(read, row.version) << (row.text != nullptr ? row.text : "null");
    EXPECT_EQ(version.IsKnown(), row.version[0] != 0);
  }
}

SCA_TikaRequestOptions Full() {
  SCA_TikaRequestOptions options;
  options.password = "Gr\xC3\xBC\xC3\x9F\" \r\nEvil: 1";
  options.ocr = SCA_TikaOcr::None;
  options.ocrLanguage = "deu+eng";
  options.embedded = false;
  options.serverTimeoutMs = 60000;
  options.fileName = "\xC3\x9C \"a\\b\";\r\nEvil: 1.csv";
  options.contentType = "text/csv; charset=UTF-8";
  return options;
}

constexpr char kPassword[] = "Password_Base64_UTF-8: R3LDvMOfIiANCkV2aWw6IDE=\r\n";
constexpr char kLanguageAndEmbedded[] =
    "X-Tika-OCRLanguage: deu+eng\r\nX-Tika-Skip-Embedded: true\r\n";
constexpr char kHints[] =
    "Content-Disposition: attachment; "
    "filename*=UTF-8''%C3%9C%20%22a%5Cb%22%3B%0D%0AEvil%3A%201.csv\r\n"
    "Content-Type: text/csv; charset=UTF-8\r\n";

TEST(Options, BecomeTheLinesThatTheServersVersionReads) {
  constexpr unsigned long kOfOcr = SCA_TikaOptionOcr | SCA_TikaOptionOcrLanguage;
  struct Row {
    const char* version;
    std::string fields;
    unsigned long ignored;
    unsigned long refused;
  };
  const Row kRows[] = {
      {"1.28.5",
       kPassword +
           std::string("X-Tika-PDFOcrStrategy: no_ocr\r\nX-Tika-OCRMaxFileSizeToOcr: 0\r\n") +
           kLanguageAndEmbedded + kHints,
       SCA_TikaOptionServerTimeout, 0},
      {"3.3.2",
       kPassword + std::string("X-Tika-PDFOcrStrategy: no_ocr\r\nX-Tika-OCRskipOcr: true\r\n") +
           kLanguageAndEmbedded + "X-Tika-Timeout-Millis: 60000\r\n" + kHints,
       0, 0},
      {"4.0.0", kHints, kOfOcr | SCA_TikaOptionNoEmbedded | SCA_TikaOptionServerTimeout,
       SCA_TikaOptionPassword},
      {"none", "", 0, SCA_TikaOptionsIn(Full())},
  };
  for (const Row& row : kRows) {
    const SCA_TikaRequestHead head = SCA_MakeRequestHead(Full(), Version(row.version));
    EXPECT_EQ(head.fields, row.fields) << row.version;
    EXPECT_EQ(head.ignored, row.ignored) << SCA_TikaOptionNames(head.ignored);
    EXPECT_EQ(head.refused, row.refused) << SCA_TikaOptionNames(head.refused);
  }
}

TEST(Options, ThatNoRequestCanHaveAreNamedAndNeverSent) {
  using Options = SCA_TikaRequestOptions;
  struct Row {
    void (*spoil)(Options*);
    const char* named;
  };
  constexpr Row kRows[] = {
      {[](Options* o) { o->password.assign(1025, 'x'); }, "password"},
      {[](Options* o) { o->password = "\xFC"; }, "password"},
      {[](Options* o) { o->password = "\xED\xA0\x80"; }, "password"},
      {[](Options* o) { o->password = "\xC3"; }, "password"},
      {[](Options* o) { o->ocrLanguage = "deu\r\nEvil: 1"; }, "language"},
      {[](Options* o) { o->ocrLanguage = "deu++eng"; }, "language"},
      {[](Options* o) { o->ocrLanguage = "+"; }, "language"},
      {[](Options* o) { o->ocr = static_cast<SCA_TikaOcr>(4); }, "OCR"},
      {[](Options* o) { o->content = static_cast<SCA_TikaContent>(4); }, "content"},
      {[](Options* o) { o->serverTimeoutMs = 0x80000000; }, "time limit"},
      {[](Options* o) { o->fileName.assign(1, '\0'); }, "file name"},
      {[](Options* o) { o->fileName.assign(1025, 'x'); }, "file name"},
      {[](Options* o) { o->contentType = "text/csv\r\nEvil: 1"; }, "content type"},
      {[](Options* o) { o->contentType = "text/csv;\ncharset=x"; }, "content type"},
      {[](Options* o) { o->contentType = "text"; }, "content type"},
      {[](Options* o) { o->contentType = "/csv"; }, "content type"},
      {[](Options* o) { o->contentType = "text/\xC3\xBC"; }, "content type"},
  };
  ClientHarness harness({kChunkedHeader, "0\r\n\r\n"});
  harness.client.SetServerVersion(Version("3.3.2"));
  for (const Row& row : kRows) {
    Options options = Full();
    row.spoil(&options);
    const char* complaint = "";
    EXPECT_EQ(SCA_CheckTikaOptions(options, &complaint), SCA_ErrorOptionInvalid) << row.named;
    EXPECT_NE(std::string(complaint).find(row.named), std::string::npos) << complaint;
    const Extracted got = harness.ExtractWith(options);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.error, SCA_ErrorOptionInvalid);
  }
  EXPECT_EQ(SCA_CheckTikaOptions(Full(), nullptr), 0U);
  EXPECT_EQ(harness.ExtractWith(Full()).result, 1) << "nothing was sent before";
}

TEST(Options, WholeRequestsByVersionAndContent) {
  struct Row {
    const char* version;
    SCA_TikaContent content;
    const char* head;  // null: refused
  };
  using Content = SCA_TikaContent;
  constexpr Row kRows[] = {
      {"1.28.5", Content::Text, "PUT /tika HTTP/1.1|text/plain"},
      {"3.3.2", Content::Text, "PUT /tika HTTP/1.1|text/plain"},
      {"4.0.0", Content::Text, "PUT /tika/text HTTP/1.1|text/plain"},
      {"1.28.5", Content::Metadata, "PUT /rmeta/body HTTP/1.1|application/json"},
      {"4.0.0", Content::Metadata, "PUT /rmeta/body HTTP/1.1|application/json"},
      {"3.3.2", Content::Detection, "PUT /meta HTTP/1.1|application/json"},
      {"3.2.3", Content::Markdown, nullptr},
      {"3.3.2", Content::Markdown, "PUT /tika/md HTTP/1.1|text/plain"},
      {"4.0.0", Content::Markdown, "PUT /tika/md HTTP/1.1|text/plain"},
  };
  for (const Row& row : kRows) {
    ClientHarness harness({ChunkedReply("text", 4)});
    harness.client.SetServerVersion(Version(row.version));
    SCA_TikaRequestOptions options;
    options.content = row.content;
    const Extracted got = harness.ExtractWith(options);
    const std::string sent = harness.script.sent;
    if (row.head == nullptr) {
      EXPECT_EQ(got.error, SCA_ErrorOptionRefused);
      EXPECT_EQ(harness.client.GetRefusedOptions(), SCA_TikaOptionMarkdown);
      EXPECT_EQ(sent, "");
      continue;
    }
    const std::string head = row.head;
    const std::size_t bar = head.find('|');
    EXPECT_EQ(got.text, "text");
    EXPECT_EQ(sent, head.substr(0, bar) +
                        "\r\nHost: 127.0.0.1:8000\r\nUser-Agent: Orvane HTTP Client\r\nAccept: " +
                        head.substr(bar + 1) + "\r\nContent-Length: 10\r\n\r\n0123456789");
    if (row.content != Content::Text) continue;
    // Without options, each variant sends the same.
    for (const unsigned long variant : kVariants) {
      ClientHarness plain({ChunkedReply("text", 4)});
      plain.client.SetServerVersion(Version(row.version));
      EXPECT_EQ(plain.Extract(variant).text, "text");
      EXPECT_EQ(plain.script.sent, sent) << variant;
    }
  }
}

TEST(ServerMessage, IsReadOnceBoundedAndLeavesTheConnectionUsable) {
  struct Row {
    const char* fields;
    std::string body;
    std::string message;
    long retryAfter;
    bool isUsable;
  };
  const std::string kLong(3000, 'x');
  const Row kRows[] = {
      {"", R"({"status":"CRASH","message":"it \u0000 \"broke\"\r\n"})", "it   \"broke\"  ", -1,
       true},
      {"Retry-After: 5\r\n", R"({"status":"CRASH"})", "CRASH", 5, true},
      {"Retry-After: soon\r\n", R"({"message":17})", "17", -1, true},
      {"Retry-After: 99999999999999999999\r\n", "[1,", "", 1000000000, true},
      {"", "", "", -1, true},
      {"", "{\"message\":\"" + kLong + "\"}", kLong.substr(0, 255), -1, true},
      {"", std::string(4097, ' '), "", -1, false},
      {"Content-Encoding: gzip\r\n", R"({"message":"no"})", "", -1, true},
  };
  for (const Row& row : kRows) {
    const std::string reply =
        std::string("HTTP/1.1 422 No\r\nContent-Type: application/json; charset=utf-8\r\n") +
        row.fields + "Content-Length: " + std::to_string(row.body.size()) + "\r\n\r\n" + row.body;
    for (const std::size_t piece : {std::size_t{100}, reply.size()}) {
      ClientHarness harness(InPieces(reply, piece));
      EXPECT_EQ(harness.Extract(3).error, SCA_ErrorTika422);
      EXPECT_EQ(harness.client.GetServerMessage(), row.message) << reply;
      EXPECT_EQ(harness.client.GetRetryAfter(), row.retryAfter) << reply;
      EXPECT_TRUE(harness.reports.All().empty());
    }
    ClientHarness harness({reply, ChunkedReply("next", 4)});
    EXPECT_EQ(harness.Extract(3).error, SCA_ErrorTika422);
    if (row.isUsable && row.body.size() > 0) {
      EXPECT_EQ(harness.Extract(3).text, "next") << reply;
      EXPECT_STREQ(harness.client.GetServerMessage(), "") << "of the last extraction";
    } else if (!row.isUsable) {
      EXPECT_EQ(harness.Extract(3).error, static_cast<unsigned long>(EPROTO)) << reply;
    }
  }
}

}  // namespace
