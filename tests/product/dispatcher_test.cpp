// The dispatcher against scripted servers that fail in every way, and requesters that lose
// interest.

#include "product/SCA_TikaDispatcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "platform/SCA_Error.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

using Outcome = SCA_TikaOutcome;

enum class Fault {
  None,
  DieUnheard,
  DieInReply,
  Answer500,
  Answer404,
  Answer422,
  BadReply,
  Hang,
  RefuseEarly
};

std::string TextOf(const std::string& body) {
  std::string text;
  while (text.size() < 9000) text += "text of " + body.substr(0, 40) + "\n";
  return text;
}

// A Tika server that fails as it is told for each document.
class FakeTika {
 public:
  using Choice = std::function<Fault(const std::string& body)>;
  explicit FakeTika(Choice choose, unsigned short port = 0)
      : choose_(std::move(choose)), server_([this](ServerConnection& c) { Serve(c); }, 16, port) {}

  unsigned short Port() const { return server_.Port(); }
  int Connections() const { return server_.Connections(); }
  int Documents() const { return documents_.load(); }

 private:
  void Serve(ServerConnection& connection) {
    for (;;) {
      std::string request = connection.ReceiveHeader();
      if (request.empty()) return;
      const std::size_t field = request.find("Content-Length: ") + 16;
      const std::size_t wanted = request.find("\r\n\r\n") + 4 + std::stoul(request.substr(field));
      while (request.size() < wanted) {
        if (request.size() > 1 << 20) return RefuseEarly(connection);
        const std::string more = connection.Receive();
        if (more.empty()) return;
        request += more;
      }
      if (!Answer(connection, request.substr(request.find("\r\n\r\n") + 4))) return;
    }
  }
  void RefuseEarly(ServerConnection& connection) {
    documents_.fetch_add(1);
    connection.Send("HTTP/1.1 413 Too Large\r\nContent-Length: 0\r\n\r\n");
  }
  bool Answer(ServerConnection& connection, const std::string& body) {
    documents_.fetch_add(1);
    const std::string reply = ChunkedReply(TextOf(body), 1000);
    switch (choose_(body)) {
      case Fault::DieUnheard:
        connection.ResetOnClose();
        return false;
      case Fault::DieInReply:
        connection.Send(reply.substr(0, reply.size() / 2));
        return false;
      case Fault::Answer500:
        return connection.Send("HTTP/1.1 500 No\r\nContent-Length: 5\r\n\r\nstack");
      case Fault::Answer404:
        return connection.Send("HTTP/1.1 404 No\r\nContent-Length: 0\r\n\r\n");
      case Fault::Answer422:
        return connection.Send("HTTP/1.1 422 No\r\nContent-Length: 5\r\n\r\nrefus");
      case Fault::BadReply:
        return connection.Send(reply.substr(0, reply.size() - 5) + "no size\r\n");
      case Fault::Hang:
        connection.Send(reply.substr(0, reply.size() / 2));
        connection.WaitForEnd();
        return false;
      default:
        return connection.Send(reply);
    }
  }

  const Choice choose_;
  std::atomic<int> documents_{0};
  ScriptedServer server_;
};

FakeTika::Choice Always(Fault fault) {
  return [fault](const std::string&) { return fault; };
}
// Fails on documents whose content begins with an "x".
FakeTika::Choice OnMarked(Fault fault) {
  return [fault](const std::string& body) { return body[0] == 'x' ? fault : Fault::None; };
}

std::atomic<int> livingSinks{0};

class Collector : public SCA_TikaTextSink {
 public:
  Collector() { livingSinks.fetch_add(1); }
  ~Collector() override { livingSinks.fetch_sub(1); }
  int Write(const char* block, unsigned long length, unsigned long offset) override {
    isTiled = isTiled && offset == text.size();
    text.append(block, length);
    return accepts ? 1 : 0;
  }
  int Restart() override {
    text.clear();
    ++restarts;
    return 1;
  }
  void Finish(SCA_TikaExtractRequest* /*request*/) override { ++finishes; }

  std::string text;
  bool isTiled = true;
  bool accepts = true;
  int restarts = 0;
  int finishes = 0;
};

