#include <gtest/gtest.h>

#include <cerrno>
#include <random>

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
    // Without its end: a text that is cut must not pass for the whole.
    if (first < reply.size() - 2) deliveries.push_back({reply.substr(0, first)});
    if (reply.size() > kShort) continue;
    for (std::size_t second = first + 1; second < reply.size(); ++second) {
      deliveries.push_back(CutAt(reply, {first, second}));
    }
  }
  return deliveries;
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

// Runs a delivery, which must end as the model says.
Extracted ExpectAsPredicted(unsigned long variant, const std::vector<std::string>& pieces,
                            std::size_t headerLength, unsigned long capacity) {
  const ModelOutcome expected = PredictOutcome(variant, pieces, headerLength, capacity);
  ClientHarness harness(pieces, capacity);
  Extracted extracted = harness.Extract(variant);
  ExpectBookkeeping(harness, extracted, variant, expected.code, expected.keepsValid);
  std::vector<unsigned long> lengths;
  for (const auto& block : extracted.blocks) lengths.push_back(block.second);
  EXPECT_EQ(lengths, expected.blocks);
  EXPECT_EQ(extracted.text,
            extracted.result == 1 ? expected.text : expected.text.substr(0, extracted.text.size()));
  return extracted;
}

TEST(Decoder, EveryDeliveryEndsAsItsVariantDemands) {
  for (const Reply& reply : Replies()) {
    unsigned long capacity = 4096;
    for (const auto& pieces : Deliveries(reply.Whole())) {
      capacity ^= 4096 ^ 65536;  // with little and with much room for what comes after the text
      for (const unsigned long variant : kVariants) {
        SCOPED_TRACE(::testing::Message()
                     << reply.name << ", variant " << variant << ", " << pieces.size()
                     << " pieces, the first of " << pieces[0].size() << " bytes");
        const Extracted extracted =
            ExpectAsPredicted(variant, pieces, reply.HeaderLength(), capacity);
        // A reply in one piece is for all variants, one in any pieces for the third.
        const bool isCut = pieces.size() == 1 && pieces[0] != reply.Whole();
        const bool mustSucceed = !isCut && (variant == 3 || (pieces.size() == 1 && reply.isPlain));
        EXPECT_TRUE(extracted.result == 1 ? !isCut : !mustSucceed);
        EXPECT_TRUE(!mustSucceed || extracted.text == reply.text);
        if (HasFailure()) return;
      }
    }
  }
}

// Chunks and pieces around the sizes of the buffers, in runs, so that many come in one piece and
// blocks fill in all ways.
TEST(Decoder, LongRepliesKeepTheirTextAndTheirBlocks) {
  constexpr std::size_t kSizes[] = {1, 7, 510, 511, 512, 2047, 4096, 4097, 32768, 40000};
  for (unsigned seed = 1; seed <= 60; ++seed) {
    std::mt19937 random(seed);
    const std::string pattern = Pattern(40000);
    std::string reply = kHeader;
    std::string text;
    while (text.size() < 600000) {
      const std::string chunk = pattern.substr(0, kSizes[random() % std::size(kSizes)]);
      for (unsigned long run = 1 + random() % 12; run > 0; --run) {
        reply += Body(chunk, chunk.size());
        reply.resize(reply.size() - 5);  // without the last chunk
        text += chunk;
      }
    }
    reply += "0\r\n\r\n";
    std::vector<std::size_t> cuts;
    const std::size_t reach = 2 << random() % 19;
    for (std::size_t at = 1 + random() % reach; at < reply.size(); at += 1 + random() % reach) {
      cuts.push_back(at);
    }
    for (const unsigned long variant : kVariants) {
      SCOPED_TRACE(::testing::Message() << "seed " << seed << ", variant " << variant);
      const unsigned long capacity = 40002 + random() % (seed % 2 == 0 ? 2000 : 600000);
      const Extracted extracted =
          ExpectAsPredicted(variant, CutAt(reply, cuts), kHeader.size(), capacity);
      EXPECT_TRUE(variant != 3 || extracted.text == text);
      if (HasFailure()) return;
    }
  }
}

