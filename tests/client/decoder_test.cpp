#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "platform/SCA_Error.h"
#include "tests/client/client_harness.h"
#include "tests/client/decoder_model.h"
#include "tests/support/ScriptedServer.h"

namespace {

const std::string kHeader = kChunkedHeader;

struct Reply {
  const char* name;
  bool isPlain;      // every variant can decode it when it comes in one piece
  std::string lead;  // before the header
  std::string body;
  std::string text;

  std::string Whole() const { return lead + kHeader + body; }
  std::size_t HeaderLength() const { return lead.size() + kHeader.size(); }
};

std::string Body(const std::string& text, std::size_t chunkSize) {
  return ChunkedReply(text, chunkSize).substr(kHeader.size());
}

std::string Pattern(std::size_t length) {
  std::string text;
  while (text.size() < length) text += "line " + std::to_string(text.size()) + "\r\n0\r\n\r\n";
  return text.substr(0, length);
}

// Replies that end well. Short ones go through every two cuts, long ones exceed the network
// buffers.
std::vector<Reply> Replies() {
  return {
      {"no text", true, "", "0\r\n\r\n", ""},
      {"one chunk", true, "", "5\r\nhello\r\n0\r\n\r\n", "hello"},
      {"two chunks", true, "", "3\r\nabc\r\nA\r\n0123456789\r\n0\r\n\r\n", "abc0123456789"},
      {"single bytes", true, "", "1\r\na\r\n1\r\nb\r\n1\r\nc\r\n0\r\n\r\n", "abc"},
      {"lower case and zeros", true, "", "00001a\r\nabcdefghijklmnopqrstuvwxyz\r\n0\r\n\r\n",
       "abcdefghijklmnopqrstuvwxyz"},
      {"an extension", true, "", "1a;n=v\r\nabcdefghijklmnopqrstuvwxyz\r\n0\r\n\r\n",
       "abcdefghijklmnopqrstuvwxyz"},
      {"framing in the text", true, "", "9\r\n\r\n0\r\n\r\n5\r\r\n2\r\n\r\n\r\n0\r\n\r\n",
       "\r\n0\r\n\r\n5\r"
       "\r\n"},
      {"rest of the reply before", true, "\r\n", "4\r\ntext\r\n0\r\n\r\n", "text"},
      {"interim replies before", true,
       "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 E\r\nA: b\r\n\r\n", "4\r\ntext\r\n0\r\n\r\n",
       "text"},
      {"empty lines between", false, "", "3\r\nabc\r\n\r\n\r\n2\r\nde\r\n0\r\n\r\n", "abcde"},
      {"larger than the small buffer", false, "", Body(Pattern(700), 600), Pattern(700)},
      {"larger than the large buffer", false, "", Body(Pattern(5000), 2500), Pattern(5000)},
  };
}

std::vector<std::vector<std::string>> Deliveries(const std::string& reply) {
  constexpr std::size_t kShort = 90;
  std::vector<std::vector<std::string>> deliveries{{reply}};
  for (const std::size_t size : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 16U, 31U}) {
    deliveries.push_back(InPieces(reply, size));
  }
  for (std::size_t first = 1; first < reply.size(); ++first) {
    deliveries.push_back(CutAt(reply, {first}));
    if (reply.size() > kShort) continue;
    for (std::size_t second = first + 1; second < reply.size(); ++second) {
      deliveries.push_back(CutAt(reply, {first, second}));
    }
  }
  return deliveries;
}

std::string Describe(const Reply& reply, unsigned long variant,
                     const std::vector<std::string>& pieces) {
  std::string text = std::string(reply.name) + ", variant " + std::to_string(variant) + ", pieces";
  for (const std::string& piece : pieces) text += " " + std::to_string(piece.size());
  return text;
}