struct Request {
  Request(const std::string& path, const char* ext = "pdf", const char* pool = "Default")
      : sink(new Collector), request(new SCA_TikaExtractRequest(path.c_str(), ext, pool, sink)) {}
  SCA_TikaExtractRequest* operator->() const { return request.get(); }
  Outcome Wait() const {
    EXPECT_EQ(request->GetReady()->Wait(kDeadlineMs), 1);
    EXPECT_EQ(sink->finishes, 1);
    return request->GetOutcome();
  }

  Collector* sink;
  SCA_Owned<SCA_TikaExtractRequest> request;
};

class Dispatcher : public ::testing::Test {
 protected:
  Dispatcher() {
    settings_.SetMode(SCA_TikaModeEnabled);
    settings_.SetNetworkTimeout(kDeadlineMs);
    settings_.GetServiceList()->AddService("one", &service_);
    limits_.firstDelayMs = 5;
    limits_.lastDelayMs = 50;
    livingSinks = 0;
  }
  ~Dispatcher() override {
    dispatcher_.reset();
    EXPECT_EQ(livingSinks, 0) << "requests are left behind";
  }
  SCA_TikaDispatcher& Dispatch() {
    if (dispatcher_ == nullptr) {
      dispatcher_ = std::make_unique<SCA_TikaDispatcher>(&settings_, limits_);
    }
    return *dispatcher_;
  }
  void AddServer(unsigned short port, unsigned long serviceId = 0) {
    unsigned long error = 0;
    EXPECT_EQ(Dispatch().AddServer("127.0.0.1", port, serviceId, &error), 1) << error;
  }
  FakeTika& AddTika(FakeTika::Choice choose) {
    servers_.push_back(std::make_unique<FakeTika>(std::move(choose)));
    AddServer(servers_.back()->Port());
    return *servers_.back();
  }
  /// @return The error code, 0 for success.
  unsigned long Submit(const Request& request, int wait = 0) {
    unsigned long error = 0;
    return Dispatch().Submit(request.request.get(), wait, &error) != 0 ? 0 : error;
  }
  Outcome Extract(const Request& request) {
    EXPECT_EQ(Submit(request), 0U);
    return request.Wait();
  }

  TempDir dir_;
  ReportCapture reports_;
  SCA_TikaConfigOrv settings_;
  SCA_TikaService* service_ = nullptr;
  SCA_TikaDispatchLimits limits_;
  std::vector<std::unique_ptr<FakeTika>> servers_;
  std::unique_ptr<SCA_TikaDispatcher> dispatcher_;
  const std::string good_ = dir_.Write("good", "a good document");
  const std::string bad_ = dir_.Write("bad", "x bad document");
};

TEST_F(Dispatcher, NextFileOnTheSameClientIsExactWhateverHappenedToTheOneBefore) {
  struct Row {
    Fault fault;
    Outcome outcome;
    unsigned long code;
    std::string cause;
  };
  const Row rows[] = {
      {Fault::None, Outcome::Extracted, 0, ""},
      {Fault::DieInReply, Outcome::ConnectionBroken, ECONNRESET, "closed the connection"},
      {Fault::Answer500, Outcome::ServerFailed, SCA_ErrorTika500, "HTTP 500"},
      {Fault::Answer422, Outcome::Refused, SCA_ErrorTika422, "HTTP 422"},
      {Fault::BadReply, Outcome::ServerFailed, SCA_ErrorInvalidData, "invalid"},
      {Fault::Hang, Outcome::TimedOut, ETIMEDOUT, "timed out"},
      {Fault::RefuseEarly, Outcome::Refused, 0, "HTTP 413 before it had read the file"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.cause);
    dispatcher_.reset();
    AddTika(OnMarked(row.fault));
    const bool isEarly = row.fault == Fault::RefuseEarly;
    const std::string bad = isEarly ? dir_.Write("large", std::string(1 << 26, 'x')) : bad_;
    settings_.SetNetworkTimeout(row.fault == Fault::Hang ? 100 : kDeadlineMs);
    const Request a(bad);
    EXPECT_EQ(Extract(a), row.outcome) << a->GetCause();
    settings_.SetNetworkTimeout(kDeadlineMs);
    if (!isEarly) {
      EXPECT_EQ(a->GetStatusCode(), row.code);
    }
    EXPECT_NE(std::string(a->GetCause()).find(row.cause), std::string::npos) << a->GetCause();
    EXPECT_EQ(a->GetTries(), 1U);
    const Request b(good_);
    EXPECT_EQ(Extract(b), Outcome::Extracted) << b->GetCause();
    EXPECT_EQ(b.sink->text, TextOf("a good document"));
    EXPECT_EQ(b->GetTextLength(), b.sink->text.size());
    EXPECT_EQ(b->GetServer(), "127.0.0.1:" + std::to_string(servers_.back()->Port()));
  }
  const Request missing(dir_.File("missing"));
  EXPECT_EQ(Extract(missing), Outcome::FileFailed);
  EXPECT_STREQ(missing->GetCause(), "No such file or directory");
  const Request unwanted(good_);
  unwanted.sink->accepts = false;
  EXPECT_EQ(Extract(unwanted), Outcome::SinkFailed);
  EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
}

