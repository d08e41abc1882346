#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "platform/SCA_Error.h"
#include "platform/SCA_TcpSockFactory.h"
#include "tests/client/client_harness.h"
#include "tests/support/ScriptedServer.h"

namespace {

const std::string kOk = "HTTP/1.1 200 OK\r\n\r\n";

TEST(Client, OverlongServerNameIsRefusedNotCut) {
  const ReportCapture reports;
  SCA_TikaConfigOrv settings;
  const std::string longest(259, 'h');
  SCA_TikaClient client(&settings, longest.c_str(), 80);
  EXPECT_EQ(client.SetServerName((longest + "x").c_str()), 0);
  EXPECT_EQ(client.GetServerName(), longest);
  EXPECT_EQ(SCA_TikaClient(&settings, (longest + "x").c_str(), 80).IsValid(), 0);
  EXPECT_EQ(client.SetServerName(client.GetServerName() + 250), 1) << "a part of the old one";
  EXPECT_STREQ(client.GetServerName(), "hhhhhhhhh");
}

TEST(Client, ConnectFailsAsItselfAndKeepsAConnection) {
  ClientHarness harness;
  EXPECT_EQ(harness.script.options, (std::vector<std::pair<int, int>>{{3, 1}}));
  unsigned long error = 0;
  EXPECT_EQ(harness.client.Connect(1000, &error), 0);
  EXPECT_EQ(error, SCA_ErrorCannotCreate);
  EXPECT_EQ(harness.client.IsConnected(), 1);
  EXPECT_EQ(harness.client.Disconnect(), 1);
  harness.script.failConnect = true;
  EXPECT_EQ(harness.client.Connect(1000, &error), 0);
  EXPECT_EQ(error, static_cast<unsigned long>(ECONNREFUSED));
  SCA_SetTcpSockFactory([](int) -> SCA_VirtualTcpSock* { return nullptr; });
  EXPECT_EQ(harness.client.Connect(1000, &error), 0);
  EXPECT_EQ(error, SCA_ErrorCannotCreate);
  EXPECT_EQ(harness.client.IsConnected() + harness.client.IsUsable(), 0);
  EXPECT_EQ(harness.client.GetConnectCount(), 1U);
  EXPECT_EQ(harness.Extract(3).error, static_cast<unsigned long>(ENOTCONN));
  EXPECT_EQ(harness.reports.All(),
            (std::vector<CapturedReport>{
                {5, "SCA_TikaClient", "SCA_TikaClient::Connect: already connected"},
                {5, "SCA_TcpSock", "Cannot create TCP socket"},
                {5, "SCA_TikaClient", "SCA_TikaClient::Connect: cannot create socket"}}));
}

TEST(Client, DataBufferHasTheSizeOfItsLastInit) {
  const char* const uploaders[] = {"GetFileTextV1", "GetFileTextV2", "SendFile"};
  for (const unsigned long variant : kVariants) {
    ClientHarness harness({ChunkedReply(std::string(64, 'x'), 16)}, 16);
    harness.client.SetBufferSize(4096);
    // Collecting 64 bytes in the buffer of 16 would overrun it.
    EXPECT_EQ(harness.Extract(variant).blocks.size(), 4U);
    harness.client.SetBufferSize(0);
    EXPECT_EQ(harness.client.InitDataBuffer(), 0);
    EXPECT_EQ(harness.Extract(variant).error, SCA_ErrorInvalidData);
    EXPECT_EQ(harness.client.GetTotalErrors(), 1U);
    EXPECT_EQ(harness.client.IsValid(), 0);
    EXPECT_EQ(harness.reports.All().back().text, std::string("SCA_TikaClient::") +
                                                     uploaders[variant - 1] +
                                                     ": data buffer is not initialized");
  }
}

TEST(Client, ACancelEventReachesTheConnectionAndLeavesIt) {
  ClientHarness harness({kOk + "Apache Tika"});
  char version[101];
  unsigned long error = 0;
  SCA_Event cancel(1, 1);
  harness.client.SetCancelEvent(&cancel);
  EXPECT_EQ(harness.client.GetVersion(version, sizeof version, &error), 0);
  EXPECT_EQ(error, SCA_ErrorCancelled);
  harness.client.SetCancelEvent(nullptr);
  EXPECT_EQ(harness.client.GetVersion(version, sizeof version, &error), 1);
  // That of an extraction leaves with its end.
  ClientHarness after({ChunkedReply("x", 1), kOk + "Apache Tika"});
  EXPECT_EQ(after.Extract(3).result, 1);
  after.cancel.Set();
  EXPECT_EQ(after.client.GetVersion(version, sizeof version, &error), 1);
}

TEST(Client, GetVersionTakesOneToAHundredBytesThatAreWhole) {
  struct Row {
    std::vector<std::string> pieces;
    unsigned long error;
    std::string text;       // the version, or what is reported in place of the error
    unsigned long end = 0;  // the code with which the second receive fails
    bool isReset = false;   // the wait after it fails too
    unsigned long size = 101;
  };
  const std::string length12 = "HTTP/1.1 200 OK\r\nContent-Length: 12\r\n\r\n";
  const std::string gzip = "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n\r\nTika";
  const std::string invalid = "invalid content returned by GET version request";
  const std::vector<Row> rows = {
      {{kOk, "Apache ", "Tika"}, 0, "Apache Tika"},
      {{"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nApache"}, 0, "Apache"},
      {{kOk + std::string(101, 'v')}, SCA_ErrorInvalidData, invalid},
      {{kOk}, SCA_ErrorInvalidData, "no content returned by GET version request"},
      {{"HTTP/1.1 404 No\r\n\r\n"}, 404, ""},
      {{"HTTP/1.1 100 x\r\n\r\n", kOk + "Tika"}, 0, "Tika"},
      {{gzip}, SCA_ErrorContentEncoding, ""},
      {{kChunkedHeader + std::string("4\r\nTika\r\n0\r\n\r\n")}, SCA_ErrorInvalidData, ""},
      // Cut by a close, a time-out, a reset and a cancel; whole without a close, and cancelled.
      {{length12 + "Apache"}, ECONNRESET, ""},
      {{kOk + "Apache"}, ETIMEDOUT, "", ETIMEDOUT},
      {{kOk + "Apache"}, ECONNRESET, "", ECONNRESET, true},
      {{kOk + "Apache"}, SCA_ErrorCancelled, "", SCA_ErrorCancelled},
      {{length12 + "Apache Tika "}, 0, "Apache Tika ", ETIMEDOUT},
      {{length12 + "Apache Tika "}, SCA_ErrorCancelled, "", SCA_ErrorCancelled},
      {{"hello\r\n\r\n"}, SCA_ErrorInvalidData, ""},
      {InPieces(std::string(3000, 'x'), 100), SCA_ErrorHeaderTooLong, ""},
      // The caller's buffer must hold the terminating zero too.
      {{kOk + "Apache Tika"}, 0, "Apache Tika", 0, false, 12},
      {{kOk + "Apache Tika"}, ENOBUFS, "-", 0, false, 11},
      // More than the content buffer holds, and exactly that.
      {InPieces(kOk + std::string(65536, 'x'), 4096), SCA_ErrorInvalidData, ""},
      {InPieces(kOk + std::string(65535, 'x'), 4096), SCA_ErrorInvalidData, invalid},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::Message() << "row " << &row - rows.data());
    ClientHarness harness(row.pieces);
    if (row.end != 0) harness.script.failReceive = 1;
    if (row.isReset) harness.script.failWait = 1;
    harness.script.failCode = row.end;
    char version[101] = "";
    unsigned long error = 0;
    EXPECT_EQ(harness.client.GetVersion(version, row.size, &error), row.error == 0 ? 1 : 0);
    EXPECT_EQ(error, row.error);
    EXPECT_EQ(version, row.error == 0 ? row.text : "");
    EXPECT_EQ(harness.script.sent,
              "GET /version HTTP/1.0\r\nHost: 127.0.0.1\r\nUser-Agent: Orvane HTTP Client\r\n\r\n");
    std::string report = row.text;
    if (report.empty()) {
      report = "cannot execute GET version request (ERR:" + std::to_string(row.error) + ")";
    }
    std::vector<CapturedReport> expected{
        {5, "SCA_TikaClient", "SCA_TikaClient::GetVersion: " + report}};
    if (row.error == 0 || row.error == ENOBUFS) expected.clear();
    EXPECT_EQ(harness.reports.All(), expected);
  }
}

