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

struct FramingFault {
  unsigned long variant;
  std::vector<std::string> pieces;  // the first one behind the header
  unsigned long code;
  bool keepsValid;
  std::string report;
};

TEST(Decoder, FramingFaultsAreReportedInTheVariantsWords) {
  const std::string h = std::to_string(kHeader.size());
  const auto at = [](std::size_t offset) { return std::to_string(kHeader.size() + offset); };
  const std::string v1 = "SCA_TikaClient::GetFileTextV1: ";
  const std::string v2 = "SCA_TikaClient::GetFileTextV2: ";
  const std::string v3 = "SCA_TikaClient::GetFileTextV3: ";
  const std::vector<FramingFault> faults = {
      {1, {""}, 100138, false, v1 + "the chunk length is not set (RP=" + h + ", RL=" + h + ")"},
      {1,
       {"5\r", "\nhello\r\n0\r\n\r\n"},
       100138,
       false,
       v1 + "the chunk length is not set (RP=" + h + ", RL=" + at(2) + ")"},
      {1,
       {"\r\nhello"},
       100138,
       false,
       v1 + "the chunk length is not set (RP=" + h + ", RL=" + at(7) + ")"},
      {1,
       {std::string(300, '1') + "\r\n"},
       100138,
       false,
       v1 + "the chunk length is not set (RP=" + h + ", RL=" + at(302) + ")"},
      {1, {"2\r\nab", "\r", "\n0\r\n\r\n"}, 100138, true, v1 + "invalid chunk delimiter"},
      {1, {"2\r\nab", "xx0\r\n\r\n"}, 100138, true, v1 + "invalid chunk delimiter"},
      {1,
       {"2\r\nab\xFFz0\r\n"},
       100138,
       true,
       v1 + "invalid chunk delimiter RL=" + at(10) + ", RP=" + at(5) + ", DRP=-1, DRP+1=122"},
      {1,
       {"2\r\nab\r", "\n0\r\n\r\n"},
       100138,
       true,
       v1 + "invalid chunk delimiter RL=" + at(6) + ", RP=" + at(5) + ", DRP=13, DRP+1=0"},
      {1, {"9\r\nab"}, ECONNRESET, false, v1 + "cannot receive data chunk (ERR:104)"},
      {1, {"2\r\nab"}, ECONNRESET, false, v1 + "cannot receive the next data chunk (ERR:104)"},
      {2, {"", "1234567\r\n"}, 100138, false, v2 + "cannot get the chunk length (RP=0, RL=9)"},
      {2,
       {"5\r", "\nhello\r\n0\r\n\r\n"},
       100138,
       false,
       v2 + "cannot get the chunk length (RP=0, RL=13)"},
      {2,
       {"2\r\nabxx0\r\n"},
       100138,
       false,
       v2 + "no chunk finish CRLF (RP=" + at(5) + ", RL=" + at(10) + ")"},
      {2, {"2\r\nab\r", "\n0\r\n\r\n"}, 100138, false, v2 + "incomplete chunk CRLF (1)"},
      {2, {"2\r\nab", "\r", "\n"}, 100138, false, v2 + "incomplete chunk CRLF (1)"},
      {2, {"2\r\nab", "x\xFF"}, 100138, false, v2 + "invalid chunk CRLF received (120--1)"},
      {2, {"2\r\nab"}, ECONNRESET, false, v2 + "cannot receive chunk CRLF (ERR:104)"},
      {2, {"9\r\nab"}, ECONNRESET, false, v2 + "cannot receive data chunk (ERR:104)"},
      {2, {""}, ECONNRESET, false, v2 + "cannot receive the next data chunk (ERR:104)"},
      {3, {"1234567\r\n"}, 100138, false, v3 + "invalid chunk size (CSL=7)"},
      {3, {"2\r\nabxyz\r\n"}, 100138, false, v3 + "invalid chunk size (CSL=3)"},
      {3,
       {std::string(511, 'a'), "b", "c"},
       100138,
       false,
       "SCA_TikaClient::GetMoreData: no CRLF in 512 bytes of data"},
      {3, {"9\r\nab"}, ECONNRESET, false, v3 + "cannot receive data chunk (ERR:104)"},
      {3,
       {""},
       ECONNRESET,
       false,
       "SCA_TikaClient::GetMoreData: cannot receive data (RDL=0, ERR=104)"},
      {3,
       {"1234"},
       ECONNRESET,
       false,
       "SCA_TikaClient::GetMoreData: cannot receive data (RDL=4, ERR:104)"},
  };
  for (const FramingFault& fault : faults) {
    SCOPED_TRACE(fault.report);
    ClientHarness harness;
    harness.script.pieces = fault.pieces;
    harness.script.pieces.front() = kHeader + fault.pieces.front();
    const Extracted extracted = harness.Extract(fault.variant);
    ExpectBookkeeping(harness, extracted, fault.variant, fault.code, fault.keepsValid);
    const std::string source = "SCA_TikaClientV" + std::to_string(fault.variant);
    EXPECT_EQ(harness.reports.All(), (std::vector<CapturedReport>{{5, source, fault.report}}));
  }
}

