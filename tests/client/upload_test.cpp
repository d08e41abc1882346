#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>

#include "platform/SCA_Error.h"
#include "tests/client/client_harness.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Timing.h"

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
    EXPECT_EQ(harness.client.GetSentData(), 1234U);
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
    std::string file;  // empty: one of 1000 bytes
    int failSend;      // number of the send that fails
    long second;       // during the second send: the file's new size, or one of the next two
    unsigned long code;
    bool keepsValid;
    unsigned long long sent;
  };
  constexpr int kNever = SocketScript::kNever;
  constexpr long kNothing = -1;
  constexpr long kCancel = -2;
  const TempDir dir;
  const Row rows[] = {
      {dir.File("missing"), kNever, kNothing, ENOENT, true, 0},
      {dir.Path(), kNever, kNothing, EISDIR, true, 0},
      // Its size is 0, whatever it holds.
      {"/proc/self/status", kNever, kNothing, SCA_ErrorFileGrew, true, 0},
      {"", 0, kNothing, EPIPE, false, 0},
      {"", 1, kNothing, EPIPE, false, 0},
      {"", kNever, kCancel, SCA_ErrorCancelled, true, 100},
      {"", kNever, 250, SCA_ErrorFileShrank, true, 250},
      {"", kNever, 0, SCA_ErrorFileShrank, true, 100},
      {"", kNever, 5000, SCA_ErrorFileGrew, true, 1000},
  };
  for (const Row& row : rows) {
    for (const unsigned long variant : kVariants) {
      SCOPED_TRACE(::testing::Message() << "row " << &row - rows << ", variant " << variant);
      const std::string file = dir.Write("changing.doc", std::string(1000, 'x'));
      ClientHarness harness({ChunkedReply("text", 4)}, 100);
      harness.script.failSend = row.failSend;
      harness.script.failCode = EPIPE;
      harness.script.sendTakes = 3;
      harness.script.onSend = [&](int number) {
        if (number != 1 || row.second == kNothing) return;
        if (row.second == kCancel) harness.cancel.Set();
        if (row.second >= 0 && ::truncate(file.c_str(), row.second) != 0) ADD_FAILURE();
      };
      const Extracted extracted = harness.Extract(variant, row.file.empty() ? file : row.file);
      EXPECT_EQ(extracted.error, row.code);
      const bool isCounted = row.second != kCancel || variant == 3;
      EXPECT_EQ(harness.client.GetTotalErrors(), isCounted ? 1U : 0U);
      EXPECT_EQ(harness.client.IsValid(), row.keepsValid ? 1 : 0);
      EXPECT_EQ(harness.client.GetSentData(), row.sent);
      EXPECT_EQ(harness.client.GetLastFileSize(), row.file.empty() ? 1000U : 0U);
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

// From here on real sockets.

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
    for (std::size_t got = 1; got > 0 && counted < kSize; counted += got) {
      got = connection.Discard();
    }
    connection.Send(ChunkedReply("done", 4));
  });
  const TempDir dir;
  ClientHarness real(server.Port(), 60000);
  EXPECT_EQ(real.Extract(3, SparseFile(dir, kSize)).text, "done");
  EXPECT_EQ(counted.load(), kSize);
  EXPECT_EQ(header, UploadHeader("127.0.0.1:" + std::to_string(server.Port()), kSize));
  EXPECT_EQ(real.client.GetSentData(), kSize);
  EXPECT_EQ(real.client.GetLastFileSize(), kSize);
}

