#include "platform/SCA_HttpParser.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using std::string_literals::operator""s;

constexpr char kStatus[] = "HTTP/1.1 200 OK\r\n";
constexpr unsigned long kUntouched = 4711;

std::string WithFields(const std::string& fields) {
  return kStatus + fields + "\r\n";
}

std::vector<std::string> Split(const std::string& texts) {
  std::vector<std::string> parts;
  std::istringstream stream(texts);
  for (std::string part; std::getline(stream, part, '|');) parts.push_back(part);
  return parts;
}

// A header with lines and bytes of these numbers, its blank line included.
std::string Sized(std::size_t lines, std::size_t bytes) {
  std::string header = kStatus;
  while (lines-- > 3) header += "A: b\r\n";
  header += "Fill: ";
  return header + std::string(bytes - header.size() - 4, 'x') + "\r\n\r\n";
}

// What both overloads make of a header: "code|transfer encoding|content length", the length being
// "-" when there is none, or "refused", the records then being as they were.
std::string Parsed(const std::string& header) {
  SCOPED_TRACE(header.substr(0, 200));
  const auto show = [](const tagSCA_HTTP_REQUEST& record) {
    return std::to_string(record.replyCode) + "|" + record.transferEncoding + "|" +
           (record.hasContentLength != 0 ? std::to_string(record.contentLength) : "-") +
           (record.isContentEncoded != 0 ? "|encoded" : "");
  };
  // Of exactly this size on the heap: the sanitizers see a read behind it.
  const std::vector<char> exact(header.begin(), header.end());
  tagSCA_HTTP_REQUEST record{4711, "before", 11, 1, 0};
  const int done = SCA_HttpParser::ParseHttpHeader(exact.data(), exact.size(), &record);
  SCA_HttpClientRequest request;
  request.SetReplyCode(4711);
  request.SetContentLength(11);
  EXPECT_EQ(SCA_HttpParser::ParseHttpHeader(exact.data(), exact.size(), &request), done);
  EXPECT_EQ(request.GetReplyCode(), record.replyCode);
  EXPECT_EQ(request.GetContentLength(), record.contentLength);
  EXPECT_TRUE(done != 0 || show(record) == "4711|before|11") << show(record);
  EXPECT_TRUE(record.hasContentLength != 0 || record.contentLength == 0);
  return done != 0 ? show(record) : "refused";
}

TEST(ParseHttpHeader, FillsTheRecord) {
  const std::pair<std::string, std::string> headers[] = {
      {"HTTP/1.0 404 Not Found\r\n\r\n", "404||-"},
      {"HTTP/1.1 100 \r\n\r\n", "100||-"},
      {"HTTP/1.1 999 a\tb \xC3\xA4\r\n\r\n", "999||-"},
      {"\r\n\r\nHTTP/1.1 500 x\r\nContent-Length: 7\r\n\r\n", "500||7"},
      {WithFields("A: b\r\n") + "HTTP/1.1 404 in the body\r\n\r\n", "200||-"}};
  for (const auto& [header, expected] : headers) EXPECT_EQ(Parsed(header), expected) << header;
  const std::pair<std::string, std::string> fields[] = {
      {"", "|-"},
      {"Content-Length: 4294967295\r\n", "|4294967295"},
      {"Content-Length:0000000000000000000005\r\n", "|5"},
      {"cOnTeNt-LENGTH: \t 12 \t\r\n", "|12"},
      {"Content-Length: 12\r\nA: b\r\ncontent-length: 012\r\n", "|12"},
      {"transfer-encoding:\tChunked \r\n", "Chunked|-"},
      {"Transfer-Encoding: a, b\r\nContent-Length: 3\r\nTRANSFER-ENCODING: c\r\n", "a, b, c|3"},
      {"Content-Encoding: gzip\r\n", "|-|encoded"},
      {"content-encoding: identity , br\r\nContent-Encoding: identity\r\n", "|-|encoded"},
      {"Content-Encoding:\tIDENTITY,, identity\r\nContent-Encoding: \r\n", "|-"},
      {"Empty:\r\nBlank: \r\nColons: a:b::\r\n!#$%&'*+-.^_`|~09aZ: \xE4\tb\r\n", "|-"}};
  for (const auto& [field, expected] : fields) {
    EXPECT_EQ(Parsed(WithFields(field)), "200|" + expected) << field;
  }
}