// What may follow a reply on its connection, and what becomes of the next document.
TEST(Decoder, NothingOfAReplyReachesTheNextOneOnItsConnection) {
  enum class Next { Usable, Extracted, Fails };
  struct Row {
    std::vector<std::string> ends;  // of the first reply; the next one follows the last of them
    std::size_t arrived;            // of them, when the next document comes
    Next next;
  };
  const std::string lie = ChunkedReply("lie", 3);
  const Row rows[] = {
      {{"0\r\n\r\n"}, 1, Next::Usable},
      {{"0\r\n\r", "\n"}, 2, Next::Usable},
      {{"0\r\n", "\r\n"}, 2, Next::Usable},
      {{"0\r\nA: b\r\n", "C: d\r\n\r\n"}, 2, Next::Usable},
      {{"0\r\n\r\n\r\n"}, 1, Next::Usable},
      // What has not arrived might be a trailer.
      {{"0\r\n", "\r\n"}, 1, Next::Extracted},
      {{"0\r\nA", ": b\r", "\n\r", "\n"}, 1, Next::Extracted},
      {{"0\r\n", "A: b\r\nC: d\r\n\r\n"}, 1, Next::Extracted},
      {{"0\r\nA: b\r\n\r", "\n"}, 1, Next::Extracted},
      // What nobody asked for is no reply.
      {{"0\r\n\r\n" + lie}, 1, Next::Fails},
      {{"0\r\n\r\n", lie}, 2, Next::Fails},
      {{"0\r\n", "\r\n" + lie}, 2, Next::Fails},
      {{"0\r\n" + lie}, 1, Next::Fails},
      {{"0\r\n\r\nx"}, 1, Next::Fails},
      {{"0\r\n" + std::string(300, 'x')}, 1, Next::Fails},
  };
  for (const Row& row : rows) {
    for (const unsigned long variant : kVariants) {
      SCOPED_TRACE(::testing::Message() << "row " << &row - rows << ", variant " << variant);
      ClientHarness harness(row.ends);
      harness.script.pieces.front().insert(0, kHeader + "4\r\ntext\r\n");
      harness.script.pieces.push_back(ChunkedReply("next", 4));
      harness.script.arrived = row.arrived;
      EXPECT_EQ(harness.Extract(variant).text, "text");
      const std::size_t sent = harness.script.sent.size();
      EXPECT_EQ(harness.client.IsUsable(), row.next == Next::Usable ? 1 : 0);
      const Extracted next = harness.Extract(variant);
      const bool fails = row.next == Next::Fails;
      EXPECT_EQ(next.error, fails ? static_cast<unsigned long>(EPROTO) : 0UL);
      EXPECT_EQ(next.text, fails ? "" : "next");
      EXPECT_EQ(harness.script.sent.size(), fails ? sent : 2 * sent);
      EXPECT_EQ(harness.client.IsValid(), fails ? 0 : 1);
    }
  }
}

enum class Fault { Wait, Receive, CancelledWait };

TEST(Decoder, FaultOfTheNthSocketOperationEndsTheExtractionAsItself) {
  // Chunks that the third variant collects whole, in part and in several blocks.
  const std::string text = Pattern(300);
  const std::string reply = ChunkedReply(text, 50);
  for (const unsigned long variant : kVariants) {
    for (const Fault fault : {Fault::Wait, Fault::Receive, Fault::CancelledWait}) {
      int n = 0;
      for (int result = 0; result == 0; ++n) {
        SCOPED_TRACE(::testing::Message() << "variant " << variant << ", operation " << n);
        ClientHarness harness(variant == 3 ? InPieces(reply, 7) : CutAt(reply, {80}), 64);
        if (fault == Fault::Wait) harness.script.failWait = n;
        if (fault == Fault::Receive) harness.script.failReceive = n;
        harness.script.onWait = [&](int number) {
          if (fault == Fault::CancelledWait && number == n) harness.cancel.Set();
        };
        const Extracted extracted = harness.Extract(variant);
        result = extracted.result;
        EXPECT_EQ(extracted.text, text.substr(0, extracted.text.size()));
        if (result != 0) continue;
        const bool isCancel = fault == Fault::CancelledWait;
        ExpectBookkeeping(harness, extracted, variant, isCancel ? SCA_ErrorCancelled : 5, isCancel);
        EXPECT_EQ(harness.reports.All().empty(), isCancel || n < (variant == 3 ? 7 : 1));
      }
      EXPECT_GT(n, 3);
    }
  }
}

