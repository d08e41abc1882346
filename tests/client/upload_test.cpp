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

std::string UploadHeader(const std::string& host, unsigned long long length) {
  return "PUT /tika HTTP/1.1\r\nHost: " + host +
         "\r\nUser-Agent: Orvane HTTP Client\r\nAccept: text/plain\r\nContent-Length: " +
         std::to_string(length) + "\r\n\r\n";
}

TEST(Upload, SendsTheSixLinesAndTheFileInBlocks) {
  const TempDir dir;
  const std::string content = std::string("a\0b\r\n", 5) + std::string(1229, 'z');
  const std::string file = dir.Write("document.pdf", content);
  const std::string empty = dir.Write("empty.pdf", "");
  for (const unsigned long variant : kVariants) {
    ClientHarness harness({ChunkedReply("text", 4), "HTTP/1.1 422 No\r\nContent-Length: 0\r\n\r\n"},
                          1000);
    EXPECT_EQ(harness.Extract(variant, file).text, "text");
    const std::string header = UploadHeader("127.0.0.1:8000", 1234);
    EXPECT_EQ(harness.script.sent, header + content);
    EXPECT_EQ(harness.script.sendSizes, (std::vector<unsigned long>{header.size(), 1000, 234}));
    EXPECT_EQ(harness.client.GetTotalFiles(), 1U);
    EXPECT_EQ(harness.client.GetSentData(), 1234U);
    EXPECT_EQ(harness.client.GetLastFileSize(), 1234U);
    harness.script.sent.clear();
    EXPECT_EQ(harness.Extract(variant, empty).error, SCA_ErrorTika422);
    EXPECT_EQ(harness.script.sent, UploadHeader("127.0.0.1:8000", 0));
    // What is told of the last extraction does not outlive it.
    EXPECT_EQ(harness.Extract(variant, dir.File("missing")).result, 0);
    EXPECT_EQ(harness.client.GetLastTextLength() + harness.client.GetLastFileSize(), 0U);
  }
}

TEST(Upload, HostLineTakesTheLongestNameAndAddressesInBrackets) {
  const std::string name(259, 'h');
  const std::string address = "fe80::" + std::string(253, '1');
  const std::pair<std::string, std::string> rows[] = {{name, name},
                                                      {"::1", "[::1]"},
                                                      {"fe80::1%eth0", "[fe80::1]"},
                                                      {address, "[" + address + "]"}};
  for (const auto& [server, host] : rows) {
    ClientHarness harness({ChunkedReply("text", 4)});
    ASSERT_EQ(harness.client.SetServerName(server.c_str()), 1);
    harness.client.SetPortNumber(65535);
    EXPECT_EQ(harness.Extract(1).result, 1);
    EXPECT_EQ(harness.script.sent, UploadHeader(host + ":65535", 10) + "0123456789");
  }
}