// Counters, validity flag and lengths after an extraction that ended with a code.
void ExpectBookkeeping(const ClientHarness& harness, const Extracted& extracted,
                       unsigned long variant, unsigned long code, bool keepsValid) {
  const bool isCounted = code != 0 && code != SCA_ErrorCancelled;
  EXPECT_EQ(extracted.result, code == 0 ? 1 : 0);
  EXPECT_EQ(extracted.error, code);
  EXPECT_EQ(harness.client.GetTotalErrors(), isCounted ? 1U : 0U);
  EXPECT_EQ(harness.client.IsValid(), keepsValid ? 1 : 0);
  EXPECT_EQ(harness.client.GetRecvData(), extracted.text.size());
  EXPECT_TRUE(extracted.isTiled);
  const bool showsLength = code == 0 || variant == 3;
  EXPECT_EQ(harness.client.GetLastTextLength(), showsLength ? extracted.text.size() : 0U);
  EXPECT_EQ(extracted.textLength, code == 0 ? extracted.text.size() : 0U);
}

TEST(Decoder, EveryDeliveryEndsAsItsVariantDemands) {
  for (const Reply& reply : Replies()) {
    for (const auto& pieces : Deliveries(reply.Whole())) {
      for (const unsigned long variant : {1UL, 2UL, 3UL}) {
        SCOPED_TRACE(Describe(reply, variant, pieces));
        const ModelOutcome expected = PredictOutcome(variant, pieces, reply.HeaderLength());
        ClientHarness harness;
        harness.script.pieces = pieces;
        const Extracted extracted = harness.Extract(variant);
        ExpectBookkeeping(harness, extracted, variant, expected.code, expected.keepsValid);
        EXPECT_EQ(extracted.text, expected.text.substr(0, extracted.text.size()));
        // A reply in one piece is for all variants, one in any pieces for the third.
        const bool mustSucceed = variant == 3 || (pieces.size() == 1 && reply.isPlain);
        const std::string& text = mustSucceed ? reply.text : expected.text;
        EXPECT_EQ(extracted.text, expected.code == 0 || mustSucceed ? text : extracted.text);
        if (HasFailure()) return;
      }
    }
  }
}

// A reply may end anywhere in the buffers, between its last two bytes too.
TEST(Decoder, NothingOfAReplyReachesTheNextOneOnItsConnection) {
  for (const unsigned long variant : {1UL, 2UL, 3UL}) {
    for (std::size_t length = 1; length < 2100; ++length) {
      SCOPED_TRACE(::testing::Message() << "variant " << variant << ", text of " << length);
      ClientHarness harness;
      harness.script.pieces = {ChunkedReply(Pattern(length), 4000), ChunkedReply("next", 4)};
      const Extracted first = harness.Extract(variant);
      // The first two may fail where the buffer cuts a size line.
      if (variant != 3 && first.result == 0) continue;
      EXPECT_EQ(first.text.size(), length);
      EXPECT_EQ(harness.Extract(variant).text, "next");
    }
  }
}

TEST(Decoder, ReplyCutShortNeverPassesForTheText) {
  for (const Reply& reply : Replies()) {
    const std::string whole = reply.Whole();
    const std::size_t lastSize = whole.rfind("0\r\n\r\n") + 3;
    for (std::size_t length = 0; length < lastSize; ++length) {
      for (const unsigned long variant : {1UL, 2UL, 3UL}) {
        SCOPED_TRACE(Describe(reply, variant, {whole.substr(0, length)}));
        ClientHarness harness;
        harness.script.pieces = {whole.substr(0, length)};
        const Extracted extracted = harness.Extract(variant);
        EXPECT_EQ(extracted.result, 0);
        EXPECT_TRUE(extracted.error == ECONNRESET || extracted.error == SCA_ErrorInvalidData);
        EXPECT_EQ(extracted.text, reply.text.substr(0, extracted.text.size()));
      }
    }
  }
}

enum class Fault { Wait, Receive, CancelledWait };