TEST(Decoder, FramingFaultsAreReportedInTheVariantsWords) {
  struct Row {
    unsigned long variant;
    std::vector<std::string> pieces;  // the first one follows the header
    std::string report;               // after the name of the operation, if it is the variant's own
  };
  const auto at = [](std::size_t offset) { return std::to_string(kHeader.size() + offset); };
  const std::string noLength = "the chunk length is not set (RP=" + at(0) + ", RL=";
  const std::string more = "SCA_TikaClient::GetMoreData: ";
  const std::string delimiter = "invalid chunk delimiter";
  const std::string crlf = delimiter + " RL=" + at(6) + ", RP=" + at(5);
  const Row rows[] = {
      {1, {""}, noLength + at(0) + ")"},
      {1, {"5\r", "\nhello\r\n0\r\n\r\n"}, noLength + at(2) + ")"},
      {1, {"\r\nhello"}, noLength + at(7) + ")"},
      {1, {std::string(256, '1') + "\r\n"}, noLength + at(258) + ")"},
      {1,
       {std::string(255, 'F') + "\r\n"},
       "18446744073709551615 bytes of a data chunk do not fit the data buffer of 4096 bytes"},
      {1, {"2\r\nab", "\r", "\n0\r\n\r\n"}, delimiter},
      {1, {"2\r\nab", "xx0\r\n\r\n"}, delimiter},
      {1, {"2\r\nab\r", "\n0\r\n\r\n"}, crlf + ", DRP=13, DRP+1=0"},
      {1, {"2\r\nab\xFF"}, crlf + ", DRP=-1, DRP+1=0"},
      {2, {"", "1234567\r\n"}, "cannot get the chunk length (RP=0, RL=9)"},
      {2, {"5\r", "\nhello\r\n0\r\n\r\n"}, "cannot get the chunk length (RP=0, RL=13)"},
      {2, {"2\r\nabxx0\r\n"}, "no chunk finish CRLF (RP=" + at(5) + ", RL=" + at(10) + ")"},
      {2, {"2\r\nab\r", "\n0\r\n\r\n"}, "incomplete chunk CRLF (1)"},
      {2, {"2\r\nab", "\r", "\n"}, "incomplete chunk CRLF (1)"},
      {2, {"2\r\nab", "x\xFF"}, "invalid chunk CRLF received (120--1)"},
      {3, {"1234567\r\n"}, "invalid chunk size (CSL=7)"},
      {3, {"2\r\nabxyz\r\n"}, "invalid chunk size (CSL=3)"},
      {3, {std::string(511, 'a'), "b", "c"}, more + "no CRLF in 512 bytes of data"},
      // The peer closes.
      {1, {"9\r\nab"}, "cannot receive data chunk (ERR:104)"},
      {1, {"2\r\nab"}, "cannot receive the next data chunk (ERR:104)"},
      {2, {"2\r\nab"}, "cannot receive chunk CRLF (ERR:104)"},
      {2, {""}, "cannot receive the next data chunk (ERR:104)"},
      {3, {"9\r\nab"}, "cannot receive data chunk (ERR:104)"},
      {3, {""}, more + "cannot receive data (RDL=0, ERR=104)"},
      {3, {"1234"}, more + "cannot receive data (RDL=4, ERR:104)"},
      // The second wait times out.
      {1, {"5\r\nhe"}, "data wait timeout (ERR:110)"},
      {1, {"2\r\nhe"}, "data network timeout (ERR:110)"},
      {2, {""}, "data network timeout (ERR:110)"},
      {2, {"2\r\nhe"}, "chunk CRLF wait timeout (ERR:110)"},
      {3, {"5\r\nhe"}, "data wait timeout (ERR:110)"},
      {3, {""}, more + "data network timeout (ERR:110)"},
  };
  for (const Row& row : rows) {
    std::string report = row.report;
    if (report.rfind("SCA_", 0) != 0) {
      report = "SCA_TikaClient::GetFileTextV" + std::to_string(row.variant) + ": " + report;
    }
    SCOPED_TRACE(report);
    const bool isLate = report.find(":110)") != std::string::npos;
    const unsigned long code = isLate                                     ? ETIMEDOUT
                               : report.find("104)") != std::string::npos ? ECONNRESET
                                                                          : SCA_ErrorInvalidData;
    ClientHarness harness(row.pieces);
    harness.script.pieces.front().insert(0, kHeader);
    harness.settings.SetNetworkTimeout(4321);
    if (isLate) harness.script.failWait = 1;
    harness.script.failCode = ETIMEDOUT;
    const bool keepsValid = row.report.rfind(delimiter, 0) == 0;
    ExpectBookkeeping(harness, harness.Extract(row.variant), row.variant, code, keepsValid);
    const std::string source = "SCA_TikaClientV" + std::to_string(row.variant);
    EXPECT_EQ(harness.reports.All(), (std::vector<CapturedReport>{{5, source, report}}));
    for (const unsigned long timeout : harness.script.waitTimeouts) EXPECT_EQ(timeout, 4321U);
  }
}