TEST(Upload, FailuresAreCountedAsDocumented) {
  struct Row {
    std::string file;   // empty: the usual one
    int failSend;       // number of the send that fails
    bool cancelOnSend;  // sets the cancel event during the second send
    unsigned long code;
    bool keepsValid;
    unsigned files;
    unsigned long sent;
  };
  constexpr int kNever = SocketScript::kNever;
  const TempDir dir;
  const Row rows[] = {
      {dir.File("missing"), kNever, false, ENOENT, true, 0, 0},
      {dir.Path(), kNever, false, EISDIR, true, 0, 0},
      {"", 0, false, EPIPE, false, 1, 0},
      {"", 1, false, EPIPE, false, 1, 0},
      {"", kNever, true, SCA_ErrorCancelled, true, 1, 10},
  };
  for (const Row& row : rows) {
    for (const unsigned long variant : kVariants) {
      SCOPED_TRACE(::testing::Message() << "row " << &row - rows << ", variant " << variant);
      ClientHarness harness({ChunkedReply("text", 4)});
      harness.script.failSend = row.failSend;
      harness.script.failCode = EPIPE;
      harness.script.sendTakes = 3;
      harness.script.onSend = [&](int number) {
        if (row.cancelOnSend && number == 1) harness.cancel.Set();
      };
      EXPECT_EQ(harness.Extract(variant, row.file).error, row.code);
      const bool isCounted = !row.cancelOnSend || variant == 3;
      EXPECT_EQ(harness.client.GetTotalErrors(), isCounted ? 1U : 0U);
      EXPECT_EQ(harness.client.IsValid(), row.keepsValid ? 1 : 0);
      EXPECT_EQ(harness.client.GetTotalFiles(), row.files);
      EXPECT_EQ(harness.client.GetSentData(), row.sent);
      EXPECT_EQ(harness.client.GetLastFileSize(), row.files != 0 ? 10U : 0U);
    }
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
  struct Row {
    off_t size;  // of the file from the second send on
    unsigned long code;
    std::size_t sent;
  };
  const Row rows[] = {{250, SCA_ErrorFileShrank, 250},
                      {0, SCA_ErrorFileShrank, 100},
                      {5000, SCA_ErrorFileGrew, 1000}};
  for (const unsigned long variant : kVariants) {
    for (const Row& row : rows) {
      const TempDir dir;
      const std::string file = dir.Write("changing.doc", std::string(1000, 'x'));
      ClientHarness harness({ChunkedReply("text", 4)}, 100);
      harness.script.onSend = [&](int number) {
        if (number == 1 && ::truncate(file.c_str(), row.size) != 0) ADD_FAILURE();
      };
      EXPECT_EQ(harness.Extract(variant, file).error, row.code);
      const std::size_t header = UploadHeader("127.0.0.1:8000", 1000).size();
      EXPECT_EQ(harness.script.sent.size(), header + row.sent);
      EXPECT_EQ(harness.client.IsValid(), 1);
      EXPECT_EQ(harness.client.GetTotalErrors(), 1U);
    }
    // Its size is 0, whatever it holds.
    ClientHarness harness({ChunkedReply("", 4)});
    EXPECT_EQ(harness.Extract(variant, "/proc/self/status").error, SCA_ErrorFileGrew);
  }
}

// From here on real sockets.

struct RealClient {
  RealClient(unsigned short port, unsigned long timeoutMs) : client(&settings, "127.0.0.1", port) {
    unsigned long error = 0;
    settings.SetNetworkTimeout(timeoutMs);
    EXPECT_EQ(client.InitDataBuffer(), 1);
    EXPECT_EQ(client.Connect(5000, &error), 1) << SCA_ErrorText(error);
  }
  // @return The code, 0 when the text has been extracted.
  unsigned long Extract(unsigned long variant, const std::string& file,
                        SCA_Event* cancel = nullptr) {
    const SCA_TikaTextCallback append = [](const char* block, unsigned long length, unsigned long,
                                           void* context) {
      static_cast<std::string*>(context)->append(block, length);
      return 1;
    };
    unsigned long length = 0;
    unsigned long error = 0;
    text.clear();
    client.GetFileText(variant, file.c_str(), nullptr, append, &text, cancel, &length, &error);
    return error;
  }

  const ReportCapture reports;
  SCA_TikaConfigOrv settings;
  SCA_TikaClient client;
  std::string text;
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
  EXPECT_EQ(real.Extract(3, SparseFile(dir, kSize)), 0U);
  EXPECT_EQ(real.text, "done");
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
      const unsigned long code = real.Extract(variant, SparseFile(dir, 1 << 28));
      EXPECT_TRUE(code == EPIPE || code == ECONNRESET) << code;
      EXPECT_EQ(real.client.GetRefusalCode(), 413U);
      EXPECT_EQ(real.client.IsValid(), 0);
      // It is of the last extraction only.
      EXPECT_EQ(real.Extract(1, dir.File("missing")), static_cast<unsigned long>(ENOENT));
      EXPECT_EQ(real.client.GetRefusalCode(), 0U);
    }
  }
}

TEST(Upload, PeerThatSaysNothingTimesOutAndCanBeCancelled) {
  ScriptedServer server([](ServerConnection& connection) { connection.WaitForEnd(); });
  {
    RealClient impatient(server.Port(), 50);
    EXPECT_EQ(impatient.Extract(1, SmallFile()), static_cast<unsigned long>(ETIMEDOUT));
  }
  const TempDir dir;
  const std::string large = SparseFile(dir, 1 << 28);
  for (const unsigned long variant : kVariants) {
    // Blocked in the wait for the reply, and in the upload that nobody reads.
    for (const std::string& file : {SmallFile(), large}) {
      RealClient patient(server.Port(), 60000);
      SCA_Event cancel(1, 0);
      std::thread canceller([&] {
        while (patient.client.GetTotalFiles() == 0) std::this_thread::yield();
        cancel.Set();
      });
      EXPECT_EQ(patient.Extract(variant, file, &cancel), SCA_ErrorCancelled);
      canceller.join();
      // The third variant counts a cancel that comes during the upload, the small one's included.
      const unsigned long counted = variant == 3 ? 1 : 0;
      EXPECT_LE(patient.client.GetTotalErrors(), counted);
      EXPECT_GE(patient.client.GetTotalErrors(), file == large ? counted : 0);
      EXPECT_EQ(patient.client.IsValid(), 1);
    }
  }
}

TEST(Upload, ManyFilesGoOverOneConnection) {
  ScriptedServer server([](ServerConnection& connection) {
    for (std::string request; !(request = connection.ReceiveRequest()).empty();) {
      const std::string body = request.substr(request.find("\r\n\r\n") + 4);
      connection.Send(ChunkedReply(body + body, 4096));
    }
  });
  const TempDir dir;
  RealClient real(server.Port(), 10000);
  for (const unsigned long variant : kVariants) {
    for (std::size_t i = 1; i <= 50; ++i) {
      const std::string content(i * 300, static_cast<char>('a' + i % 26));
      ASSERT_EQ(real.Extract(variant, dir.Write("f", content)), 0U);
      EXPECT_EQ(real.text, content + content);
    }
  }
  EXPECT_EQ(real.client.GetTotalFiles(), 150U);
  EXPECT_EQ(server.Connections(), 1);
}

}  // namespace
