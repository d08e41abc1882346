#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "platform/SCA_Error.h"
#include "platform/SCA_TcpSockFactory.h"
#include "tests/client/client_harness.h"
#include "tests/support/ScriptedServer.h"

namespace {

TEST(Client, BeginsWithTheDocumentedDefaults) {
  SCA_TikaConfigOrv settings;
  const SCA_TikaClient client(&settings, "tika.example", 9998);
  EXPECT_EQ(client.IsValid(), 1);
  EXPECT_STREQ(client.GetServerName(), "tika.example");
  EXPECT_EQ(client.GetPortNumber(), 9998);
  EXPECT_EQ(client.GetProcessStatus(), 10U);
  EXPECT_EQ(client.GetBufferSize(), 0x100000U);
  EXPECT_EQ(client.GetConnectTime(), 0U);
  EXPECT_EQ(client.GetClientId() + client.GetServiceId() + client.GetClientStatusCode() +
                client.GetNumberOfUsers() + client.GetTotalErrors() + client.GetTotalFiles() +
                client.GetSentData() + client.GetRecvData() + client.GetConnectCount() +
                client.GetLastFileSize() + client.GetLastTextLength() + client.GetDebugLevel() +
                client.GetRefusalCode(),
            0U);
  EXPECT_EQ(client.GetDoDelete(), 0);
}

TEST(Client, CountersOf32BitsWrap) {
  SCA_TikaConfigOrv settings;
  SCA_TikaClient client(&settings, "h", 1);
  client.SetNumberOfUsers(0xFFFFFFFF);
  client.AddUser();
  EXPECT_EQ(client.GetNumberOfUsers(), 0U);
  client.DelUser();
  EXPECT_EQ(client.GetNumberOfUsers(), 0xFFFFFFFFU);
  client.SetClientId(0x100000005);
  EXPECT_EQ(client.GetClientId(), 5U);
}

TEST(Client, OverlongServerNameIsRefusedNotCut) {
  const ReportCapture reports;
  SCA_TikaConfigOrv settings;
  const std::string longest(259, 'h');
  SCA_TikaClient client(&settings, longest.c_str(), 80);
  EXPECT_EQ(client.IsValid(), 1);
  EXPECT_EQ(client.SetServerName((longest + "x").c_str()), 0);
  EXPECT_EQ(client.GetServerName(), longest);
  const SCA_TikaClient refused(&settings, (longest + "x").c_str(), 80);
  EXPECT_EQ(refused.IsValid(), 0);
  EXPECT_STREQ(refused.GetServerName(), "");
  EXPECT_EQ(client.SetServerName("tika.example"), 1);
  EXPECT_EQ(client.SetServerName(client.GetServerName() + 5), 1) << "a part of the old one";
  EXPECT_STREQ(client.GetServerName(), "example");
}

TEST(Client, ConnectCountsAndSetsNoDelay) {
  ClientHarness harness;
  EXPECT_EQ(harness.client.GetConnectCount(), 1U);
  EXPECT_GT(harness.client.GetConnectTime(), 0U);
  EXPECT_EQ(harness.script.options, (std::vector<std::pair<int, int>>{{3, 1}}));
}

TEST(Client, SecondConnectFailsAndKeepsTheFirstConnection) {
  ClientHarness harness;
  unsigned long error = 0;
  EXPECT_EQ(harness.client.Connect(1000, &error), 0);
  EXPECT_EQ(error, SCA_ErrorCannotCreate);
  EXPECT_EQ(harness.client.IsConnected(), 1);
  EXPECT_EQ(harness.reports.All(),
            (std::vector<CapturedReport>{
                {5, "SCA_TikaClient", "SCA_TikaClient::Connect: already connected"}}));
  EXPECT_EQ(harness.client.Disconnect(), 1);
  EXPECT_EQ(harness.client.Disconnect(), 1);
}

TEST(Client, FailedConnectLeavesItDisconnected) {
  ClientHarness harness;
  harness.client.Disconnect();
  harness.script.failConnect = true;
  unsigned long error = 0;
  EXPECT_EQ(harness.client.Connect(1000, &error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(ECONNREFUSED));
  EXPECT_EQ(harness.client.IsConnected(), 0);
  EXPECT_EQ(harness.client.GetConnectCount(), 1U);
}

TEST(Client, SocketThatCannotBeMadeIsReported) {
  ClientHarness harness;
  harness.client.Disconnect();
  SCA_SetTcpSockFactory([](int) -> SCA_VirtualTcpSock* { return nullptr; });
  unsigned long error = 0;
  EXPECT_EQ(harness.client.Connect(1000, &error), 0);
  EXPECT_EQ(error, SCA_ErrorCannotCreate);
  EXPECT_EQ(harness.reports.All(),
            (std::vector<CapturedReport>{
                {5, "SCA_TcpSock", "Cannot create TCP socket"},
                {5, "SCA_TikaClient", "SCA_TikaClient::Connect: cannot create socket"}}));
}

TEST(Client, UseWithoutConnectionFailsAsItself) {
  for (const unsigned long variant : {1UL, 2UL, 3UL}) {
    ClientHarness harness;
    harness.client.Disconnect();
    EXPECT_EQ(harness.Extract(variant).error, static_cast<unsigned long>(ENOTCONN));
    char version[101];
    unsigned long error = 0;
    EXPECT_EQ(harness.client.GetVersion(version, sizeof version, &error), 0);
    EXPECT_EQ(error, static_cast<unsigned long>(ENOTCONN));
  }
}

TEST(Client, DataBufferOfTheLargestSizeDoesNotWrap) {
  ClientHarness harness;
  harness.client.SetBufferSize(0xFFFFFFFF);
  // Either 4 GiB are there, or the refusal names them.
  if (harness.client.InitDataBuffer() == 0) {
    EXPECT_EQ(harness.reports.All().front().text,
              "SCA_TikaClient::InitDataBuffer: cannot alloc 4294967296 bytes of memory");
  } else {
    harness.script.pieces = {ChunkedReply("text", 4)};
    EXPECT_EQ(harness.Extract(1).text, "text");
  }
}

TEST(Client, DataBufferOfNoBytesIsRefused) {
  ClientHarness harness;
  harness.client.SetBufferSize(0);
  EXPECT_EQ(harness.client.InitDataBuffer(), 0);
  EXPECT_EQ(harness.Extract(3).error, SCA_ErrorInvalidData);
  EXPECT_EQ(harness.script.sent, "");
}

TEST(Client, ACancelEventReachesTheConnectionAndLeavesIt) {
  ClientHarness harness;
  harness.script.pieces = {"HTTP/1.1 200 OK\r\n\r\nApache Tika"};
  char version[101];
  unsigned long error = 0;
  SCA_Event cancel(1, 1);
  harness.client.SetCancelEvent(&cancel);
  EXPECT_EQ(harness.client.GetVersion(version, sizeof version, &error), 0);
  EXPECT_EQ(error, SCA_ErrorCancelled);
  harness.client.SetCancelEvent(nullptr);
  EXPECT_EQ(harness.client.GetVersion(version, sizeof version, &error), 1);
  // That of an extraction leaves with its end.
  harness.script.pieces = {kChunkedHeader + std::string("1\r\nx\r\n0\r\n\r\n"),
                           "HTTP/1.1 200 OK\r\n\r\nApache Tika"};
  harness.client.Disconnect();
  ASSERT_EQ(harness.client.Connect(1000, &error), 1);
  EXPECT_EQ(harness.Extract(3).result, 1);
  harness.cancel.Set();
  EXPECT_EQ(harness.client.GetVersion(version, sizeof version, &error), 1);
}

TEST(Client, BufferSizeTakesEffectWithTheNextInitOnly) {
  ClientHarness harness(16);
  harness.client.SetBufferSize(4096);
  harness.script.pieces = {ChunkedReply(std::string(64, 'x'), 16)};
  // Collecting 64 bytes in the buffer of 16 would overrun it.
  EXPECT_EQ(harness.Extract(3).blocks.size(), 4U);
}

struct VersionReply {
  const char* name;
  std::vector<std::string> pieces;
  int result;
  unsigned long error;
  std::string version;
  std::string report;
  unsigned long end = 0;  // the code with which the second receive fails
  bool isReset = false;   // the wait after it fails too
};

TEST(Client, GetVersionTakesOneToAHundredBytesThatAreWhole) {
  const std::string ok = "HTTP/1.1 200 OK\r\n\r\n";
  const std::string length12 = "HTTP/1.1 200 OK\r\nContent-Length: 12\r\n\r\n";
  const std::string prefix = "SCA_TikaClient::GetVersion: ";
  const auto failed = [&](const char* code) {
    return prefix + "cannot execute GET version request (ERR:" + code + ")";
  };
  const std::vector<VersionReply> replies = {
      {"with the header", {ok + "Apache Tika 3.3.2"}, 1, 0, "Apache Tika 3.3.2", ""},
      {"behind the header", {ok, "Apache ", "Tika"}, 1, 0, "Apache Tika", ""},
      {"Content-Length is not consulted",
       {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nApache"},
       1,
       0,
       "Apache",
       ""},
      {"100 bytes", {ok + std::string(100, 'v')}, 1, 0, std::string(100, 'v'), ""},
      {"101 bytes",
       {ok + std::string(101, 'v')},
       0,
       100138,
       "",
       prefix + "invalid content returned by GET version request"},
      {"no body", {ok}, 0, 100138, "", prefix + "no content returned by GET version request"},
      {"another code", {"HTTP/1.1 404 No\r\n\r\n"}, 0, 404, "", failed("404")},
      {"an interim reply first", {"HTTP/1.1 100 x\r\n\r\n", ok + "Tika"}, 1, 0, "Tika", ""},
      {"compressed",
       {"HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n\r\nTika"},
       0,
       SCA_ErrorContentEncoding,
       "",
       failed("100211")},
      {"cut by a close", {length12 + "Apache"}, 0, ECONNRESET, "", failed("104")},
      {"cut by a time-out", {ok + "Apache"}, 0, ETIMEDOUT, "", failed("110"), ETIMEDOUT},
      {"whole, and no close", {length12 + "Apache Tika "}, 1, 0, "Apache Tika ", "", ETIMEDOUT},
      {"cut by a reset", {ok + "Apache"}, 0, ECONNRESET, "", failed("104"), ECONNRESET, true},
      {"chunked",
       {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nTika\r\n0\r\n\r\n"},
       0,
       100138,
       "",
       failed("100138")},
      {"cut by a cancel", {ok + "Apache"}, 0, 100120, "", failed("100120"), SCA_ErrorCancelled},
      {"cancelled before the close",
       {length12 + "Apache Tika "},
       0,
       100120,
       "",
       failed("100120"),
       SCA_ErrorCancelled},
      {"no HTTP", {"hello\r\n\r\n"}, 0, 100138, "", failed("100138")},
      {"closed", {}, 0, ECONNRESET, "", failed("104")},
      {"endless header", InPieces(std::string(3000, 'x'), 100), 0, SCA_ErrorHeaderTooLong, "",
       failed("100202")},
      {"more than the content buffer holds", InPieces(ok + std::string(70000, 'x'), 4096), 0,
       100138, "", failed("100138")},
      {"exactly what the content buffer holds", InPieces(ok + std::string(65535, 'x'), 4096), 0,
       100138, "", prefix + "invalid content returned by GET version request"},
  };
  for (const VersionReply& reply : replies) {
    SCOPED_TRACE(reply.name);
    ClientHarness harness;
    harness.script.pieces = reply.pieces;
    if (reply.end != 0) harness.script.failReceive = 1;
    if (reply.isReset) harness.script.failWait = 1;
    harness.script.failCode = reply.end;
    char version[101] = "";
    unsigned long error = 0;
    EXPECT_EQ(harness.client.GetVersion(version, sizeof version, &error), reply.result);
    EXPECT_EQ(error, reply.error);
    EXPECT_EQ(version, reply.version);
    EXPECT_EQ(harness.script.sent,
              "GET /version HTTP/1.0\r\nHost: 127.0.0.1\r\nUser-Agent: Orvane HTTP Client\r\n\r\n");
    std::vector<CapturedReport> expected;
    if (!reply.report.empty()) expected.push_back({5, "SCA_TikaClient", reply.report});
    EXPECT_EQ(harness.reports.All(), expected);
  }
}

TEST(Client, GetVersionNeverWritesPastTheCallersBuffer) {
  ClientHarness harness;
  harness.script.pieces = {"HTTP/1.1 200 OK\r\n\r\nApache Tika"};
  char version[12] = "";
  unsigned long error = 0;
  EXPECT_EQ(harness.client.GetVersion(version, 11, &error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(ENOBUFS));
  ClientHarness again;
  again.script.pieces = harness.script.pieces;
  EXPECT_EQ(again.client.GetVersion(version, 12, &error), 1);
  EXPECT_STREQ(version, "Apache Tika");
}

TEST(Client, PutRequestSendsPiecesAndReadsTheReplysBody) {
  ClientHarness harness;
  SCA_HttpClientRequest request;
  request.SetContentLength(9000);
  ASSERT_EQ(request.InitContentBuffer(), 1);
  std::memset(request.GetContentBuffer(), 'c', 9000);
  harness.script.pieces = {"HTTP/1.1 200 OK\r\nContent-Length: 12\r\n\r\nHello", " there", "!junk"};
  unsigned long error = 0;
  ASSERT_EQ(harness.client.PutRequest("/path", &request, &error), 1);
  EXPECT_STREQ(request.GetContentBuffer(), "Hello there!");
  EXPECT_EQ(harness.script.sendSizes, (std::vector<unsigned long>{71, 4096, 4096, 808}));
  EXPECT_EQ(harness.script.sent.substr(0, 21), "PUT /path HTTP/1.0\r\nH");
}

TEST(Client, PutRequestRefusesRepliesWithoutWritingTheError) {
  const char* const headers[] = {
      "HTTP/1.1 201 Created\r\nContent-Length: 5\r\n\r\nHello",
      "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n",
      "HTTP/1.1 200 OK\r\n\r\nHello",
      "HTTP/1.1 200 OK\r\nContent-Length: 1024000001\r\n\r\nHello",
      "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 5\r\n\r\nHello",
      "nonsense\r\n\r\n",
  };
  for (const char* header : headers) {
    SCOPED_TRACE(header);
    ClientHarness harness;
    SCA_HttpClientRequest request;
    harness.script.pieces = {header};
    unsigned long error = 77;
    EXPECT_EQ(harness.client.PutRequest("/path", &request, &error), 0);
    EXPECT_EQ(error, 77U);
  }
}

TEST(Client, ReadHttpHeaderLeavesBodyBytesInTheBuffer) {
  const std::string header = "\r\nHTTP/1.1 200 OK\r\nA: b\r\n\r\n";
  for (std::size_t size = 1; size <= header.size() + 4; ++size) {
    SCOPED_TRACE(size);
    ClientHarness harness;
    harness.script.pieces = InPieces(header + "body", size);
    char buffer[64];
    unsigned long headerLength = 0;
    unsigned long received = 0;
    unsigned long error = 0;
    ASSERT_EQ(
        harness.client.ReadHttpHeader(buffer, sizeof buffer - 1, &headerLength, &received, &error),
        1);
    EXPECT_EQ(headerLength, header.size());
    EXPECT_EQ(std::string(buffer, received), (header + "body").substr(0, received));
    EXPECT_EQ(buffer[received], '\0');
  }
}

}  // namespace