TEST(Decoder, SizeLines) {
  const auto check = [](const std::string& line, bool isSize) {
    for (const unsigned long variant : kVariants) {
      SCOPED_TRACE("'" + line + "', variant " + std::to_string(variant));
      // What follows would be the end of a reply without text, if the line were dropped.
      ClientHarness harness({kHeader + line + "\r\nhello\r\n0\r\n\r\n", "0\r\n\r\n"});
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
    std::vector<std::size_t> chunks;
    bool inOnePiece;
    std::vector<unsigned long> blocks;  // lengths; empty: refused
  };
  const std::vector<Row> rows = {
      // Whole in the network buffer: the first variant flushes before a chunk that just fits.
      {1, {4, 5}, true, {9}},
      {1, {4, 6}, true, {4, 6}},
      {1, {10}, true, {10}},
      {1, {11}, true, {}},
      {2, {4, 6}, true, {10}},
      {2, {4, 7}, true, {4, 7}},
      {2, {11}, true, {}},
      // Received straight into the data buffer: the CR LF needs room too.
      {1, {10}, false, {10}},
      {2, {8}, false, {8}},
      {2, {9}, false, {}},
  };
  for (const Row& row : rows) {
    for (const unsigned long variant : kVariants) {
      if ((variant == 1) != (row.variant == 1)) continue;  // the last two agree
      SCOPED_TRACE(::testing::Message() << "row " << &row - rows.data());
      std::string whole = kHeader;
      for (const std::size_t size : row.chunks) {
        whole += Body(std::string(size, 'x'), size).substr(0, size + 5);  // one digit
      }
      const std::size_t dataAt = kHeader.size() + 3;
      const std::size_t dataEnd = whole.size() - (variant == 1 ? 2 : 0);
      whole += "0\r\n\r\n";
      ClientHarness harness(
          row.inOnePiece ? std::vector<std::string>{whole} : CutAt(whole, {dataAt, dataEnd}), 10);
      const Extracted extracted = harness.Extract(variant);
      std::vector<unsigned long> lengths;
      for (const auto& block : extracted.blocks) lengths.push_back(block.second);
      EXPECT_EQ(lengths, row.blocks);
      ExpectBookkeeping(harness, extracted, variant, row.blocks.empty() ? SCA_ErrorInvalidData : 0,
                        !row.blocks.empty());
    }
  }
}

TEST(Decoder, StopFromTheCallbackIsNoErrorButEndsTheConnectionsUse) {
  for (const unsigned long variant : kVariants) {
    SCOPED_TRACE(variant);
    ClientHarness harness({ChunkedReply(Pattern(100), 25)}, 50);
    harness.onBlock = [](unsigned long offset) { return offset >= 50 ? 0 : 1; };
    EXPECT_EQ(harness.Extract(variant).error, SCA_ErrorCancelled);
    EXPECT_EQ(harness.client.GetTotalErrors(), 0U);
    EXPECT_EQ(harness.client.IsValid(), 1);
    // The block that was refused does not count as received.
    EXPECT_EQ(harness.client.GetRecvData(), 50U);
    EXPECT_EQ(harness.client.GetLastTextLength(), variant == 3 ? 50U : 0U);
    EXPECT_TRUE(harness.reports.All().empty());
    // Half an exchange is left; of a refusal that has come whole nothing is.
    EXPECT_EQ(harness.client.IsUsable(), 0);
    EXPECT_EQ(harness.Extract(variant).error, static_cast<unsigned long>(EPROTO));
    ClientHarness refused({"HTTP/1.1 422 No\r\nContent-Length: 2\r\n\r\nNo", ChunkedReply("x", 1)});
    EXPECT_EQ(refused.Extract(variant).error, SCA_ErrorTika422);
    EXPECT_EQ(refused.client.IsUsable(), 1);
    EXPECT_EQ(refused.Extract(variant).text, "x");
  }
}

TEST(Decoder, CancelIsSeenAfterReceivesAndBetweenEmptyLines) {
  for (const unsigned long variant : kVariants) {
    SCOPED_TRACE(variant);
    ClientHarness harness({kHeader + "64\r\nab", std::string(20, 'c'), std::string(80, 'd')});
    harness.script.ignoresCancel = true;
    harness.script.onReceive = [&](int number) {
      if (number == 1) harness.cancel.Set();
    };
    ExpectBookkeeping(harness, harness.Extract(variant), variant, SCA_ErrorCancelled, true);
    EXPECT_EQ(harness.script.receiveSizes.size(), 2U);
  }
  ClientHarness harness({kHeader});
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
    std::string report;  // after "SCA_TikaClient::GetFileTextVn: "
    std::string text = "";
  };
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string processing = "HTTP/1.1 102 x\r\n\r\n";
  std::string most;
  for (int i = 0; i < 32; ++i) most += processing;
  const std::string unsupported = "unsupported transfer encoding - ";
  const std::string chunked = "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n";
  const std::vector<Row> rows = {
      {ok + "Content-Length: 0\r\n\r\n", 0, true, ""},
      {ok + "Content-Length: 0\r\n" + chunked, 0, true, "", "hello"},
      {ok + "Content-Encoding: gzip\r\n" + chunked, SCA_ErrorContentEncoding, false, ""},
      {most + ok + chunked, 0, true, "", "hello"},
      {most + processing + ok + chunked, SCA_ErrorInterimReplies, false, ""},
      {processing + "HTTP/1.1 422 No\r\n\r\n", 100191, true, ""},
      {processing, ECONNRESET, false, ""},
      {"HTTP/1.1 101 Switching\r\n\r\n" + ok + chunked, SCA_ErrorInterimReplies, false, ""},
      {"HTTP/1.1 999 No\r\n\r\n", 999, false, "Unknown Tika server reply code - 999"},
      {ok + "Content-Length: 5\r\n\r\nhello", 100138, false, unsupported},
      {ok + "Transfer-Encoding: Chunked\r\n\r\n", 100138, false, unsupported + "Chunked"},
      {ok + "Transfer-Encoding: gzip\r\n" + chunked, 100138, false, unsupported + "gzip, chunked"},
      {"HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n", 100194, false, ""},
      {"SSH-2.0-server\r\n\r\n", 100138, false, ""},
      {ok + "Content-Length: 4294967296\r\n" + chunked, 100138, false, ""},
      {ok + "Long: " + std::string(2100, 'x'), SCA_ErrorHeaderTooLong, false, ""},
  };
  for (const Row& row : rows) {
    for (const unsigned long variant : kVariants) {
      SCOPED_TRACE(row.header.substr(0, 60) + ", variant " + std::to_string(variant));
      ClientHarness harness({row.header});
      const Extracted extracted = harness.Extract(variant);
      ExpectBookkeeping(harness, extracted, variant, row.code, row.keepsValid);
      EXPECT_EQ(extracted.text, row.text);
      const std::string name = "V" + std::to_string(variant);
      std::vector<CapturedReport> reports{
          {5, "SCA_TikaClient" + name, "SCA_TikaClient::GetFileText" + name + ": " + row.report}};
      if (row.report.empty()) reports.clear();
      EXPECT_EQ(harness.reports.All(), reports);
    }
  }
}