TEST(Decoder, WaitFailuresAreReportedInTheVariantsWords) {
  struct Row {
    unsigned long variant;
    std::vector<std::string> pieces;
    std::string report;
  };
  const std::vector<Row> rows = {
      {1, {kHeader + "5\r\nhe"}, "SCA_TikaClient::GetFileTextV1: data wait timeout (ERR:110)"},
      {1, {kHeader + "2\r\nhe"}, "SCA_TikaClient::GetFileTextV1: data network timeout (ERR:110)"},
      {2, {kHeader + "5\r\nhe"}, "SCA_TikaClient::GetFileTextV2: data wait timeout (ERR:110)"},
      {2, {kHeader}, "SCA_TikaClient::GetFileTextV2: data network timeout (ERR:110)"},
      {2,
       {kHeader + "2\r\nhe"},
       "SCA_TikaClient::GetFileTextV2: chunk CRLF wait timeout (ERR:110)"},
      {3, {kHeader + "5\r\nhe"}, "SCA_TikaClient::GetFileTextV3: data wait timeout (ERR:110)"},
      {3, {kHeader}, "SCA_TikaClient::GetMoreData: data network timeout (ERR:110)"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.report);
    ClientHarness harness;
    harness.settings.SetNetworkTimeout(4321);
    harness.script.pieces = row.pieces;
    harness.script.failWait = 1;
    harness.script.failCode = ETIMEDOUT;
    const Extracted extracted = harness.Extract(row.variant);
    ExpectBookkeeping(harness, extracted, row.variant, ETIMEDOUT, false);
    ASSERT_EQ(harness.reports.All().size(), 1U);
    EXPECT_EQ(harness.reports.All().front().text, row.report);
    EXPECT_EQ(harness.script.waitTimeouts, (std::vector<unsigned long>{4321, 4321}));
  }
}

constexpr unsigned long kRefused = 0xFFFFFFFF;

TEST(Decoder, SizeLines) {
  struct Row {
    std::string line;
    unsigned long sizes[3];  // as each variant reads it
  };
  const std::vector<Row> rows = {
      {"5", {5, 5, 5}},
      {"05", {5, 5, 5}},
      {"00005", {5, 5, 5}},
      {"0000005", {5, kRefused, kRefused}},
      {"5;x=y", {5, 5, 5}},
      {"5;extension", {5, kRefused, kRefused}},
      {"5 ", {5, 5, 5}},
      {"5zz", {5, 5, 5}},
      {" 5", {5, 5, 5}},
      {"+5", {5, 5, 5}},
      {"0x5", {5, 5, 5}},
      {"-5", {kRefused, kRefused, kRefused}},
      {"-0", {kRefused, kRefused, kRefused}},
      {" -5", {kRefused, kRefused, kRefused}},
      {"0x", {kRefused, kRefused, kRefused}},
      {"0xg", {kRefused, kRefused, kRefused}},
      {"g", {kRefused, kRefused, kRefused}},
      {"x5", {kRefused, kRefused, kRefused}},
      {";5", {kRefused, kRefused, kRefused}},
      {"  ", {kRefused, kRefused, kRefused}},
      {"+", {kRefused, kRefused, kRefused}},
      {"100000005", {kRefused, kRefused, kRefused}},          // 5 in 32 bits
      {"10000000000000005", {kRefused, kRefused, kRefused}},  // 5 in 64 bits
      {"10000000000000000", {kRefused, kRefused, kRefused}},  // 0 in 64 bits
      {"FFFFFF", {kRefused, kRefused, kRefused}},
  };
  for (const Row& row : rows) {
    for (const unsigned long variant : {1UL, 2UL, 3UL}) {
      SCOPED_TRACE("'" + row.line + "', variant " + std::to_string(variant));
      ClientHarness harness;
      // What follows would be the end of a reply without text, if the line were dropped.
      harness.script.pieces = {kHeader + row.line + "\r\nhello\r\n0\r\n\r\n", "0\r\n\r\n"};
      const bool isDropped = variant == 2 && row.line.size() > 6;
      const Extracted extracted = harness.Extract(variant);
      if (isDropped) {
        // A line too long to be a size is dropped with all that was held, as documented.
        EXPECT_EQ(extracted.text, "");
      } else if (row.sizes[variant - 1] == kRefused) {
        ExpectBookkeeping(harness, extracted, variant, SCA_ErrorInvalidData, false);
        EXPECT_EQ(harness.reports.All().size(), 1U);
      } else {
        ExpectBookkeeping(harness, extracted, variant, 0, true);
        EXPECT_EQ(extracted.text, "hello");
      }
    }
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
  };
  const std::string chunked = "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n";
  const std::vector<Row> rows = {
      {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", 0, true, ""},
      {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n" + chunked, 0, true, ""},
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
      EXPECT_TRUE(extracted.blocks.empty());
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