// Gives how often the operation happened in an extraction that nothing disturbed.
std::size_t CountOperations(const std::vector<std::string>& pieces, unsigned long variant,
                            Fault fault) {
  ClientHarness harness(64);
  harness.script.pieces = pieces;
  EXPECT_EQ(harness.Extract(variant).result, 1);
  return fault == Fault::Receive ? harness.script.receiveSizes.size()
                                 : harness.script.waitTimeouts.size();
}

TEST(Decoder, FaultOfTheNthSocketOperationEndsTheExtractionAsItself) {
  // Chunks that the third variant collects whole, in part and in several blocks.
  const std::string text = Pattern(300);
  for (const unsigned long variant : {1UL, 2UL, 3UL}) {
    const std::vector<std::string> pieces =
        variant == 3 ? InPieces(ChunkedReply(text, 50), 7)
                     : std::vector<std::string>{ChunkedReply(text, 50).substr(0, 80),
                                                ChunkedReply(text, 50).substr(80)};
    for (const Fault fault : {Fault::Wait, Fault::Receive, Fault::CancelledWait}) {
      const std::size_t count = CountOperations(pieces, variant, fault);
      for (int n = 0; n < static_cast<int>(count); ++n) {
        SCOPED_TRACE(::testing::Message() << "variant " << variant << ", operation " << n);
        ClientHarness harness(64);
        harness.script.pieces = pieces;
        if (fault == Fault::Wait) harness.script.failWait = n;
        if (fault == Fault::Receive) harness.script.failReceive = n;
        if (fault == Fault::CancelledWait) {
          harness.script.onWait = [&](int number) {
            if (number == n) harness.cancel.Set();
          };
        }
        const bool isCancel = fault == Fault::CancelledWait;
        const Extracted extracted = harness.Extract(variant);
        ExpectBookkeeping(harness, extracted, variant, isCancel ? SCA_ErrorCancelled : 5, isCancel);
        EXPECT_EQ(extracted.text, text.substr(0, extracted.text.size()));
        EXPECT_EQ(harness.reports.All().empty(), isCancel || n < (variant == 3 ? 7 : 1));
      }
    }
  }
}

// A fault of the framing, or a socket that fails, as the variant's report tells it.
struct Complaint {
  unsigned long variant;
  std::vector<std::string> pieces;  // the first one behind the header
  std::string report;               // behind the name of the operation, if it is the variant's own

  std::string Report() const {
    const std::string prefix = "SCA_TikaClient::GetFileTextV" + std::to_string(variant) + ": ";
    return report.rfind("SCA_", 0) == 0 ? report : prefix + report;
  }
  void Play(ClientHarness* harness, unsigned long code) const {
    SCOPED_TRACE(Report());
    harness->script.pieces = pieces;
    harness->script.pieces.front() = kHeader + pieces.front();
    const bool keepsValid = report.rfind("invalid chunk delimiter", 0) == 0;
    ExpectBookkeeping(*harness, harness->Extract(variant), variant, code, keepsValid);
    EXPECT_EQ(
        harness->reports.All(),
        (std::vector<CapturedReport>{{5, "SCA_TikaClientV" + std::to_string(variant), Report()}}));
  }
};

