#include "platform/SCA_HttpParser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr char kStatus[] = "HTTP/1.1 200 OK\r\n";
constexpr unsigned long kUntouched = 4711;

std::string WithFields(const std::string& fields) {
  return kStatus + fields + "\r\n";
}

std::string Repeated(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

// A header with lines and bytes of these numbers, its blank line included.
std::string Sized(std::size_t lines, std::size_t bytes) {
  std::string header = kStatus + Repeated(lines - 3, "A: b\r\n") + "Fill: \r\n\r\n";
  header.insert(header.size() - 4, bytes - header.size(), 'x');
  return header;
}

int Parse(const std::string& header, tagSCA_HTTP_REQUEST* record) {
  // Of exactly this size on the heap: the sanitizers see a read behind it.
  const std::unique_ptr<char[]> exact(new char[header.size()]);
  std::memcpy(exact.get(), header.data(), header.size());
  return SCA_HttpParser::ParseHttpHeader(exact.get(), header.size(), record);
}

// Refused by both overloads, which leave the records as they were.
void ExpectRefused(const std::string& header) {
  SCOPED_TRACE(header.substr(0, 200));
  tagSCA_HTTP_REQUEST record{kUntouched, "before", 11, 1};
  EXPECT_EQ(Parse(header, &record), 0);
  EXPECT_EQ(record.replyCode, kUntouched);
  EXPECT_STREQ(record.transferEncoding, "before");
  EXPECT_EQ(record.contentLength, 11U);
  EXPECT_EQ(record.hasContentLength, 1);
  SCA_HttpClientRequest request;
  request.SetReplyCode(kUntouched);
  request.SetContentLength(11);
  EXPECT_EQ(SCA_HttpParser::ParseHttpHeader(header.data(), header.size(), &request), 0);
  EXPECT_EQ(request.GetReplyCode(), kUntouched);
  EXPECT_EQ(request.GetContentLength(), 11U);
}

TEST(ParseHttpHeader, FillsTheRecord) {
  struct Row {
    std::string header;
    unsigned long code;
    std::string encoding;
    unsigned long length;
    int hasLength;
  };
  const std::string long259(259, 'x');
  const Row rows[] = {
      {"HTTP/1.1 200 OK\r\n\r\n", 200, "", 0, 0},
      {"HTTP/1.0 404 Not Found\r\n\r\n", 404, "", 0, 0},
      {"HTTP/1.1 422\r\n\r\n", 422, "", 0, 0},
      {"HTTP/1.1 100 \r\n\r\n", 100, "", 0, 0},
      {"HTTP/1.1 999 a\tb \xC3\xA4\r\n\r\n", 999, "", 0, 0},
      {"\r\n\r\nHTTP/1.1 500 x\r\nContent-Length: 7\r\n\r\n", 500, "", 7, 1},
      {WithFields("Content-Length: 0\r\n"), 200, "", 0, 1},
      {WithFields("Content-Length: 4294967295\r\n"), 200, "", 4294967295, 1},
      {WithFields("Content-Length:0000000000000000000005\r\n"), 200, "", 5, 1},
      {WithFields("cOnTeNt-LENGTH: \t 12 \t\r\n"), 200, "", 12, 1},
      {WithFields("Content-Length: 12\r\nA: b\r\ncontent-length: 012\r\n"), 200, "", 12, 1},
      {WithFields("Content-Length2: 12\r\nX-Content-Length: 5\r\n"), 200, "", 0, 0},
      {WithFields("Transfer-Encoding: chunked\r\n"), 200, "chunked", 0, 0},
      {WithFields("transfer-encoding:\tChunked \r\n"), 200, "Chunked", 0, 0},
      {WithFields("Transfer-Encoding: gzip\r\nTransfer-Encoding: chunked\r\n"), 200,
       "gzip, chunked", 0, 0},
      {WithFields("Transfer-Encoding: a, b\r\nContent-Length: 3\r\nTRANSFER-ENCODING: c\r\n"), 200,
       "a, b, c", 3, 1},
      {WithFields("Transfer-Encoding: " + long259 + "\r\n"), 200, long259, 0, 0},
      {WithFields("Empty:\r\nBlank: \r\nColons: a:b::\r\n!#$%&'*+-.^_`|~09aZ: x\r\n"), 200, "", 0,
       0},
      {WithFields("Text: \xE4\xC3\xA4\tb\r\n"), 200, "", 0, 0},
      {WithFields("A: b\r\n") + "HTTP/1.1 404 in the body\r\n\r\n", 200, "", 0, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.header.substr(0, 200));
    tagSCA_HTTP_REQUEST record{kUntouched, "before", 11, 1};
    EXPECT_EQ(Parse(row.header, &record), 1);
    EXPECT_EQ(record.replyCode, row.code);
    EXPECT_EQ(record.transferEncoding, row.encoding);
    EXPECT_EQ(record.contentLength, row.length);
    EXPECT_EQ(record.hasContentLength, row.hasLength);
    SCA_HttpClientRequest request;
    request.SetContentLength(11);
    EXPECT_EQ(SCA_HttpParser::ParseHttpHeader(row.header.data(), row.header.size(), &request), 1);
    EXPECT_EQ(request.GetReplyCode(), row.code);
    EXPECT_EQ(request.GetContentLength(), row.length);
  }
}

TEST(ParseHttpHeader, RefusesStatusLinesThatAreNotHttp1) {
  for (const char* line : {"",
                           "200 OK",
                           "HTTP/2 200 OK",
                           "HTTP/2.0 200 OK",
                           "HTTP/1 200 OK",
                           "HTTP/1.x 200 OK",
                           "http/1.1 200 OK",
                           "HTTP/1.1",
                           "HTTP/1.1 ",
                           "HTTP/1.1 99",
                           "HTTP/1.1 99 x",
                           "HTTP/1.1 099 x",
                           "HTTP/1.1 1000 x",
                           "HTTP/1.1 ABC x",
                           "HTTP/1.1 2O0 x",
                           "HTTP/1.1 -20 x",
                           "HTTP/1.1  200 x",
                           "HTTP/1.1\t200 x",
                           "HTTP/1.1 200\tx",
                           "HTTP/1.1 200x",
                           " HTTP/1.1 200 OK",
                           "PUT /tika HTTP/1.1",
                           "XHTTP/1.1 200 OK"}) {
    ExpectRefused(std::string(line) + "\r\n\r\n");
  }
}

TEST(ParseHttpHeader, RefusesControlsInTheStatusLine) {
  // Above all bare line feeds: the fields behind one would be taken for the reason.
  for (const char c : {'\n', '\r', '\0', '\x01', '\x7F'}) {
    ExpectRefused(std::string("HTTP/1.1 200 OK") + c + "Content-Length: 5\r\n\r\n");
  }
}

TEST(ParseHttpHeader, RefusesMalformedFields) {
  for (const char* field : {"Content-Length: 4294967296",
                            "Content-Length: 18446744073709551621",
                            "Content-Length: 99999999999999999999999999",
                            "Content-Length:",
                            "Content-Length: -1",
                            "Content-Length: +1",
                            "Content-Length: 0x10",
                            "Content-Length: 1 2",
                            "Content-Length: 5, 5",
                            "Content-Length: 5a",
                            "Content-Length: 5\r\nContent-Length: 6",
                            "Content-Length: 0\r\nContent-Length: 6",
                            "no colon",
                            ": no name",
                            "Blank : x",
                            "Tab\t: x",
                            " Folded: x",
                            "A: b\r\n folded",
                            "Two words: x",
                            "Na(me: x",
                            "N\xC3\xA4me: x",
                            "A: b\x01",
                            "A: b\x7F",
                            "A: b\nB: c",
                            "A: b\rB: c",
                            "A\x0B: c"}) {
    ExpectRefused(WithFields(std::string(field) + "\r\n"));
  }
  using std::string_literals::operator""s;
  ExpectRefused(WithFields("A: b\0c\r\n"s));
  ExpectRefused(WithFields("A\0: c\r\n"s));
  ExpectRefused(WithFields("Transfer-Encoding: " + std::string(260, 'x') + "\r\n"));
  ExpectRefused(WithFields("Transfer-Encoding: " + std::string(251, 'x') +
                           "\r\nTransfer-Encoding: chunked\r\n"));
}

TEST(ParseHttpHeader, RefusesHeadersThatAreCutAnywhere) {
  const std::string header = "\r\n" + WithFields("Content-Length: 12\r\nA: b\r\n");
  for (std::size_t length = 0; length < header.size(); ++length) {
    ExpectRefused(header.substr(0, length));
  }
}

TEST(ParseHttpHeader, HoldsToItsLimits) {
  tagSCA_HTTP_REQUEST record;
  EXPECT_EQ(Parse(Sized(SCA_HttpMaxHeaderLines, 2000), &record), 1);
  ExpectRefused(Sized(SCA_HttpMaxHeaderLines + 1, 2000));
  EXPECT_EQ(Parse(Sized(3, SCA_HttpMaxHeaderLength), &record), 1);
  ExpectRefused(Sized(3, SCA_HttpMaxHeaderLength + 1));
}

TEST(ParseHttpHeader, CountsLeadingEmptyLinesAgainstTheLimits) {
  tagSCA_HTTP_REQUEST record;
  EXPECT_EQ(Parse("\r\n" + Sized(SCA_HttpMaxHeaderLines - 1, 2000), &record), 1);
  ExpectRefused("\r\n" + Sized(SCA_HttpMaxHeaderLines, 2000));
  ExpectRefused("\r\n" + Sized(3, SCA_HttpMaxHeaderLength));
}

TEST(IsHeaderReady, SaysSoFromTheLastByteOnAndNotBefore) {
  using std::string_literals::operator""s;
  const std::string headers[] = {kStatus + "\r\n"s, WithFields("Content-Length: 3\r\nA: b\r\n"),
                                 "\r\n" + WithFields("A: b\r\n"), "\r\n\r\n\r\n" + WithFields("")};
  for (const std::string& header : headers) {
    const std::string text = header + "b\0dy\r\n\r\n"s;
    for (std::size_t length = 0; length <= text.size(); ++length) {
      SCOPED_TRACE(text.substr(0, length));
      const std::unique_ptr<char[]> received(new char[length]);
      std::memcpy(received.get(), text.data(), length);
      unsigned long headerLength = kUntouched;
      const bool ready = length >= header.size();
      EXPECT_EQ(SCA_HttpParser::IsHeaderReady(received.get(), length, &headerLength),
                ready ? 1 : 0);
      EXPECT_EQ(headerLength, ready ? header.size() : kUntouched);
    }
  }
}

TEST(IsHeaderReady, EndsAtAZeroByteAndNeedsWholeLineEnds) {
  using std::string_literals::operator""s;
  for (const std::string& text :
       {"HTTP/1.1 200 OK\r\nA: \0b\r\n\r\n"s, "\0\r\n\r\n"s, "HTTP/1.1 200 OK\n\n"s, "\r\n\r\n"s,
        "HTTP/1.1 200 OK\r\n\n"s, "HTTP/1.1 200 OK\r\n\r"s, "HTTP/1.1 200 OK\r\r\n\n"s}) {
    unsigned long headerLength = kUntouched;
    EXPECT_EQ(SCA_HttpParser::IsHeaderReady(text.data(), text.size(), &headerLength), 0) << text;
    EXPECT_EQ(headerLength, kUntouched);
  }
}

TEST(HttpClientRequest, ContentBufferHasRoomForTheContentAndAZero) {
  SCA_HttpClientRequest request;
  EXPECT_EQ(request.IsValid(), 1);
  EXPECT_EQ(request.GetContentBuffer(), nullptr);
  for (const unsigned long length : {0UL, 5UL, 1048576UL, 3UL}) {
    request.SetContentLength(length);
    ASSERT_EQ(request.InitContentBuffer(), 1);
    ASSERT_NE(request.GetContentBuffer(), nullptr);
    std::memset(request.GetContentBuffer(), 'x', length);
    request.GetContentBuffer()[length] = '\0';
    EXPECT_EQ(std::strlen(request.GetContentBuffer()), length);
  }
}

}  // namespace