TEST(ParseHttpHeader, RefusesStatusLinesThatAreNotHttp1) {
  for (const std::string& line : Split(
           "HTTP/2.0 200 OK|HTTP/1 200 OK|HTTP/1.x 200 OK|http/1.1 200 OK|HTTP/1.1 |HTTP/1.1 99 x|"
           "HTTP/1.1 099 x|HTTP/1.1 1000 x|HTTP/1.1 2O0 x|HTTP/1.1 -20 x|HTTP/1.1  200 x|"
           "HTTP/1.1 200\tx|HTTP/1.1 200x| HTTP/1.1 200 OK|PUT /tika HTTP/1.1|200 OK||A: b")) {
    EXPECT_EQ(Parsed(line + "\r\n\r\n"), "refused") << line;
  }
  // Above all bare line feeds: the fields behind one would be taken for the reason.
  for (const char c : {'\n', '\r', '\0', '\x01', '\x7F'}) {
    EXPECT_EQ(Parsed("HTTP/1.1 200 OK"s + c + "Content-Length: 5\r\n\r\n"), "refused") << c;
  }
}

TEST(ParseHttpHeader, RefusesMalformedFields) {
  for (const std::string& length :
       Split("4294967296|18446744073709551621|99999999999999999999999999||-1|+1|0x10|1 2|5, 5|5a|"
             "5\r\nContent-Length: 6|0\r\nContent-Length: 6")) {
    EXPECT_EQ(Parsed(WithFields("Content-Length: " + length + "\r\n")), "refused") << length;
  }
  for (const std::string& field : Split(
           "no colon|: no name|Blank : x|Tab\t: x| Folded: x|A: b\r\n folded|Two words: x|Na(me: x|"
           "N\xC3\xA4me: x|A: b\x01|A: b\x7F|A: b\nB: c|A: b\rB: c|A\x0B: c|A: b\0c|A\0: c"s)) {
    EXPECT_EQ(Parsed(WithFields(field + "\r\n")), "refused") << field;
  }
  const std::string encoding = "Transfer-Encoding: ";
  for (const std::string& value :
       {std::string(260, 'x'), std::string(251, 'x') + "\r\n" + encoding + "chunked"}) {
    EXPECT_EQ(Parsed(WithFields(encoding + value + "\r\n")), "refused") << value;
  }
}

TEST(ParseHttpHeader, HoldsToItsLimitsLeadingEmptyLinesIncluded) {
  for (const std::size_t empty : {0U, 1U, 100U}) {
    std::string before;
    while (before.size() < 2 * empty) before += "\r\n";
    const std::size_t lines = SCA_HttpMaxHeaderLines - empty;
    const std::size_t bytes = SCA_HttpMaxHeaderLength - before.size();
    EXPECT_EQ(Parsed(before + Sized(lines, 2000)), "200||-");
    EXPECT_EQ(Parsed(before + Sized(lines + 1, 2000)), "refused");
    EXPECT_EQ(Parsed(before + Sized(3, bytes)), "200||-");
    EXPECT_EQ(Parsed(before + Sized(3, bytes + 1)), "refused");
  }
}

TEST(IsHeaderReady, SaysSoFromTheLastByteOnAndNotBefore) {
  const std::string headers[] = {kStatus + "\r\n"s, WithFields("Content-Length: 3\r\nA: b\r\n"),
                                 "\r\n" + WithFields("A: b\r\n"), "\n\r\n\r\n" + WithFields("")};
  for (const std::string& header : headers) {
    const std::string text = header + "b\0dy\r\n\r\n"s;
    for (std::size_t length = 0; length <= text.size(); ++length) {
      SCOPED_TRACE(text.substr(0, length));
      const std::vector<char> received(text.begin(), text.begin() + static_cast<long>(length));
      unsigned long headerLength = kUntouched;
      const bool ready = length >= header.size();
      EXPECT_EQ(SCA_HttpParser::IsHeaderReady(received.data(), length, &headerLength),
                ready ? 1 : 0);
      EXPECT_EQ(headerLength, ready ? header.size() : kUntouched);
    }
  }
}

TEST(IsHeaderReady, EndsAtAZeroByteAndNeedsWholeLineEnds) {
  for (const std::string& text :
       {"HTTP/1.1 200 OK\r\nA: \0b\r\n\r\n"s, "\0\r\n\r\n"s, "HTTP/1.1 200 OK\n\n"s, "\r\n\r\n"s,
        "HTTP/1.1 200 OK\r\n\n"s, "HTTP/1.1 200 OK\r\n\r"s, "HTTP/1.1 200 OK\r\r\n\n"s}) {
    unsigned long headerLength = kUntouched;
    EXPECT_EQ(SCA_HttpParser::IsHeaderReady(text.data(), text.size(), &headerLength), 0) << text;
    EXPECT_EQ(headerLength, kUntouched);
  }
}

}  // namespace