TEST(Decoder, FramingFaultsAreReportedInTheVariantsWords) {
  const std::string h = std::to_string(kHeader.size());
  const auto at = [](std::size_t offset) { return std::to_string(kHeader.size() + offset); };
  const std::string noLength = "the chunk length is not set (RP=" + h + ", RL=";
  const std::string more = "SCA_TikaClient::GetMoreData: ";
  const Complaint invalid[] = {
      {1, {""}, noLength + h + ")"},
      {1, {"5\r", "\nhello\r\n0\r\n\r\n"}, noLength + at(2) + ")"},
      {1, {"\r\nhello"}, noLength + at(7) + ")"},
      {1, {std::string(256, '1') + "\r\n"}, noLength + at(258) + ")"},
      {1,
       {std::string(255, 'F') + "\r\n"},
       "18446744073709551615 bytes of a data chunk do not fit the data buffer of 4096 bytes"},
      {1, {"2\r\nab", "\r", "\n0\r\n\r\n"}, "invalid chunk delimiter"},
      {1, {"2\r\nab", "xx0\r\n\r\n"}, "invalid chunk delimiter"},
      {1,
       {"2\r\nab\xFFz0\r\n"},
       "invalid chunk delimiter RL=" + at(10) + ", RP=" + at(5) + ", DRP=-1, DRP+1=122"},
      {1,
       {"2\r\nab\r", "\n0\r\n\r\n"},
       "invalid chunk delimiter RL=" + at(6) + ", RP=" + at(5) + ", DRP=13, DRP+1=0"},
      {2, {"", "1234567\r\n"}, "cannot get the chunk length (RP=0, RL=9)"},
      {2, {"5\r", "\nhello\r\n0\r\n\r\n"}, "cannot get the chunk length (RP=0, RL=13)"},
      {2, {"2\r\nabxx0\r\n"}, "no chunk finish CRLF (RP=" + at(5) + ", RL=" + at(10) + ")"},
      {2, {"2\r\nab\r", "\n0\r\n\r\n"}, "incomplete chunk CRLF (1)"},
      {2, {"2\r\nab", "\r", "\n"}, "incomplete chunk CRLF (1)"},
      {2, {"2\r\nab", "x\xFF"}, "invalid chunk CRLF received (120--1)"},
      {3, {"1234567\r\n"}, "invalid chunk size (CSL=7)"},
      {3, {"2\r\nabxyz\r\n"}, "invalid chunk size (CSL=3)"},
      {3, {std::string(511, 'a'), "b", "c"}, more + "no CRLF in 512 bytes of data"},
  };
  for (const Complaint& fault : invalid) {
    ClientHarness harness;
    fault.Play(&harness, SCA_ErrorInvalidData);
  }
  const Complaint ended[] = {
      {1, {"9\r\nab"}, "cannot receive data chunk (ERR:104)"},
      {1, {"2\r\nab"}, "cannot receive the next data chunk (ERR:104)"},
      {2, {"2\r\nab"}, "cannot receive chunk CRLF (ERR:104)"},
      {2, {"9\r\nab"}, "cannot receive data chunk (ERR:104)"},
      {2, {""}, "cannot receive the next data chunk (ERR:104)"},
      {3, {"9\r\nab"}, "cannot receive data chunk (ERR:104)"},
      {3, {""}, more + "cannot receive data (RDL=0, ERR=104)"},
      {3, {"1234"}, more + "cannot receive data (RDL=4, ERR:104)"},
  };
  for (const Complaint& fault : ended) {
    ClientHarness harness;
    fault.Play(&harness, ECONNRESET);
  }
  const Complaint late[] = {
      {1, {"5\r\nhe"}, "data wait timeout (ERR:110)"},
      {1, {"2\r\nhe"}, "data network timeout (ERR:110)"},
      {2, {"5\r\nhe"}, "data wait timeout (ERR:110)"},
      {2, {""}, "data network timeout (ERR:110)"},
      {2, {"2\r\nhe"}, "chunk CRLF wait timeout (ERR:110)"},
      {3, {"5\r\nhe"}, "data wait timeout (ERR:110)"},
      {3, {""}, more + "data network timeout (ERR:110)"},
  };
  for (const Complaint& fault : late) {
    ClientHarness harness;
    harness.settings.SetNetworkTimeout(4321);
    harness.script.failWait = 1;
    harness.script.failCode = ETIMEDOUT;
    fault.Play(&harness, ETIMEDOUT);
    EXPECT_EQ(harness.script.waitTimeouts, (std::vector<unsigned long>{4321, 4321}));
  }
}