TEST_F(Dispatcher, TextOfABrokenConnectionIsTakenBackAndComesFromAnotherServer) {
  FakeTika& dying = AddTika(Always(Fault::DieInReply));
  const Request alone(good_);
  // The reply breaks only once a part of the text has been delivered.
  ASSERT_EQ(Submit(alone), 0U);
  EXPECT_EQ(alone.Wait(), Outcome::ConnectionBroken);
  AddTika(Always(Fault::None));
  int retried = 0;
  while (retried == 0) {
    const Request request(good_);
    EXPECT_EQ(Extract(request), Outcome::Extracted) << request->GetCause();
    EXPECT_EQ(request.sink->text, TextOf("a good document"));
    EXPECT_TRUE(request.sink->isTiled);
    EXPECT_EQ(request->GetTries(), request.sink->restarts > 0 ? 2U : request->GetTries());
    EXPECT_NE(request->GetServer(), "127.0.0.1:" + std::to_string(dying.Port()));
    retried += request->GetTries() == 2 ? 1 : 0;
  }
}

TEST_F(Dispatcher, FileThatKillsTwoServersIsNotTriedAThirdTime) {
  for (int i = 0; i < 3; ++i) AddTika(OnMarked(Fault::DieInReply));
  for (int round = 0; round < 5; ++round) {
    int before = 0;
    for (const auto& server : servers_) before += server->Documents();
    const Request request(bad_);
    EXPECT_EQ(Extract(request), Outcome::ServersDied);
    EXPECT_EQ(request->GetStatusCode(), SCA_ErrorServersDied);
    int after = 0;
    for (const auto& server : servers_) after += server->Documents();
    EXPECT_EQ(after - before, 2);
    EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
  }
}

TEST_F(Dispatcher, RefusalsTimeOutsAndAnswersOfFailureAreFinal) {
  settings_.SetNetworkTimeout(200);
  for (const Fault fault : {Fault::Answer422, Fault::Answer500, Fault::Hang, Fault::BadReply}) {
    dispatcher_.reset();
    servers_.clear();
    for (int i = 0; i < 2; ++i) AddTika(Always(fault));
    const Request request(good_);
    EXPECT_NE(Extract(request), Outcome::Extracted);
    EXPECT_EQ(servers_[0]->Documents() + servers_[1]->Documents(), 1);
  }
}

TEST_F(Dispatcher, ServerThatIsComingUpIsAskedOnceMore) {
  std::atomic<int> documents{0};
  FakeTika& tika = AddTika([&documents](const std::string&) {
    return ++documents == 1 ? Fault::Answer404 : Fault::None;
  });
  EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
  EXPECT_EQ(tika.Documents(), 2);
  dispatcher_.reset();
  FakeTika& stranger = AddTika(Always(Fault::Answer404));
  const Request request(good_);
  EXPECT_EQ(Extract(request), Outcome::ServerFailed);
  EXPECT_EQ(request->GetStatusCode(), 404U);
  EXPECT_EQ(stranger.Documents(), 2);
}

