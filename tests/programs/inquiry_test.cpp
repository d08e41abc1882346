// Asking a server for the reason of its refusal, where the server misbehaves.

#include "programs/tikaextract/Inquiry.h"

#include <gtest/gtest.h>

#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

constexpr char kHeader[] = "HTTP/1.1 200 OK\r\n";

std::string AddressOf(const ScriptedServer& server) {
  return "127.0.0.1:" + std::to_string(server.Port());
}

// A server that never ends what it says never falls silent either.
TEST(Inquiry, EndsAtItsLimitWhateverTrickles) {
  const std::string texts[] = {kHeader, ChunkedReply("[{", 2)};
  for (const std::string& text : texts) {
    ScriptedServer server([&text](ServerConnection& connection) {
      if (connection.ReceiveRequest().rfind("GET", 0) == 0) {
        connection.Send(kVersionReply);
        return;
      }
      connection.Send(text.substr(0, text.size() - 5));
      while (connection.Send("X") && connection.WaitForEnd(20)) continue;
    });
    const TempDir dir;
    const std::string path = dir.Write("a.pdf", "x");
    const RequestChoice choice;
    SCA_Event cancel(1, 0);
    Inquiry inquiry(choice, &cancel, std::chrono::milliseconds(300));
    const Stopwatch watch;
    EXPECT_FALSE(inquiry.Ask(AddressOf(server), path, path).has_value());
    EXPECT_GE(watch.Ms(), 300);
    EXPECT_LT(watch.Ms(), 8000) << "less than the silence that ends it otherwise";
    const int connections = server.Connections();
    EXPECT_FALSE(inquiry.Ask(AddressOf(server), path, path).has_value());
    EXPECT_EQ(server.Connections(), connections) << "it is left alone for a while";
  }
}

TEST(Inquiry, AsksAgainAfterAFailure) {
  std::string question;
  bool hasFailed = false;
  ScriptedServer server([&](ServerConnection& connection) {
    const std::string request = connection.ReceiveRequest();
    if (request.rfind("GET", 0) == 0) {
      connection.Send(kVersionReply);
    } else if (!hasFailed) {
      hasFailed = true;
      connection.Send("HTTP/1.1 500 Broken\r\nContent-Length: 0\r\n\r\n");
    } else {
      question = request;
      connection.Send(ChunkedReply(
          R"([{"X-TIKA:EXCEPTION:runtime":"a.EncryptedDocumentException: no"}])", 100));
    }
  });
  const TempDir dir;
  const std::string path = dir.Write("secret-name.pdf", "x");
  const RequestChoice choice;
  SCA_Event cancel(1, 0);
  Inquiry inquiry(choice, &cancel);
  EXPECT_FALSE(inquiry.Ask(AddressOf(server), path, path).has_value());
  const std::optional<Reason> reason = inquiry.Ask(AddressOf(server), path, path);
  ASSERT_TRUE(reason.has_value());
  EXPECT_EQ(reason->finding, SCA_TikaFinding::Locked);
  EXPECT_EQ(question.find("secret-name"), std::string::npos) << "a plain run sends no names";
}

}  // namespace