TEST(Decoder, SizeLines) {
  const auto check = [](const std::string& line, bool isSize) {
    for (const unsigned long variant : {1UL, 2UL, 3UL}) {
      SCOPED_TRACE("'" + line + "', variant " + std::to_string(variant));
      ClientHarness harness;
      // What follows would be the end of a reply without text, if the line were dropped.
      harness.script.pieces = {kHeader + line + "\r\nhello\r\n0\r\n\r\n", "0\r\n\r\n"};
      const bool isTooLong = variant != 1 && line.size() > 6;
      const Extracted extracted = harness.Extract(variant);
      if (isTooLong && variant == 2) {
        // Such a line is dropped with all that was held, as documented.
        EXPECT_EQ(extracted.text, "");
      } else if (isTooLong || !isSize) {
        ExpectBookkeeping(harness, extracted, variant, SCA_ErrorInvalidData, false);
        EXPECT_EQ(harness.reports.All().size(), 1U);
      } else {
        ExpectBookkeeping(harness, extracted, variant, 0, true);
        EXPECT_EQ(extracted.text, "hello");
      }
    }
  };
  for (const char* line : {"5", "05", "00005", "5;x=y", "5 ", "5zz", " 5", "5\r", "+5", "0x5",
                           "0000005", "5;extension"}) {
    check(line, true);
  }
  // The last three are 5 in 32 and in 64 bits, and 0 in 64 bits.
  for (const char* line : {"-5", "-0", " -5", "\n5", "0x", "0xg", "g", "x5", ";5", "  ", "+",
                           "FFFFFF", "100000005", "10000000000000005", "10000000000000000"}) {
    check(line, false);
  }
}

TEST(Decoder, BlocksEndWhereTheNextChunkWouldNotFit) {
  struct Row {
    unsigned long variant;
    unsigned long bufferSize;
    std::vector<std::size_t> chunks;
    bool inOnePiece;
    std::vector<unsigned long> blocks;  // lengths; empty: refused
  };
  const std::vector<Row> rows = {
      // Whole in the network buffer: the first variant flushes before a chunk that just fits.
      {1, 10, {4, 5}, true, {9}},
      {1, 10, {4, 6}, true, {4, 6}},
      {1, 10, {10}, true, {10}},
      {1, 10, {11}, true, {}},
      {2, 10, {4, 6}, true, {10}},
      {2, 10, {4, 7}, true, {4, 7}},
      {2, 10, {11}, true, {}},
      {3, 10, {4, 6}, true, {10}},
      {3, 10, {4, 7}, true, {4, 7}},
      {3, 10, {11}, true, {}},
      // Received straight into the data buffer: the CR LF needs room too.
      {1, 10, {10}, false, {10}},
      {2, 10, {8}, false, {8}},
      {2, 10, {9}, false, {}},
      {3, 10, {8}, false, {8}},
      {3, 10, {9}, false, {}},
  };
  for (const Row& row : rows) {
    std::string body;
    std::size_t total = 0;
    for (const std::size_t size : row.chunks) {
      body += Body(std::string(size, 'x'), size).substr(0, size + 5);  // one digit
      total += size;
    }
    body += "0\r\n\r\n";
    SCOPED_TRACE(::testing::Message() << "variant " << row.variant << " chunks of " << total
                                      << " buffer " << row.bufferSize);
    ClientHarness harness(row.bufferSize);
    const std::string whole = kHeader + body;
    const std::size_t dataAt = kHeader.size() + 3;
    harness.script.pieces =
        row.inOnePiece ? std::vector<std::string>{whole}
                       : CutAt(whole, {dataAt, dataAt + total + (row.variant == 1 ? 0 : 2)});
    const Extracted extracted = harness.Extract(row.variant);
    std::vector<unsigned long> lengths;
    for (const auto& block : extracted.blocks) lengths.push_back(block.second);
    EXPECT_EQ(lengths, row.blocks);
    ExpectBookkeeping(harness, extracted, row.variant,
                      row.blocks.empty() ? SCA_ErrorInvalidData : 0, !row.blocks.empty());
  }
}