// A server may close a connection that it has kept: that is no fault of the file that comes next.
TEST_F(Dispatcher, KeptConnectionThatTheServerClosedIsTriedOnceMore) {
  std::atomic<int> documents{0};
  FakeTika& tika = AddTika([&documents](const std::string&) {
    return ++documents % 3 == 2 ? Fault::DieUnheard : Fault::None;
  });
  for (int i = 0; i < 4; ++i) {
    const Request request(good_);
    EXPECT_EQ(Extract(request), Outcome::Extracted) << request->GetCause();
    EXPECT_EQ(request.sink->text, TextOf("a good document"));
  }
  EXPECT_EQ(tika.Documents(), 6);
  dispatcher_.reset();
  FakeTika& dead = AddTika(Always(Fault::DieUnheard));
  EXPECT_EQ(Extract(Request(good_)), Outcome::ConnectionBroken);
  EXPECT_EQ(dead.Documents(), 1) << "a fresh connection is given no second chance";
}

TEST_F(Dispatcher, IdleConnectionsAreRenewedBeforeUse) {
  limits_.idleMs = 0;
  FakeTika& tika = AddTika(Always(Fault::None));
  for (int i = 1; i <= 3; ++i) {
    EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
    EXPECT_GE(tika.Connections(), i);
  }
}

TEST_F(Dispatcher, ServerThatComesBackIsFoundAndOneThatDoesNotIsGivenUp) {
  auto gone = std::make_unique<FakeTika>(Always(Fault::None));
  const unsigned short port = gone->Port();
  gone.reset();
  AddServer(port);
  const Request waiting(good_);
  ASSERT_EQ(Submit(waiting), 0U);
  // It refuses connections for a while; the request waits.
  EXPECT_EQ(waiting->GetReady()->Wait(60), 0);
  {
    const FakeTika back(Always(Fault::None), port);
    EXPECT_EQ(waiting.Wait(), Outcome::Extracted) << waiting->GetCause();
  }
  dispatcher_.reset();
  limits_.noServerMs = 30;
  AddServer(port);
  const Request lost(good_);
  EXPECT_EQ(Extract(lost), Outcome::NoServer);
  EXPECT_EQ(lost->GetStatusCode(), SCA_ErrorNoServer);
  EXPECT_EQ(lost->GetCause(), "no Tika server could be reached; 127.0.0.1:" + std::to_string(port) +
                                  ": Connection refused");
}

TEST_F(Dispatcher, ServersThatAreDownLeaveTheWorkToTheOthers) {
  auto gone = std::make_unique<FakeTika>(Always(Fault::None));
  AddServer(gone->Port());
  // The worker is connected, and waits, when its server goes.
  ASSERT_TRUE(Eventually([&gone] { return gone->Connections() == 1; }));
  FakeTika& left = AddTika(Always(Fault::None));
  gone.reset();
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
  EXPECT_EQ(left.Documents(), 20);
}

TEST_F(Dispatcher, FullQueueRefusesOrWaitsAsTheCallerChose) {
  settings_.SetMaxPendingRequests(2);
  AddTika(OnMarked(Fault::Hang));
  const Request hanging(bad_);
  EXPECT_EQ(Submit(hanging), 0U);
  ASSERT_TRUE(Eventually([this] { return Dispatch().GetPendingRequests() == 0; }));
  const Request first(good_);
  const Request second(good_);
  const Request third(good_);
  EXPECT_EQ(Submit(first), 0U);
  EXPECT_EQ(Submit(second), 0U);
  EXPECT_EQ(Submit(third), SCA_ErrorQueueFull);
  EXPECT_EQ(Dispatch().GetPendingRequests(), 2U);
  std::thread patient([&] { EXPECT_EQ(Submit(third, 1), 0U); });
  Dispatch().Cancel(second.request.get());
  EXPECT_EQ(second.Wait(), Outcome::Cancelled) << "at once, though no worker is free";
  patient.join();
  Dispatch().Cancel(hanging.request.get());
  EXPECT_EQ(hanging.Wait(), Outcome::Cancelled);
  EXPECT_EQ(first.Wait(), Outcome::Extracted);
  EXPECT_EQ(third.Wait(), Outcome::Extracted);
  settings_.SetMaxPendingRequests(0);
  EXPECT_EQ(Submit(Request(good_), 1), SCA_ErrorQueueFull);
}

