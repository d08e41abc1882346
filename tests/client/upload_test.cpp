#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>

#include "platform/SCA_Error.h"
#include "tests/client/client_harness.h"
#include "tests/support/ScriptedServer.h"

namespace {

constexpr unsigned long kVariants[] = {1, 2, 3};

std::string UploadHeader(const std::string& host, unsigned long long length) {
  return "PUT /tika HTTP/1.1\r\nHost: " + host +
         "\r\nUser-Agent: Orvane HTTP Client\r\nAccept: text/plain\r\nContent-Length: " +
         std::to_string(length) + "\r\n\r\n";
}

TEST(Upload, SendsTheSixLinesAndTheFileInBlocks) {
  const TempDir dir;
  const std::string content = std::string("a\0b\r\n", 5) + std::string(1229, 'z');
  const std::string file = dir.Write("document.pdf", content);
  for (const unsigned long variant : kVariants) {
    ClientHarness harness(1000);
    harness.script.pieces = {ChunkedReply("text", 4)};
    EXPECT_EQ(harness.Extract(variant, file).text, "text");
    const std::string header = UploadHeader("127.0.0.1:8000", 1234);
    EXPECT_EQ(harness.script.sent, header + content);
    EXPECT_EQ(harness.script.sendSizes, (std::vector<unsigned long>{header.size(), 1000, 234}));
    EXPECT_EQ(harness.client.GetTotalFiles(), 1U);
    EXPECT_EQ(harness.client.GetSentData(), 1234U);
    EXPECT_EQ(harness.client.GetLastFileSize(), 1234U);
  }
}

TEST(Upload, EmptyFileSendsTheHeaderAlone) {
  const TempDir dir;
  const std::string file = dir.Write("empty.pdf", "");
  for (const unsigned long variant : kVariants) {
    ClientHarness harness;
    harness.script.pieces = {"HTTP/1.1 422 Unprocessable\r\nContent-Length: 0\r\n\r\n"};
    EXPECT_EQ(harness.Extract(variant, file).error, SCA_ErrorTika422);
    EXPECT_EQ(harness.script.sent, UploadHeader("127.0.0.1:8000", 0));
  }
}

TEST(Upload, HostLineTakesTheLongestNameAndAddressesInBrackets) {
  const std::string longest(259, 'h');
  const std::string longestAddress = "fe80::" + std::string(253, '1');
  const std::pair<std::string, std::string> rows[] = {{longest, longest},
                                                      {"10.0.0.1", "10.0.0.1"},
                                                      {"::1", "[::1]"},
                                                      {"fe80::1%eth0", "[fe80::1]"},
                                                      {longestAddress, "[" + longestAddress + "]"}};
  for (const auto& [name, host] : rows) {
    ClientHarness harness;
    ASSERT_EQ(harness.client.SetServerName(name.c_str()), 1);
    harness.client.SetPortNumber(65535);
    harness.script.pieces = {ChunkedReply("text", 4)};
    EXPECT_EQ(harness.Extract(1).result, 1);
    const std::string upload = UploadHeader(host + ":65535", 10) + "0123456789";
    EXPECT_EQ(harness.script.sent, upload);
    char version[101];
    unsigned long error = 0;
    harness.client.GetVersion(version, sizeof version, &error);
    EXPECT_EQ(
        harness.script.sent.substr(upload.size()),
        "GET /version HTTP/1.0\r\nHost: " + host + "\r\nUser-Agent: Orvane HTTP Client\r\n\r\n");
  }
}

struct UploadFailure {
  const char* name;
  std::string file;   // empty: the usual one
  int failSend;       // number of the send that fails
  bool cancelOnSend;  // sets the cancel event during the second send
  bool withoutBuffer;
  unsigned long code;
  bool isCountedByFirstTwo;
  bool keepsValid;
  unsigned files;
  unsigned long sent;
};

TEST(Upload, FailuresAreCountedAsDocumented) {
  const TempDir dir;
  const std::string missing = dir.File("missing");
  const std::vector<UploadFailure> failures = {
      {"no data buffer", "", -1, false, true, SCA_ErrorInvalidData, true, false, 0, 0},
      {"missing file", missing, -1, false, false, ENOENT, true, true, 0, 0},
      {"a directory", dir.Path(), -1, false, false, EISDIR, true, true, 0, 0},
      {"header not sent", "", 0, false, false, EPIPE, true, false, 1, 0},
      {"block not sent", "", 1, false, false, EPIPE, true, false, 1, 0},
      {"cancel", "", -1, true, false, SCA_ErrorCancelled, false, true, 1, 10},
  };
  for (const UploadFailure& failure : failures) {
    for (const unsigned long variant : kVariants) {
      SCOPED_TRACE(std::string(failure.name) + ", variant " + std::to_string(variant));
      ClientHarness harness;
      if (failure.withoutBuffer) {
        // As after an allocation that failed.
        harness.client.~OpenClient();
        new (&harness.client) OpenClient(&harness.settings, "127.0.0.1", 8000);
      }
      harness.script.pieces = {ChunkedReply("text", 4)};
      harness.script.failSend = failure.failSend;
      harness.script.failCode = EPIPE;
      harness.script.sendTakes = 3;
      harness.script.onSend = [&](int number) {
        if (failure.cancelOnSend && number == 1) harness.cancel.Set();
      };
      const Extracted extracted = harness.Extract(variant, failure.file);
      EXPECT_EQ(extracted.result, 0);
      EXPECT_EQ(extracted.error, failure.code);
      const bool isCounted = failure.isCountedByFirstTwo || variant == 3;
      EXPECT_EQ(harness.client.GetTotalErrors(), isCounted ? 1U : 0U);
      EXPECT_EQ(harness.client.IsValid(), failure.keepsValid ? 1 : 0);
      EXPECT_EQ(harness.client.GetTotalFiles(), failure.files);
      EXPECT_EQ(harness.client.GetSentData(), failure.sent);
      EXPECT_EQ(harness.client.GetLastFileSize(), failure.files != 0 ? 10U : 0U);
      EXPECT_EQ(harness.client.GetLastTextLength(), 0U);
    }
  }
}

TEST(Upload, MissingDataBufferIsReportedByTheUploadingOperation) {
  const std::pair<const char*, const char*> names[] = {{"SCA_TikaClientV1", "GetFileTextV1"},
                                                       {"SCA_TikaClientV2", "GetFileTextV2"},
                                                       {"SCA_TikaClient", "SendFile"}};
  for (const unsigned long variant : kVariants) {
    const ReportCapture reports;
    SCA_TikaConfigOrv settings;
    SCA_TikaClient client(&settings, "127.0.0.1", 8000);
    unsigned long length = 0;
    unsigned long error = 0;
    EXPECT_EQ(client.GetFileText(variant, SmallFile().c_str(), nullptr, nullptr, nullptr, nullptr,
                                 &length, &error),
              0);
    const auto& [source, operation] = names[variant - 1];
    const std::string text =
        std::string("SCA_TikaClient::") + operation + ": data buffer is not initialized";
    EXPECT_EQ(reports.All(), (std::vector<CapturedReport>{{5, source, text}}));
  }
}

TEST(Upload, SendFileAloneClearsTheFlagButCountsNoError) {
  ClientHarness harness;
  unsigned long error = 0;
  EXPECT_EQ(harness.client.SendFile(SmallFile().c_str(), &harness.cancel, &error), 1);
  EXPECT_EQ(harness.script.sent, UploadHeader("127.0.0.1:8000", 10) + "0123456789");
  harness.script.failSend = 2;
  EXPECT_EQ(harness.client.SendFile(SmallFile().c_str(), nullptr, &error), 0);
  EXPECT_EQ(error, 5U);
  EXPECT_EQ(harness.client.IsValid(), 0);
  EXPECT_EQ(harness.client.GetTotalErrors(), 0U);
}

TEST(Upload, FileThatChangesDuringTheUploadIsAFailureOfTheFile) {
  enum class Change { Shrinks, Empties, Grows };
  for (const unsigned long variant : kVariants) {
    for (const Change change : {Change::Shrinks, Change::Empties, Change::Grows}) {
      SCOPED_TRACE(::testing::Message() << variant << " " << static_cast<int>(change));
      const TempDir dir;
      const std::string file = dir.Write("changing.doc", std::string(1000, 'x'));
      ClientHarness harness(100);
      harness.script.pieces = {ChunkedReply("text", 4)};
      harness.script.onSend = [&](int number) {
        const off_t size = change == Change::Shrinks ? 250 : change == Change::Empties ? 0 : 5000;
        if (number == 1 && ::truncate(file.c_str(), size) != 0) ADD_FAILURE();
      };
      const Extracted extracted = harness.Extract(variant, file);
      const std::size_t header = UploadHeader("127.0.0.1:8000", 1000).size();
      const bool grows = change == Change::Grows;
      EXPECT_EQ(extracted.error, grows ? SCA_ErrorFileGrew : SCA_ErrorFileShrank);
      const std::size_t sent = grows ? 1000 : change == Change::Shrinks ? 250 : 100;
      EXPECT_EQ(harness.script.sent.size(), header + sent);
      EXPECT_EQ(harness.client.IsValid(), 1);
      EXPECT_EQ(harness.client.GetTotalErrors(), 1U);
    }
    // Its size is 0, whatever it holds.
    ClientHarness harness;
    harness.script.pieces = {ChunkedReply("", 4)};
    EXPECT_EQ(harness.Extract(variant, "/proc/self/status").error, SCA_ErrorFileGrew);
  }
}

// From here on real sockets.

struct RealClient {
  const ReportCapture reports;