TEST(Decoder, StopFromTheCallbackIsNoError) {
  const std::string text = Pattern(100);
  for (const unsigned long variant : {1UL, 2UL, 3UL}) {
    for (const unsigned long stopAt : {0UL, 50UL}) {
      SCOPED_TRACE(::testing::Message() << "variant " << variant << " stop at " << stopAt);
      ClientHarness harness(50);
      harness.script.pieces = {ChunkedReply(text, 25)};
      unsigned long delivered = 0;
      harness.onBlock = [&](unsigned long offset) {
        delivered = offset;
        return offset >= stopAt ? 0 : 1;
      };
      const Extracted extracted = harness.Extract(variant);
      EXPECT_EQ(extracted.error, SCA_ErrorCancelled);
      EXPECT_EQ(harness.client.GetTotalErrors(), 0U);
      EXPECT_EQ(harness.client.IsValid(), 1);
      // The block that was refused does not count as received.
      EXPECT_EQ(harness.client.GetRecvData(), delivered);
      EXPECT_EQ(harness.client.GetLastTextLength(), variant == 3 ? delivered : 0);
      EXPECT_TRUE(harness.reports.All().empty());
    }
  }
}

TEST(Decoder, CancelIsSeenAfterReceivesAndBetweenEmptyLines) {
  for (const unsigned long variant : {1UL, 2UL, 3UL}) {
    SCOPED_TRACE(variant);
    ClientHarness harness;
    harness.script.pieces = {kHeader + "64\r\nab", std::string(20, 'c'), std::string(80, 'd')};
    harness.script.ignoresCancel = true;
    harness.script.onReceive = [&](int number) {
      if (number == 1) harness.cancel.Set();
    };
    ExpectBookkeeping(harness, harness.Extract(variant), variant, SCA_ErrorCancelled, true);
    EXPECT_EQ(harness.script.receiveSizes.size(), 2U);
  }
  ClientHarness harness;
  harness.script.pieces = {kHeader};
  for (int i = 0; i < 1000; ++i) harness.script.pieces.emplace_back("\r\n\r\n");
  harness.script.onWait = [&](int number) {
    if (number == 500) harness.cancel.Set();
  };
  ExpectBookkeeping(harness, harness.Extract(3), 3, SCA_ErrorCancelled, true);
}

TEST(Decoder, ReplyHeaderDecidesBeforeAnyText) {
  struct Row {
    std::string header;
    unsigned long code;
    bool keepsValid;
    std::string report;  // behind "SCA_TikaClient::GetFileTextVn: "
    std::string text = "";
  };
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const auto interim = [](int count) {
    std::string replies;
    while (count-- > 0) replies += "HTTP/1.1 102 x\r\n\r\n";
    return replies;
  };
  const std::string chunked = "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n";
  const std::vector<Row> rows = {
      {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", 0, true, ""},
      {ok + "Content-Length: 0\r\n" + chunked, 0, true, "", "hello"},
      {ok + "Content-Encoding: gzip\r\n" + chunked, SCA_ErrorContentEncoding, false, ""},
      {ok + "Content-Encoding: identity,br\r\nContent-Length: 0\r\n\r\n", SCA_ErrorContentEncoding,
       false, ""},
      {ok + "Content-Encoding: Identity\r\n" + chunked, 0, true, "", "hello"},
      {interim(32) + ok + chunked, 0, true, "", "hello"},
      {interim(33) + ok + chunked, SCA_ErrorInterimReplies, false, ""},
      {interim(1) + "HTTP/1.1 422 No\r\n\r\n", 100191, true, ""},
      {interim(1), ECONNRESET, false, ""},
      {"HTTP/1.1 101 Switching\r\n\r\n" + ok + chunked, SCA_ErrorInterimReplies, false, ""},
      {"HTTP/1.1 099 No\r\n\r\n", 100138, false, ""},
      {"HTTP/1.1 999 No\r\n\r\n", 999, false, "Unknown Tika server reply code - 999"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello", 100138, false,
       "unsupported transfer encoding - "},
      {"HTTP/1.1 200 OK\r\n\r\nhello", 100138, false, "unsupported transfer encoding - "},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: \r\n\r\n", 100138, false,
       "unsupported transfer encoding - "},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\n\r\n", 100138, false,
       "unsupported transfer encoding - Chunked"},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip\r\n" + chunked, 100138, false,
       "unsupported transfer encoding - gzip, chunked"},
      {"HTTP/1.1 422 No\r\nContent-Length: 0\r\n\r\n", 100191, true, ""},
      {"HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n", 100194, false, ""},
      {"HTTP/1.1 503 No\r\n" + chunked, 503, false, "Unknown Tika server reply code - 503"},
      {"HTTP/1.1 204 No\r\n\r\n", 204, false, "Unknown Tika server reply code - 204"},
      {"SSH-2.0-server\r\n\r\n", 100138, false, ""},
      {"HTTP/1.1 200 OK\r\nContent-Length: 4294967296\r\n" + chunked, 100138, false, ""},
      {"HTTP/1.1 200 OK\r\n", ECONNRESET, false, ""},
      {"HTTP/1.1 200 OK\r\nLong: " + std::string(2100, 'x'), SCA_ErrorHeaderTooLong, false, ""},
  };
  for (const Row& row : rows) {
    for (const unsigned long variant : {1UL, 2UL, 3UL}) {
      SCOPED_TRACE(row.header.substr(0, 60) + ", variant " + std::to_string(variant));
      ClientHarness harness;
      harness.script.pieces = {row.header};
      const Extracted extracted = harness.Extract(variant);
      ExpectBookkeeping(harness, extracted, variant, row.code, row.keepsValid);
      EXPECT_EQ(extracted.text, row.text);
      const std::string name = "V" + std::to_string(variant);
      std::vector<CapturedReport> reports;
      if (!row.report.empty()) {
        reports.push_back(
            {5, "SCA_TikaClient" + name, "SCA_TikaClient::GetFileText" + name + ": " + row.report});
      }
      EXPECT_EQ(harness.reports.All(), reports);
    }
  }
}