// The queue deletes what is marked as it documents; the dispatcher must not know it any longer.
TEST_F(Dispatcher, RequestThatIsMarkedAsAbandonedInTheQueueIsForgotten) {
  AddTika(OnMarked(Fault::Hang));
  const Request hanging(bad_);
  EXPECT_EQ(Submit(hanging), 0U);
  ASSERT_TRUE(Eventually([this] { return Dispatch().GetPendingRequests() == 0; }));
  Request marked(good_);
  EXPECT_EQ(Submit(marked), 0U);
  marked.request.release()->SetProcessStatus(SCA_RequestAbandoned);
  Dispatch().Cancel(hanging.request.get());
  EXPECT_EQ(hanging.Wait(), Outcome::Cancelled);
  EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
  EXPECT_EQ(livingSinks, 1) << "that of the hanging request alone";
  EXPECT_EQ(Dispatch().GetPendingRequests(), 0U);
}

TEST_F(Dispatcher, FileThatTakesTooLongEndsAtItsLimit) {
  limits_.fileMs = 100;
  AddTika(OnMarked(Fault::Hang));
  const Request slow(bad_);
  EXPECT_EQ(Extract(slow), Outcome::TimeLimit);
  EXPECT_EQ(slow->GetStatusCode(), SCA_ErrorTimeLimit);
  EXPECT_GE(slow->GetDuration(), 100U);
  EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
}

TEST_F(Dispatcher, ServicesAreChosenByPoolExtensionAndState) {
  SCA_TikaService* custom = nullptr;
  SCA_TikaService* pool = nullptr;
  SCA_TikaService* disabled = nullptr;
  settings_.GetServiceList()->AddService("two", &custom);
  custom->SetProcessCustomExtensions(1);
  custom->SetFileExtensions("odt pdf");
  settings_.GetServiceList()->AddService("three", &pool);
  pool->SetPoolName("Other");
  settings_.GetServiceList()->AddService("four", &disabled);
  disabled->SetEnabled(0);
  struct Row {
    const char* ext;
    const char* pool;
    unsigned long error;
    std::string services;
  };
  const Row rows[] = {{"PDF", "Default", 0, "0 1 "},
                      {"xls", "Default", 0, "0 "},
                      {"odt", "Default", 0, "1 "},
                      {"xls", "Other", 0, "2 "},
                      {"odt", "Other", SCA_ErrorNoService, ""},
                      {"pdf", "default", SCA_ErrorNoService, ""},
                      {"txt", "Default", SCA_ErrorNoService, ""},
                      {".pdf", "Default", SCA_ErrorNoService, ""}};
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.ext) + " " + row.pool);
    const Request request(good_, row.ext, row.pool);
    EXPECT_EQ(Submit(request), row.error);
    std::string services;
    for (const auto* node = request->GetServiceList()->GetHead(); node != nullptr;
         node = node->GetNext()) {
      services += std::to_string(node->GetItem()) + " ";
    }
    EXPECT_EQ(services, row.services);
    if (row.error != 0) continue;
    EXPECT_EQ(Submit(request), SCA_ErrorAlreadyActive);
    Dispatch().CancelAll();
    EXPECT_EQ(request.Wait(), Outcome::Cancelled);
  }
  settings_.SetMode(SCA_TikaModeDisabled);
  EXPECT_EQ(Submit(Request(good_)), SCA_ErrorExtractionOff);
}