TEST(Client, PutRequestSendsPiecesAndReadsTheReplysBody) {
  const std::string length12 = "HTTP/1.1 200 OK\r\nContent-Length: 12\r\n\r\n";
  ClientHarness harness({length12 + "Hello", " there", "!junk"});
  SCA_HttpClientRequest request;
  request.SetContentLength(9000);
  ASSERT_EQ(request.InitContentBuffer(), 1);
  std::memset(request.GetContentBuffer(), 'c', 9000);
  unsigned long error = 77;
  ASSERT_EQ(harness.client.PutRequest("/path", &request, &error), 1);
  EXPECT_STREQ(request.GetContentBuffer(), "Hello there!");
  EXPECT_EQ(harness.script.sendSizes, (std::vector<unsigned long>{71, 4096, 4096, 808}));
  EXPECT_EQ(harness.script.sent.substr(0, 21), "PUT /path HTTP/1.0\r\nH");
  // What is refused does not write the error.
  const char* const refused[] = {
      "HTTP/1.1 201 Created\r\nContent-Length: 5\r\n\r\nHello",
      "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n",
      "HTTP/1.1 200 OK\r\nContent-Length: 1024000001\r\n\r\nHello",
      "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 5\r\n\r\nHello",
      "nonsense\r\n\r\n",
  };
  for (const char* reply : refused) {
    ClientHarness refusing({reply});
    SCA_HttpClientRequest empty;
    EXPECT_EQ(refusing.client.PutRequest("/path", &empty, &error), 0) << reply;
    EXPECT_EQ(error, 77U);
  }
}

}  // namespace