TEST(Decoder, FirstVariantTracesFromDebugLevelTwo) {
  const std::vector<std::string> expected = {
      "SCA_TikaClient::GetFileTextV1: file size 10 bytes",
      "SCA_TikaClient::GetFileTextV1: 10 bytes od data sent to the Tika server",
      "SCA_TikaClient::GetFileTextV1: " + std::to_string(kHeader.size() + 8) + " bytes received (" +
          std::to_string(kHeader.size()) + " bytes HTTP header)",
      "SCA_TikaClient::GetFileTextV1: HTTP Reply Code 200, transfer encoding chunked",
      "SCA_TikaClient::GetFileTextV1: data chunk 0 - 5 bytes of data, 5 bytes total",
      "SCA_TikaClient::GetFileTextV1: data chunk 1 - 4 bytes of data, 9 bytes total",
  };
  for (const unsigned long variant : {1UL, 2UL, 3UL, 0UL, 7UL}) {
    for (const unsigned long level : {0UL, 1UL, 2UL}) {
      SCOPED_TRACE(::testing::Message() << "variant " << variant << " level " << level);
      // The second chunk does not fit beside the first: its trace counts what is collected now.
      ClientHarness harness(8);
      harness.client.SetDebugLevel(level);
      harness.script.pieces = {kHeader + "5\r\nhello", "\r\n4\r\nText\r\n0\r\n\r\n"};
      if (variant == 2) harness.script.pieces = {kHeader + "5\r\nhello\r\n4\r\nText\r\n0\r\n\r\n"};
      EXPECT_EQ(harness.Extract(variant).text, "helloText");
      std::vector<std::string> texts;
      for (const CapturedReport& report : harness.reports.All()) {
        EXPECT_EQ(report.level, 3U);
        EXPECT_EQ(report.source, "SCA_TikaClientV1");
        texts.push_back(report.text);
      }
      const bool traces = level > 1 && variant != 2 && variant != 3;
      EXPECT_EQ(texts, traces ? expected : std::vector<std::string>{});
    }
  }
}

}  // namespace