// A large file, which the system sends by itself, changes when all of it is on its way.
TEST(Upload, ALargeFileArrivesAsItIsOrFails) {
  constexpr off_t kSize = (3 << 20) + 777;
  std::string content;
  while (content.size() < kSize) content += "line " + std::to_string(content.size()) + "\n";
  content.resize(kSize);
  const std::pair<off_t, unsigned long> rows[] = {{kSize, 0}, {kSize - 9000, SCA_ErrorFileShrank}};
  for (const bool refuses : {false, true}) {
    for (const auto& [newSize, code] : rows) {
      SCOPED_TRACE(::testing::Message() << newSize << ' ' << refuses);
      const TempDir dir;
      const std::string file = dir.Write("large.doc", content);
      std::string got;
      ClientHarness* client = nullptr;
      ScriptedServer server([&, size = newSize](ServerConnection& connection) {
        got = connection.ReceiveHeader();
        const std::string header = got.substr(0, got.find("\r\n\r\n") + 4);
        const std::size_t whole = header.size() + kSize;
        while (got.size() < whole - 60000) got += connection.Receive(whole - 60000 - got.size());
        EXPECT_TRUE(Eventually([&] { return client->client.GetSentData() == kSize; }));
        EXPECT_EQ(::truncate(file.c_str(), size), 0);
        while (got.size() < whole) got += connection.Receive();
        EXPECT_TRUE(size < kSize || got == header + content);
        connection.Send(refuses ? "HTTP/1.1 422 No\r\nContent-Length: 0\r\n\r\n"
                                : ChunkedReply("text", 4));
      });
      ClientHarness real(server.Port(), kDeadlineMs);
      client = &real;
      EXPECT_EQ(real.Extract(3, file).error, code == 0 && refuses ? SCA_ErrorTika422 : code);
      EXPECT_EQ(real.client.IsValid(), 1);
    }
  }
}

TEST(Upload, RefusalBehindABrokenSendIsFound) {
  const auto formerAction = std::signal(SIGPIPE, SIG_DFL);  // which would end the test
  for (const bool resets : {true, false}) {
    SCOPED_TRACE(resets);
    ScriptedServer server([&](ServerConnection& connection) {
      connection.ReceiveHeader();
      connection.Send("HTTP/1.1 413 Too Large\r\nContent-Length: 0\r\n\r\n");
      // Closing now, with data unread, resets the connection.
      if (resets) return;
      connection.CloseWrite();
      connection.WaitForEnd();
    });
    const TempDir dir;
    ClientHarness real(server.Port(), 10000);
    const unsigned long code = real.Extract(3, SparseFile(dir, 1 << 28)).error;
    EXPECT_TRUE(code == EPIPE || code == ECONNRESET) << code;
    EXPECT_EQ(real.client.GetRefusalCode(), 413U);
    EXPECT_EQ(real.client.IsValid(), 0);
    // It is of the last extraction only.
    EXPECT_EQ(real.Extract(3, dir.File("missing")).error, static_cast<unsigned long>(ENOENT));
    EXPECT_EQ(real.client.GetRefusalCode(), 0U);
  }
  sigset_t signals;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &signals);
  EXPECT_EQ(::sigismember(&signals, SIGPIPE), 0);
  ::sigpending(&signals);
  EXPECT_EQ(::sigismember(&signals, SIGPIPE), 0);
  std::signal(SIGPIPE, formerAction);
}

TEST(Upload, PeerThatSaysNothingTimesOutAndCanBeCancelled) {
  ScriptedServer server([](ServerConnection& connection) { connection.WaitForEnd(); });
  ClientHarness impatient(server.Port(), 50);
  EXPECT_EQ(impatient.Extract(1).error, static_cast<unsigned long>(ETIMEDOUT));
  impatient.client.Disconnect();
  const TempDir dir;
  const std::string large = SparseFile(dir, 1 << 28);
  for (const unsigned long variant : kVariants) {
    // Blocked in the wait for the reply, and in the upload that nobody reads.
    for (const std::string& file : {SmallFile(), large}) {
      ClientHarness patient(server.Port(), 60000);
      std::thread canceller([&] {
        while (patient.client.GetTotalFiles() == 0) std::this_thread::yield();
        patient.cancel.Set();
      });
      EXPECT_EQ(patient.Extract(variant, file).error, SCA_ErrorCancelled);
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
  ClientHarness real(server.Port(), 10000);
  for (const unsigned long variant : kVariants) {
    for (std::size_t i = 1; i <= 50; ++i) {
      const std::string content(i * 300, static_cast<char>('a' + i % 26));
      ASSERT_EQ(real.Extract(variant, dir.Write("f", content)).text, content + content);
    }
  }
  EXPECT_EQ(real.client.GetTotalFiles(), 150U);
  EXPECT_EQ(server.Connections(), 1);
}

}  // namespace