TEST_F(Dispatcher, StopEndsEveryRequestAndLetsNobodyWait) {
  settings_.SetMaxPendingRequests(3);
  AddTika(Always(Fault::Hang));
  std::vector<std::unique_ptr<Request>> requests;
  for (int i = 0; i < 4; ++i) {
    requests.push_back(std::make_unique<Request>(good_));
    EXPECT_EQ(Submit(*requests.back(), 1), 0U);
  }
  const Request late(good_);
  std::thread submitter([&] { EXPECT_EQ(Submit(late, 1), SCA_ErrorStopping); });
  Dispatch().Stop();
  submitter.join();
  for (const auto& request : requests) EXPECT_EQ(request->Wait(), Outcome::Cancelled);
  EXPECT_EQ(Submit(late), SCA_ErrorStopping);
  SCA_ConfigObj status("status", nullptr);
  EXPECT_EQ(Dispatch().GetStatus(&status), 1);
  EXPECT_EQ(status.GetConfigObj("Requests")->GetFieldCount(), 0U);
}

TEST_F(Dispatcher, ThousandFilesOverFaultyServersEndOnceEach) {
  constexpr int kFiles = 1000;
  settings_.SetNetworkTimeout(300);
  std::mt19937 random(7);
  std::mutex mutex;
  for (int i = 0; i < 3; ++i) {
    AddTika([&](const std::string&) {
      const std::lock_guard<std::mutex> guard(mutex);
      const auto draw = random() % 100;
      // One hang in three hundred: each costs the network time-out.
      if (draw == 99) return random() % 3 == 0 ? Fault::Hang : Fault::None;
      const Fault faults[] = {Fault::DieUnheard, Fault::DieInReply, Fault::Answer500,
                              Fault::Answer422, Fault::BadReply};
      return draw < 20 ? faults[draw % 5] : Fault::None;
    });
  }
  std::vector<std::unique_ptr<Request>> requests;
  std::vector<std::string> bodies;
  for (int i = 0; i < kFiles; ++i) {
    bodies.push_back("document " + std::to_string(i));
    requests.push_back(
        std::make_unique<Request>(dir_.Write("f" + std::to_string(i), bodies.back())));
    ASSERT_EQ(Submit(*requests.back(), 1), 0U);
  }
  std::map<Outcome, int> outcomes;
  for (int i = 0; i < kFiles; ++i) {
    const Request& request = *requests[static_cast<std::size_t>(i)];
    const Outcome outcome = request.Wait();
    ++outcomes[outcome];
    EXPECT_EQ(std::string(request->GetCause()).empty(), outcome == Outcome::Extracted);
    if (outcome != Outcome::Extracted) continue;
    EXPECT_EQ(request.sink->text, TextOf(bodies[static_cast<std::size_t>(i)]));
    EXPECT_TRUE(request.sink->isTiled);
  }
  EXPECT_GT(outcomes[Outcome::Extracted], kFiles / 2);
  EXPECT_GT(outcomes[Outcome::Refused], 0);
  EXPECT_EQ(outcomes[Outcome::Cancelled] + outcomes[Outcome::None] + outcomes[Outcome::NoServer],
            0);
}

// Requesters cancel and abandon while requests wait, are served, move to another server and end.
TEST_F(Dispatcher, CancellingAndAbandoningAtAnyMomentLeavesNothing) {
  std::atomic<unsigned> draws{0};
  for (int i = 0; i < 2; ++i) {
    AddTika([&draws](const std::string&) {
      const unsigned draw = draws.fetch_add(1) % 7;
      return draw == 3 ? Fault::DieInReply : draw == 5 ? Fault::DieUnheard : Fault::None;
    });
  }
  std::vector<std::thread> requesters;
  for (unsigned t = 0; t < 4; ++t) {
    requesters.emplace_back([this, t] {
      std::mt19937 random(t);
      for (int i = 0; i < 150; ++i) {
        Request request(good_);
        ASSERT_EQ(Submit(request, 1), 0U);
        // The moment is what is varied here: no event could stand for it.
        for (auto spin = random() % 2000; spin > 0; --spin) std::this_thread::yield();
        switch (random() % 4) {
          case 0:
            Dispatch().Abandon(request.request.release());
            break;
          case 1:
            Dispatch().Cancel(request.request.get());
            request.Wait();
            break;
          case 2:  // given up after it has ended
            request->GetCancel()->Set();
            request.Wait();
            Dispatch().Abandon(request.request.release());
            break;
          default:
            request.Wait();
        }
      }
    });
  }
  for (std::thread& requester : requesters) requester.join();
  EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
}

}  // namespace
