// The fault lab, seen from the wire.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>

#include "faultlab/FaultServer.h"
#include "tests/support/FreePort.h"
#include "tests/support/Program.h"
#include "tests/support/Timing.h"

namespace {

constexpr char kHeader[] = "Transfer-Encoding: chunked\r\n\r\n";

constexpr char kVersion[] = "Apache Tika 3.3.2";

// What a client sees of a reply, and what follows.
struct Seen {
  std::string bytes;
  char end;  // 'k' kept, 'c' closed, 'r' reset, 'h' hangs
};

// Sends a document, or the beginning of a longer one, asks for the version at once, and reads until
// that comes, the connection ends, or all that is expected before a hang is there.
Seen Put(unsigned short port, const std::string& content, std::size_t size,
         const std::string& beforeHang = kVersion) {
  const int fd = ConnectToLoopback(port);
  const std::string request =
      "PUT /tika HTTP/1.1\r\nhost: x\r\ncontent-length: " + std::to_string(size) + "\r\n\r\n" +
      content + "GET /version HTTP/1.1\r\n\r\n";
  EXPECT_EQ(::send(fd, request.data(), request.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(request.size()));
  Seen seen{"", 'h'};
  const auto ends = [&seen](const std::string& end) {
    return seen.bytes.size() >= end.size() &&
           seen.bytes.compare(seen.bytes.size() - end.size(), end.size(), end) == 0;
  };
  while (!ends(beforeHang)) {
    char block[4096];
    const ssize_t count = ::recv(fd, block, sizeof block, 0);
    if (count <= 0) {
      seen.end = count == 0 ? 'c' : 'r';
      break;
    }
    seen.bytes.append(block, static_cast<std::size_t>(count));
  }
  ::close(fd);
  if (ends(kVersion)) {
    seen.bytes.resize(seen.bytes.rfind("HTTP/1.1"));
    seen.end = 'k';
  }
  return seen;
}

TEST(TikaFault, EachFaultIsPlayedAsItsRowTells) {
  struct Row {
    const char* marker;
    const char* bytes;  // behind a chunked reply's header; behind "!" of the whole reply
    char end;
  };
  const Row rows[] = {
      {"text=8", "8\r\ntext of \r\n0\r\n\r\n", 'k'},
      {"slow=1,text=3", "3\r\ntex\r\n0\r\n\r\n", 'k'},
      {"trickle=1,text=3", "3\r\ntex\r\n0\r\n\r\n", 'k'},
      {"hang-up,text=3", "3\r\ntex\r\n0\r\n\r\n", 'c'},
      {"no-text", "!HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 0\r\n\r\n", 'k'},
      {"continue,text=1", "1\r\nt\r\n0\r\n\r\n", 'k'},
      {"length-too,text=1", "1\r\nt\r\n0\r\n\r\n", 'k'},
      {"die", "!", 'c'},
      {"die=12", "A\r\ntext of do\r\n2\r\nc \r\n", 'c'},
      {"die-early", "!", 'c'},
      {"reset", "!", 'r'},
      {"reset-early", "!", 'r'},
      {"close=0", "", 'c'},
      {"cut=12", "A\r\ntext of do\r\nA\r\nc ", 'c'},
      {"hang=2", "2\r\nte\r\n", 'h'},
      {"status=503",
       "!HTTP/1.1 503 No\r\nContent-Type: text/plain\r\nContent-Length: 15\r\n\r\nwhat went wrong",
       'k'},
      {"size-long,text=4", "5\r\ntext\r\n0\r\n\r\n", 'k'},
      {"size-short,text=4", "3\r\ntext\r\n0\r\n\r\n", 'k'},
      {"size-word,text=4", "size\r\ntext\r\n0\r\n\r\n", 'k'},
      {"size-huge,text=4", "10000000000000004\r\ntext\r\n0\r\n\r\n", 'k'},
      {"garbage", "!220 mail.example ready\r\n\r\n", 'k'},
      // No fault, since none of them makes sense.
      {"reset=x tikafault:nothing",
       "A\r\ntext of do\r\nA\r\nc tikafaul\r\nA\r\nt:reset=x \r\nA\r\n"
       "tikafault:\r\n7\r\nnothing\r\n0\r\n\r\n",
       'k'},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.marker);
    FaultServerOptions options;
    options.chunkSize = 10;
    const FaultServer server(options);
    const std::string content = std::string("doc tikafault:") + row.marker;
    // The early ones come while the document is on its way.
    const bool isEarly = std::strstr(row.marker, "-early") != nullptr;
    const std::string sent = isEarly ? content + std::string(4096, ' ') : content;
    const Seen seen = Put(server.Port(), sent, isEarly ? 1 << 20 : sent.size(),
                          row.end == 'h' ? row.bytes : kVersion);
    if (row.bytes[0] == '!') {
      EXPECT_EQ(seen.bytes, row.bytes + 1);
    } else {
      const std::size_t begin = seen.bytes.find(kHeader);
      ASSERT_NE(begin, std::string::npos) << seen.bytes;
      EXPECT_EQ(seen.bytes.substr(begin + std::strlen(kHeader)), row.bytes);
    }
    EXPECT_EQ(seen.end, row.end);
  }
}

TEST(TikaFault, ChanceGivesDocumentsTheirFaultsAndPassesWhatIsToPass) {
  FaultSpec resetting;
  ASSERT_EQ(ParseFault("reset,rate=0.2", &resetting), "");
  int resets = 0;
  int moved = 0;
  for (int i = 0; i < 2000; ++i) {
    const std::string content = "document " + std::to_string(i);
    const DocumentHead head{content.size(), content};
    const std::string words = FaultWords(FaultPlan({resetting}, 0.1, 7).Choose(head));
    resets += words == "reset" ? 1 : 0;
    moved += words != FaultWords(FaultPlan({resetting}, 0.1, 8).Choose(head)) ? 1 : 0;
  }
  EXPECT_NEAR(resets, 400, 80);
  EXPECT_GT(moved, 300);

  const auto memory = std::make_shared<LabMemory>();
  const FaultServer first({}, memory);
  const FaultServer second({}, memory);
  const std::string passing = "tikafault:reset,tries=2";
  EXPECT_EQ(Put(first.Port(), passing, passing.size()).end, 'r');
  EXPECT_EQ(Put(second.Port(), passing, passing.size()).end, 'r');
  EXPECT_EQ(Put(first.Port(), passing, passing.size()).end, 'k');
}

TEST(TikaFault, ServersThatDieComeBackOnTheirPorts) {
  Program dead("tikafault", {"--say", "java.lang.OutOfMemoryError", "--exit", "7"});
  EXPECT_EQ(dead.Wait(), 7);
  EXPECT_EQ(dead.Error(), "java.lang.OutOfMemoryError\n");
  Program lab("tikafault", {"--port", "0", "--servers", "2", "--restart", "--down", "1", "-v"});
  std::string addresses;
  ASSERT_TRUE(Eventually([&] {
    addresses = lab.Output();
    return std::count(addresses.begin(), addresses.end(), '\n') == 2;
  })) << lab.Error();
  const std::string first = addresses.substr(0, addresses.find('\n'));
  const auto port = static_cast<unsigned short>(std::stoul(first.substr(first.find(':') + 1)));
  const std::string deadly = "tikafault:die";
  EXPECT_EQ(Put(port, deadly, deadly.size()).bytes, "");
  EXPECT_TRUE(lab.WaitForError(first + " died: Killed\ntikafault: " + first + " listens"));
  const std::string harmless = "tikafault:text=8";
  EXPECT_NE(Put(port, harmless, harmless.size()).bytes.find("text of "), std::string::npos);
  lab.Signal(SIGTERM);
  EXPECT_EQ(lab.Wait(), 0) << lab.Error();
  EXPECT_TRUE(lab.FamilyEndsWithin(5));
}

}  // namespace
