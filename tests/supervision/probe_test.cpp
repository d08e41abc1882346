#include "supervision/SCA_TikaProbe.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>

#include "platform/SCA_Error.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Timing.h"

namespace {

// Gives the code of the failure, or 0.
unsigned long Ask(const ScriptedServer& server, unsigned long limitMs, SCA_TikaAnswer* answer,
                  SCA_Event* cancel = nullptr) {
  unsigned long error = 0;
  const SCA_TikaProbe probe("127.0.0.1", server.Port(), limitMs);
  const int isAnswered = probe.Ask(cancel, answer, &error);
  EXPECT_EQ(isAnswered, error == 0 ? 1 : 0);
  return error;
}

TEST(TikaProbe, TellsAnswersFromWhatIsNone) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  struct Row {
    std::string reply;
    std::string version;
    unsigned long error;
  };
  const Row rows[] = {
      {ok + "\r\nApache Tika 9.9", "Apache Tika 9.9", 0},
      {ok + "Content-Length: 3\r\n\r\nA\nB and more", "A B", 0},
      {ok + "\r\n" + std::string(100, 'v'), std::string(100, 'v'), 0},
      {ok + "\r\n" + std::string(101, 'v'), "", SCA_ErrorInvalidData},
      {ok + "\r\n", "", SCA_ErrorInvalidData},
      {ok + "Content-Length: 9\r\n\r\nApache", "", ECONNRESET},
      {ok + "Transfer-Encoding: chunked\r\n\r\n1\r\nA\r\n0\r\n\r\n", "", SCA_ErrorInvalidData},
      {"HTTP/1.1 404 Not Found\r\n\r\nApache Tika", "", 404},
      {ok + "Server: cut", "", ECONNRESET},
      {"nonsense\r\n\r\n", "", SCA_ErrorInvalidData},
      {ok + std::string(20000, 'h'), "", SCA_ErrorInvalidData},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.reply.substr(0, 60));
    const ScriptedServer server([&](ServerConnection& connection) {
      const std::string request = connection.ReceiveHeader();
      EXPECT_EQ(request.find("GET /version HTTP/1.0\r\nHost: 127.0.0.1\r\n"), 0U) << request;
      connection.Send(row.reply);
    });
    SCA_TikaAnswer answer;
    EXPECT_EQ(Ask(server, kDeadlineMs, &answer), row.error);
    EXPECT_EQ(answer.version, row.version);
  }
}

TEST(TikaProbe, ADocumentIsExtractedOnlyWhenItsTextComes) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::pair<std::string, unsigned long> rows[] = {
      {ok + "\r\n\nready\n", 0},
      {ok + "Content-Length: 0\r\n\r\n", SCA_ErrorInvalidData},
      {ok + "\r\nanother page", SCA_ErrorInvalidData},
      {"HTTP/1.1 500 Server Error\r\n\r\nready", 500},
      {"HTTP/1.1 429 Too Many Requests\r\nContent-Length: 0\r\n\r\n", 429},
      {"", ECONNRESET}};
  for (const auto& [reply, expected] : rows) {
    SCOPED_TRACE(reply);
    const ScriptedServer server([&reply = reply](ServerConnection& connection) {
      const std::string request = connection.ReceiveHeader();
      EXPECT_EQ(request.find("PUT /tika/text HTTP/1.0\r\nHost: 127.0.0.1\r\n"), 0U) << request;
      connection.Send(reply);
    });
    unsigned long error = 0;
    EXPECT_EQ(SCA_TikaProbe("127.0.0.1", server.Port(), kDeadlineMs).TryDocument(nullptr, &error),
              expected == 0 ? 1 : 0);
    EXPECT_EQ(error, expected);
  }
}

TEST(TikaProbe, EndsInTimeHoweverTheAnswerTrickles) {
  // Header bytes for one, body bytes for the other.
  for (const char* begin : {"", "HTTP/1.1 200 OK\r\n\r\n"}) {
    const ScriptedServer server([&](ServerConnection& connection) {
      connection.ReceiveHeader();
      connection.Send(begin);
      while (connection.Send("H")) ::poll(nullptr, 0, 10);
    });
    SCA_TikaAnswer answer;
    const Stopwatch watch;
    EXPECT_EQ(Ask(server, 300, &answer), static_cast<unsigned long>(ETIMEDOUT));
    EXPECT_LT(watch.Ms(), kDeadlineMs / 3);
    SCA_Event cancel(1, 1);
    EXPECT_EQ(Ask(server, SCA_Infinite, &answer, &cancel), SCA_ErrorCancelled);
  }
}

}  // namespace