  RealClient(unsigned short port, unsigned long timeoutMs) : client(&settings, "127.0.0.1", port) {
    settings.SetNetworkTimeout(timeoutMs);
    EXPECT_EQ(client.InitDataBuffer(), 1);
    Reconnect();
  }
  void Reconnect() {
    unsigned long error = 0;
    client.Disconnect();
    EXPECT_EQ(client.Connect(5000, &error), 1) << SCA_ErrorText(error);
  }
  unsigned long Extract(unsigned long variant, const std::string& file, std::string* text,
                        SCA_Event* cancel = nullptr) {
    const SCA_TikaTextCallback append = [](const char* block, unsigned long length, unsigned long,
                                           void* context) {
      static_cast<std::string*>(context)->append(block, length);
      return 1;
    };
    unsigned long length = 0;
    unsigned long error = 0;
    text->clear();
    return client.GetFileText(variant, file.c_str(), nullptr, append, text, cancel, &length,
                              &error) != 0
               ? 0
               : error;
  }

  SCA_TikaConfigOrv settings;
  SCA_TikaClient client;
};

std::string SparseFile(const TempDir& dir, off_t size) {
  const std::string path = dir.Write("sparse.bin", "");
  EXPECT_EQ(::truncate(path.c_str(), size), 0);
  return path;
}

TEST(Upload, FiveGibibytesArriveWhole) {
  constexpr unsigned long long kSize = 5ULL << 30;
  std::atomic<unsigned long long> counted{0};
  std::string header;
  ScriptedServer server([&](ServerConnection& connection) {
    header = connection.ReceiveHeader();
    const std::size_t end = header.find("\r\n\r\n") + 4;
    counted = header.size() - end;
    header.resize(end);
    while (counted < kSize) {
      const std::size_t got = connection.Discard();
      if (got == 0) return;
      counted += got;
    }
    connection.Send(ChunkedReply("done", 4));
  });
  const TempDir dir;
  RealClient real(server.Port(), 60000);
  std::string text;
  EXPECT_EQ(real.Extract(3, SparseFile(dir, kSize), &text), 0U);
  EXPECT_EQ(text, "done");
  EXPECT_EQ(counted.load(), kSize);
  EXPECT_EQ(header, UploadHeader("127.0.0.1:" + std::to_string(server.Port()), kSize));
  EXPECT_EQ(real.client.GetSentData(), kSize);
  EXPECT_EQ(real.client.GetLastFileSize(), kSize);
}

TEST(Upload, RefusalBehindABrokenSendIsFound) {
  for (const unsigned long variant : kVariants) {
    for (const bool resets : {true, false}) {
      SCOPED_TRACE(::testing::Message() << "variant " << variant << " resets " << resets);
      ScriptedServer server([&](ServerConnection& connection) {
        connection.ReceiveHeader();
        connection.Send("HTTP/1.1 413 Too Large\r\nContent-Length: 0\r\n\r\n");
        // Closing now, with data unread, resets the connection.
        if (resets) return;
        connection.CloseWrite();
        connection.WaitForEnd();
      });
      const TempDir dir;
      RealClient real(server.Port(), 10000);
      std::string text;
      const unsigned long code = real.Extract(variant, SparseFile(dir, 1 << 28), &text);
      EXPECT_TRUE(code == EPIPE || code == ECONNRESET) << code;
      EXPECT_EQ(real.client.GetRefusalCode(), 413U);
      EXPECT_EQ(real.client.IsValid(), 0);
      // It is of the last extraction only.
      EXPECT_EQ(real.Extract(1, dir.File("missing"), &text), static_cast<unsigned long>(ENOENT));
      EXPECT_EQ(real.client.GetRefusalCode(), 0U);
    }
  }
}

TEST(Upload, PeerThatSaysNothingTimesOutAndCanBeCancelled) {
  ScriptedServer server([](ServerConnection& connection) { connection.WaitForEnd(); });
  std::string text;
  RealClient impatient(server.Port(), 50);
  EXPECT_EQ(impatient.Extract(1, SmallFile(), &text), static_cast<unsigned long>(ETIMEDOUT));
  impatient.client.Disconnect();

  const TempDir dir;
  const std::string large = SparseFile(dir, 1 << 28);
  for (const unsigned long variant : kVariants) {
    // Blocked in the wait for the reply, and in the upload that nobody reads.
    for (const std::string& file : {SmallFile(), large}) {
      RealClient patient(server.Port(), 60000);
      SCA_Event cancel(1, 0);
      std::thread canceller([&cancel, &patient] {
        while (patient.client.GetTotalFiles() == 0) std::this_thread::yield();
        cancel.Set();
      });
      EXPECT_EQ(patient.Extract(variant, file, &text, &cancel), SCA_ErrorCancelled);
      canceller.join();
      // The third variant counts a cancel that comes during the upload, the small one's included.
      const unsigned long counted = variant == 3 ? 1 : 0;
      EXPECT_LE(patient.client.GetTotalErrors(), counted);
      EXPECT_GE(patient.client.GetTotalErrors(), file == large ? counted : 0);
      EXPECT_EQ(patient.client.IsValid(), 1);
      patient.client.Disconnect();
    }
  }
}

TEST(Upload, NextFileIsUntouchedByTheFailureOfTheLast) {
  // Each way in which file A can fail leaves another rest on the connection.
  const std::vector<std::string> badReplies = {
      "HTTP/1.1 422 No\r\nContent-Length: 9\r\n\r\nold text.",
      "HTTP/1.1 500 No\r\nContent-Length: 9\r\n\r\nold text.",
      "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nold text.",
      std::string(kChunkedHeader) + "9\r\nold text.xx0\r\n\r\n",
      std::string(kChunkedHeader) + "zz\r\nold text.\r\n0\r\n\r\n",
      std::string(kChunkedHeader) + "9\r\nold",
  };
  for (const unsigned long variant : kVariants) {
    for (const std::string& badReply : badReplies) {
      SCOPED_TRACE(badReply + ", variant " + std::to_string(variant));
      std::atomic<bool> isFirst{true};
      ScriptedServer server([&](ServerConnection& connection) {
        while (!connection.ReceiveRequest().empty()) {
          if (!isFirst.exchange(false)) {
            connection.Send(ChunkedReply("new text.", 9));
          } else {
            connection.Send(badReply);
            connection.CloseWrite();
          }
        }
      });
      RealClient real(server.Port(), 10000);
      std::string text;
      const unsigned long code = real.Extract(variant, SmallFile(), &text);
      EXPECT_NE(code, 0U);
      real.Reconnect();
      EXPECT_EQ(real.Extract(variant, SmallFile(), &text), 0U);
      EXPECT_EQ(text, "new text.");
    }
  }
}

TEST(Upload, ManyFilesGoOverOneConnection) {
  ScriptedServer server([](ServerConnection& connection) {
    while (true) {
      const std::string request = connection.ReceiveRequest();
      if (request.empty()) return;
      const std::string body = request.substr(request.find("\r\n\r\n") + 4);
      connection.Send(ChunkedReply(body + body, 4096));
    }
  });
  const TempDir dir;
  RealClient real(server.Port(), 10000);
  for (const unsigned long variant : kVariants) {
    for (int i = 1; i <= 50; ++i) {
      const std::string content(static_cast<std::size_t>(i * 300), static_cast<char>('a' + i % 26));
      std::string text;
      ASSERT_EQ(real.Extract(variant, dir.Write("f", content), &text), 0U);
      EXPECT_EQ(text, content + content);
    }
  }
  EXPECT_EQ(real.client.GetTotalFiles(), 150U);
  EXPECT_EQ(real.client.GetConnectCount(), 1U);
  EXPECT_EQ(server.Connections(), 1);
  // What is told of the last extraction does not outlive it.
  std::string text;
  EXPECT_EQ(real.Extract(1, dir.File("missing"), &text), static_cast<unsigned long>(ENOENT));
  EXPECT_EQ(real.client.GetLastTextLength() + real.client.GetLastFileSize(), 0U);
}

}  // namespace