TEST(Decoder, FirstVariantTracesFromDebugLevelTwo) {
  const std::string h = std::to_string(kHeader.size());
  const std::string expected[] = {
      "file size 10 bytes",
      "10 bytes od data sent to the Tika server",
      std::to_string(kHeader.size() + 8) + " bytes received (" + h + " bytes HTTP header)",
      "HTTP Reply Code 200, transfer encoding chunked",
      "data chunk 0 - 5 bytes of data, 5 bytes total",
      "data chunk 1 - 4 bytes of data, 9 bytes total",
  };
  for (const unsigned long variant : {1UL, 3UL, 0UL, 7UL}) {
    for (const unsigned long level : {1UL, 2UL}) {
      SCOPED_TRACE(::testing::Message() << "variant " << variant << " level " << level);
      // The second chunk does not fit beside the first: its trace counts what is collected now.
      ClientHarness harness({kHeader + "5\r\nhello", "\r\n4\r\nText\r\n0\r\n\r\n"}, 8);
      harness.client.SetDebugLevel(level);
      EXPECT_EQ(harness.Extract(variant).text, "helloText");
      std::vector<CapturedReport> reports;
      for (const std::string& text : expected) {
        reports.push_back({3, "SCA_TikaClientV1", "SCA_TikaClient::GetFileTextV1: " + text});
      }
      if (level == 1 || variant == 3) reports.clear();
      EXPECT_EQ(harness.reports.All(), reports);
    }
  }
}

}  // namespace
