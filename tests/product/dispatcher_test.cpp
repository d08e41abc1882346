// The dispatcher against scripted servers that fail in every way, and requesters that lose
// interest.

#include "product/SCA_TikaDispatcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "faultlab/FaultServer.h"
#include "platform/SCA_Error.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

using Outcome = SCA_TikaOutcome;

FaultSpec ToFault(const std::string& words) {
  FaultSpec fault;
  EXPECT_EQ(ParseFault(words, &fault), "");
  return fault;
}
// The text of a document whose content may hold a marker.
std::string TextOf(const std::string& content) {
  DocumentText text = TextOf(content, FaultPlan({}, 0, 0).Choose({content.size(), content}));
  return text.Next(static_cast<std::size_t>(text.Length()));
}

// What the servers of a test share.
struct Lab {
  std::shared_ptr<LabMemory> memory = std::make_shared<LabMemory>();
  FaultPlan plan{{}, 0, 0};
};

// A server of the fault lab on a port of its own, which comes back there when it has died.
class Tika {
 public:
  /// @param choose  The fault of documents; unset, their markers tell.
  explicit Tika(Lab* lab, std::function<FaultSpec(const DocumentHead&)> choose = nullptr,
                unsigned short port = 0, unsigned long long muteAfter = ~0ULL)
      : memory_(lab->memory), port_("127.0.0.1", port, -1) {
    options_.port = port_.Port();
    options_.muteAfter = muteAfter;
    options_.choose = choose ? std::move(choose)
                             : [lab](const DocumentHead& head) { return lab->plan.Choose(head); };
    options_.note = [this](const FaultSpec&, unsigned long long) { documents_.fetch_add(1); };
    options_.die = [this] {
      deaths_.fetch_add(1);
      died_.Set();
    };
    server_ = std::make_unique<FaultServer>(options_, memory_);
    reviver_ = std::thread([this] { Revive(); });
  }
  ~Tika() {
    isOver_ = true;
    died_.Set();
    reviver_.join();
  }

  unsigned short Port() const { return options_.port; }
  int Documents() const { return documents_.load(); }
  int Deaths() const { return deaths_.load(); }
  /// Since it came back last; not while a document may kill it.
  int Connections() const { return server_->Connections(); }
  /// Dies and comes back; not while a test or a document does the same.
  void Restart() {
    server_.reset();
    server_ = std::make_unique<FaultServer>(options_, memory_);
  }

 private:
  void Revive() {
    while (died_.Wait(SCA_Infinite) != 0 && !isOver_) Restart();
  }

  const std::shared_ptr<LabMemory> memory_;
  const Listener port_;
  FaultServerOptions options_;
  std::atomic<int> documents_{0};
  std::atomic<int> deaths_{0};
  SCA_Event died_{0, 0};
  std::atomic<bool> isOver_{false};
  std::unique_ptr<FaultServer> server_;
  std::thread reviver_;
};

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

  std::string content;
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
    requests_.clear();
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
  /// @return The error code, 0 for success.
  unsigned long RemoveServer(unsigned short port, unsigned long serviceId = 0) {
    unsigned long error = 0;
    return Dispatch().RemoveServer("127.0.0.1", port, serviceId, &error) != 0 ? 0 : error;
  }
  Tika& AddTika(std::function<FaultSpec(const DocumentHead&)> choose = nullptr) {
    servers_.push_back(std::make_unique<Tika>(&lab_, std::move(choose)));
    AddServer(servers_.back()->Port());
    return *servers_.back();
  }
  Tika& AddTika(const std::string& words) {
    return AddTika([fault = ToFault(words)](const DocumentHead&) { return fault; });
  }
  /// @return The error code, 0 for success.
  unsigned long Submit(const Request& request, int wait = 0) {
    unsigned long error = 0;
    return Dispatch().Submit(request.request.get(), wait, &error) != 0 ? 0 : error;
  }
  /// Submits one more of those that the test keeps.
  void SubmitAlso(const std::string& path) {
    requests_.push_back(std::make_unique<Request>(path));
    ASSERT_EQ(Submit(*requests_.back(), 1), 0U);
  }
  void SubmitDocument(const std::string& content) {
    SubmitAlso(dir_.Write("f" + std::to_string(requests_.size()), content));
    requests_.back()->content = content;
  }
  Outcome Extract(const Request& request) {
    EXPECT_EQ(Submit(request), 0U);
    return request.Wait();
  }

  /// Whether a worker is connected and waits for work.
  bool IsResting() {
    SCA_ConfigObj status("status", nullptr);
    return Dispatch().GetStatus(&status) != 0 &&
           status.GetConfigObj("Clients")->GetFieldCount() == 1;
  }
  /// Writes a document whose content is a marker.
  std::string Marked(const std::string& words) {
    return dir_.Write("marked", "a document with tikafault:" + words);
  }

  TempDir dir_;
  ReportCapture reports_;
  SCA_TikaConfigOrv settings_;
  SCA_TikaService* service_ = nullptr;
  SCA_TikaDispatchLimits limits_;
  Lab lab_;
  std::vector<std::unique_ptr<Tika>> servers_;
  std::unique_ptr<SCA_TikaDispatcher> dispatcher_;
  std::vector<std::unique_ptr<Request>> requests_;
  const std::string good_ = dir_.Write("good", "a good document");
  const std::string hanging_ = dir_.Write("hanging", "a document with tikafault:hang");
};

TEST_F(Dispatcher, NextFileOnTheSameClientIsExactWhateverHappenedToTheOneBefore) {
  struct Row {
    const char* fault;
    Outcome outcome;
    unsigned long code;
    std::string cause;
    unsigned long tries = 1;
  };
  const Row rows[] = {
      {"slow=0", Outcome::Extracted, 0, ""},
      {"close=9", Outcome::ServersDied, SCA_ErrorServersDied, "broke twice", 3},
      {"status=500", Outcome::ServerFailed, SCA_ErrorTika500, "HTTP 500"},
      {"status=422", Outcome::Refused, SCA_ErrorTika422, "HTTP 422"},
      {"size-word", Outcome::ServerFailed, SCA_ErrorInvalidData, "invalid"},
      {"hang=9", Outcome::TimedOut, ETIMEDOUT, "timed out"},
      {"refuse=413", Outcome::Refused, 0, "HTTP 413 before it had read the file"},
      {"refuse=500", Outcome::ServerFailed, 0, "HTTP 500 before it had read the file"},
      {"refuse=503", Outcome::ServerFailed, 0, "HTTP 503 before it had read the file", 0},
  };
  limits_.notReadyMs = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.fault);
    dispatcher_.reset();
    AddTika();
    const bool isEarly = row.code == 0 && row.outcome != Outcome::Extracted;
    std::string content = std::string("tikafault:") + row.fault + " ";
    if (isEarly) content.resize(1 << 26, 'x');
    settings_.SetNetworkTimeout(row.outcome == Outcome::TimedOut ? 100 : kDeadlineMs);
    const Request a(dir_.Write("bad", content));
    EXPECT_EQ(Extract(a), row.outcome) << a->GetCause();
    settings_.SetNetworkTimeout(kDeadlineMs);
    if (!isEarly) {
      EXPECT_EQ(a->GetStatusCode(), row.code);
    }
    EXPECT_NE(std::string(a->GetCause()).find(row.cause), std::string::npos) << a->GetCause();
    EXPECT_EQ(a->GetTries(), row.tries);
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
  const std::string words = "close=2500000,text=3000000,tries=1";
  AddTika();
  AddTika();
  const Request request(Marked(words));
  EXPECT_EQ(Extract(request), Outcome::Extracted) << request->GetCause();
  EXPECT_EQ(request.sink->text, TextOf("a document with tikafault:" + words));
  EXPECT_TRUE(request.sink->isTiled);
  EXPECT_EQ(request.sink->restarts, 1);
  EXPECT_EQ(request->GetTries(), 2U);
  EXPECT_EQ(servers_[0]->Documents(), 1);
  EXPECT_EQ(servers_[1]->Documents(), 1);
}

// The neighbours of a file that kills its servers lose their connections with it, and must not be
// taken for its accomplices.
TEST_F(Dispatcher, KillerAmongManyFilesEndsAloneAndItsNeighboursAreExtracted) {
  constexpr int kFiles = 40;
  struct Row {
    int clients;
    int servers;
    int killers;
  };
  for (const Row row : {Row{1, 1, 1}, {4, 1, 1}, {8, 2, 1}, {6, 3, 3}}) {
    SCOPED_TRACE(row.clients);
    dispatcher_.reset();
    servers_.clear();
    requests_.clear();
    for (int i = 0; i < row.clients; ++i) {
      if (i < row.servers) {
        AddTika();
      } else {
        AddServer(servers_[static_cast<std::size_t>(i % row.servers)]->Port());
      }
    }
    const std::string killer = "tikafault:die";
    for (int i = 0; i < kFiles; ++i) {
      const bool isKiller = i % 11 == 5 && i / 11 < row.killers;
      // So that many are under way when the killer is.
      SubmitDocument(isKiller ? killer : "tikafault:slow=5 " + std::to_string(i));
    }
    for (const auto& request : requests_) {
      const bool isKiller = request->content == killer;
      EXPECT_EQ(request->Wait(), isKiller ? Outcome::ServersDied : Outcome::Extracted)
          << request->content << ' ' << (*request)->GetCause();
      EXPECT_EQ(request->sink->text, isKiller ? "" : TextOf(request->content));
    }
    int deaths = 0;
    for (const auto& server : servers_) deaths += server->Deaths();
    EXPECT_EQ(deaths, 3 * row.killers) << "each is tried in company, and twice alone";
  }
}

// Or a neighbour of long standing would go down with the next try, too.
TEST_F(Dispatcher, SuspectWaitsUntilItsServerHasNoOtherFile) {
  SCA_Event hasBegun(1, 0);
  std::atomic<int> tries{0};
  std::atomic<unsigned long long> answers{0};
  Tika& tika = AddTika([&](const DocumentHead& head) {
    if (head.bytes != "suspect") {
      hasBegun.Set();
      return ToFault("slow=300");
    }
    if (++tries == 1) return ToFault("reset");
    answers = lab_.memory->Answers();
    return ToFault("slow=0");
  });
  AddServer(tika.Port());
  SubmitDocument("neighbour");
  ASSERT_EQ(hasBegun.Wait(kDeadlineMs), 1);
  SubmitDocument("suspect");
  for (const auto& request : requests_) EXPECT_EQ(request->Wait(), Outcome::Extracted);
  EXPECT_EQ(tries.load(), 2);
  EXPECT_EQ(answers.load(), 1U) << "the neighbour's comes first";
}

TEST_F(Dispatcher, RefusalsTimeOutsAndAnswersOfFailureAreFinal) {
  settings_.SetNetworkTimeout(200);
  for (const char* const fault : {"status=422", "status=500", "hang", "size-word"}) {
    dispatcher_.reset();
    servers_.clear();
    for (int i = 0; i < 2; ++i) AddTika(fault);
    const Request request(good_);
    EXPECT_NE(Extract(request), Outcome::Extracted);
    EXPECT_EQ(servers_[0]->Documents() + servers_[1]->Documents(), 1);
  }
}

TEST_F(Dispatcher, ServerThatIsComingUpCostsNoFileAndAStrangerIsGivenUp) {
  std::atomic<int> documents{0};
  const auto comesUp = [&documents](const DocumentHead&) {
    return ToFault(++documents <= 12 ? "status=404" : documents <= 24 ? "status=503" : "slow=0");
  };
  Tika& tika = AddTika(comesUp);
  AddServer(tika.Port());
  for (int i = 0; i < 4; ++i) SubmitAlso(good_);
  for (const auto& request : requests_) {
    EXPECT_EQ(request->Wait(), Outcome::Extracted) << (*request)->GetCause();
    EXPECT_EQ((*request)->GetTries(), 1U);
  }
  // One that breaks in between comes up once more.
  dispatcher_.reset();
  limits_.notReadyMs = 50;
  limits_.firstDelayMs = 100;
  std::atomic<int> tries{0};
  AddTika([&tries](const DocumentHead&) {
    constexpr const char* kFaults[] = {"status=404", "reset", "status=404", "slow=0"};
    return ToFault(kFaults[std::min(tries++, 3)]);
  });
  const Request patient(good_);
  EXPECT_EQ(Extract(patient), Outcome::Extracted) << patient->GetCause();
  EXPECT_EQ(patient->GetTries(), 2U);
  // One that is never ready for a file, though for others, is given up.
  dispatcher_.reset();
  limits_.firstDelayMs = 10;
  for (int i = 0; i < 2; ++i) AddTika();
  const Request unwanted(Marked("status=404"));
  ASSERT_EQ(Submit(unwanted), 0U);
  ASSERT_TRUE(Eventually([this, &unwanted] {
    EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
    return unwanted->GetReady()->Wait(0) != 0;
  }));
  EXPECT_EQ(unwanted->GetOutcome(), Outcome::ServerFailed);
  dispatcher_.reset();
  Tika& stranger = AddTika("status=404");
  const Request request(good_);
  EXPECT_EQ(Extract(request), Outcome::ServerFailed);
  EXPECT_EQ(request->GetStatusCode(), 404U);
  EXPECT_GE(stranger.Documents(), 2);
  AddTika();
  for (int i = 0; i < 10; ++i) EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
}

// A connection that its server has closed meanwhile is no fault of the file that comes next.
TEST_F(Dispatcher, ConnectionThatTheServerClosedCostsNoFile) {
  Tika& tika = AddTika();
  for (int i = 0; i < 3; ++i) {
    // Before the first file, and each time after one that failed.
    ASSERT_TRUE(Eventually([this] { return IsResting(); }));
    tika.Restart();
    const Request request(good_);
    EXPECT_EQ(Extract(request), Outcome::Extracted) << request->GetCause();
    EXPECT_EQ(request->GetTries(), 1U) << "seen before anything was sent";
    tika.Restart();
    EXPECT_EQ(Extract(Request(Marked("status=500"))), Outcome::ServerFailed);
  }
  // It may also be closed while the file is on its way.
  dispatcher_.reset();
  AddTika("hang-up=0");
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
}

TEST_F(Dispatcher, IdleConnectionsAreRenewedBeforeUse) {
  limits_.idleMs = 0;
  Tika& tika = AddTika();
  for (int i = 1; i <= 3; ++i) {
    EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
    EXPECT_GE(tika.Connections(), i);
  }
}

TEST_F(Dispatcher, ServerThatComesBackIsFoundAndOneThatDoesNotIsGivenUp) {
  auto gone = std::make_unique<Tika>(&lab_);
  const unsigned short port = gone->Port();
  gone.reset();
  AddServer(port);
  const Request waiting(good_);
  ASSERT_EQ(Submit(waiting), 0U);
  // It refuses connections for a while; the request waits.
  EXPECT_EQ(waiting->GetReady()->Wait(60), 0);
  {
    const Tika back(&lab_, nullptr, port);
    EXPECT_EQ(waiting.Wait(), Outcome::Extracted) << waiting->GetCause();
  }
  // However short the delays, it is not asked without pause.
  dispatcher_.reset();
  limits_.noServerMs = 100;
  limits_.firstDelayMs = limits_.lastDelayMs = 0;
  std::atomic<int> tries{0};
  Dispatch().SetPrepareServer(
      [](SCA_TikaClient*, SCA_Event*, void* context, unsigned long*) {
        static_cast<std::atomic<int>*>(context)->fetch_add(1);
        return 1;
      },
      &tries);
  AddServer(port);
  const Request lost(good_);
  EXPECT_EQ(Extract(lost), Outcome::NoServer);
  EXPECT_EQ(lost->GetStatusCode(), SCA_ErrorNoServer);
  EXPECT_EQ(lost->GetCause(), "no Tika server could be reached; 127.0.0.1:" + std::to_string(port) +
                                  ": Connection refused");
  EXPECT_LT(tries, static_cast<int>(lost->GetDuration()) + 1000);
  // One that breaks a file, and then takes connections without a word, is down for all its workers.
  dispatcher_.reset();
  settings_.SetNetworkTimeout(50);
  const auto reset = [](const DocumentHead&) { return ToFault("reset"); };
  const Tika silent(&lab_, reset, 0, 1);
  for (int i = 0; i < 2; ++i) AddServer(silent.Port());
  EXPECT_EQ(Extract(Request(good_)), Outcome::ConnectionBroken);
  // So is one whose answer, when it is asked after that, has no end.
  dispatcher_.reset();
  settings_.SetNetworkTimeout(300);
  const ScriptedServer endless([](ServerConnection& connection) {
    if (connection.ReceiveHeader().rfind("GET", 0) != 0) return;
    while (connection.Send("X") && connection.WaitForEnd(10)) {
    }
  });
  AddServer(endless.Port());
  EXPECT_EQ(Extract(Request(good_)), Outcome::ConnectionBroken);
}

TEST_F(Dispatcher, ServersThatAreDownLeaveTheWorkToTheOthers) {
  auto gone = std::make_unique<Tika>(&lab_);
  AddServer(gone->Port());
  // The worker is connected, and waits, when its server goes.
  ASSERT_TRUE(Eventually([&gone] { return gone->Connections() == 1; }));
  Tika& left = AddTika();
  gone.reset();
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
  EXPECT_EQ(left.Documents(), 20);
  // What the one that is left has broken can go nowhere else.
  const Stopwatch watch;
  const Request broken(Marked("die,tries=1"));
  EXPECT_EQ(Extract(broken), Outcome::Extracted) << broken->GetCause();
  EXPECT_LT(watch.Ms(), static_cast<long long>(limits_.noServerMs));
}

TEST_F(Dispatcher, FullQueueRefusesOrWaitsAsTheCallerChose) {
  settings_.SetMaxPendingRequests(2);
  AddTika();
  const Request hanging(hanging_);
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
  const Request unwanted(good_);
  std::thread impatient([&] { EXPECT_EQ(Submit(unwanted, 1), SCA_ErrorCancelled); });
  Dispatch().Cancel(unwanted.request.get());
  impatient.join();
  Dispatch().Cancel(hanging.request.get());
  EXPECT_EQ(hanging.Wait(), Outcome::Cancelled);
  EXPECT_EQ(first.Wait(), Outcome::Extracted);
  EXPECT_EQ(third.Wait(), Outcome::Extracted);
  // Room is told of: a submit that looks for it by itself does so once a second.
  settings_.SetMaxPendingRequests(1);
  const Stopwatch watch;
  const std::string slow = Marked("slow=3");
  for (int i = 0; i < 30; ++i) SubmitAlso(slow);
  for (const auto& request : requests_) EXPECT_EQ(request->Wait(), Outcome::Extracted);
  EXPECT_LT(watch.Ms(), 20000);
  settings_.SetMaxPendingRequests(0);
  EXPECT_EQ(Submit(Request(good_), 1), SCA_ErrorQueueFull);
}

// A worker that looks for work and finds none must not overlook what comes before it waits.
TEST_F(Dispatcher, RequestThatComesWhileTheWorkerGoesToRestIsServed) {
  AddTika();
  std::mt19937 random(5);
  for (int i = 0; i < 3000; ++i) {
    const Request request(dir_.File("missing"));
    ASSERT_EQ(Submit(request), 0U);
    // Sooner than an event could tell.
    const Stopwatch watch;
    while (request->GetProcessStatus() != SCA_RequestFinished && watch.Ms() < kDeadlineMs) {
    }
    for (auto spin = random() % 300; spin > 0; --spin)
      std::atomic_signal_fence(std::memory_order_seq_cst);
    ASSERT_EQ(request.Wait(), Outcome::FileFailed);
  }
}

// The queue deletes what is marked as it documents; the dispatcher must not know it any longer.
TEST_F(Dispatcher, RequestThatIsMarkedAsAbandonedInTheQueueIsForgotten) {
  AddTika();
  const Request hanging(hanging_);
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

TEST_F(Dispatcher, ReplyWithoutEndEndsAtALimit) {
  const struct {
    const char* fault;
    unsigned long fileMs;
    unsigned long long textBytes;
    std::size_t fileSize;
    Outcome outcome;
    unsigned long code;
    unsigned long long leastMs;
  } rows[] = {
      {"hang", 100, 0, 1, Outcome::TimeLimit, SCA_ErrorTimeLimit, 110},
      {"hang", 10, 0, 5 << 20, Outcome::TimeLimit, SCA_ErrorTimeLimit, 70},
      {"endless=0", 100, 0, 1, Outcome::TimeLimit, SCA_ErrorTimeLimit, 110},
      {"endless=0", 0, 5 << 20, 1, Outcome::ServerFailed, SCA_ErrorTextTooLong, 0},
      {"slow=0,text=9000", 0, 8999, 1, Outcome::ServerFailed, SCA_ErrorTextTooLong, 0},
      {"slow=0,text=9000", kDeadlineMs, 9000, 1, Outcome::Extracted, 0, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    dispatcher_.reset();
    limits_.fileMs = row.fileMs;
    limits_.fileMsPerMiB = 10;
    limits_.textBytes = row.textBytes;
    AddTika(row.fault);
    const Request request(dir_.Write("f", std::string(row.fileSize, 'x')));
    EXPECT_EQ(Extract(request), row.outcome) << request->GetCause();
    EXPECT_EQ(request->GetStatusCode(), row.code);
    EXPECT_GE(request->GetDuration(), row.leastMs);
    EXPECT_TRUE(row.textBytes == 0 || request.sink->text.size() <= row.textBytes);
  }
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
  AddTika("hang");
  for (int i = 0; i < 4; ++i) SubmitAlso(good_);
  const Request late(good_);
  std::thread submitter([&] { EXPECT_EQ(Submit(late, 1), SCA_ErrorStopping); });
  Dispatch().Stop();
  submitter.join();
  for (const auto& request : requests_) EXPECT_EQ(request->Wait(), Outcome::Cancelled);
  EXPECT_EQ(Submit(late), SCA_ErrorStopping);
  SCA_ConfigObj status("status", nullptr);
  EXPECT_EQ(Dispatch().GetStatus(&status), 1);
  EXPECT_EQ(status.GetConfigObj("Requests")->GetFieldCount(), 0U);
}

// A request may have more services than a word of memory holds.
TEST_F(Dispatcher, WorkerOfAnyServiceOfARequestIsWoken) {
  AddTika();
  ASSERT_TRUE(Eventually([&] { return servers_[0]->Connections() == 1; }));
  servers_.push_back(std::make_unique<Tika>(&lab_));
  AddServer(servers_[1]->Port(), 100);
  for (int services = 15; services < 20; ++services) {
    const Request request(good_);
    for (int i = 1; i < services; ++i) {
      request->GetServiceList()->AddItemToTail(static_cast<unsigned long>(i));
    }
    request->GetServiceList()->AddItemToTail(100UL);
    EXPECT_EQ(Extract(request), Outcome::Extracted);
  }
}

TEST_F(Dispatcher, RemovedServerEndsItsFileTakesNoOtherAndMayBeAddedAgain) {
  limits_.noServerMs = 100;
  SCA_Event hasBegun(1, 0);
  SCA_Event mayEnd(1, 0);
  Tika& tika = AddTika([&](const DocumentHead&) {
    hasBegun.Set();
    mayEnd.Wait(kDeadlineMs);
    return ToFault("slow=0");
  });
  SCA_Event hasClosed(0, 0);
  const ScriptedServer idle([&](ServerConnection& connection) {
    connection.WaitForEnd(kDeadlineMs);
    hasClosed.Set();
  });
  AddServer(idle.Port());
  ASSERT_TRUE(Eventually([&] { return idle.Connections() == 1; }));
  EXPECT_EQ(RemoveServer(idle.Port(), 7), static_cast<unsigned long>(ENXIO)) << "another service";
  EXPECT_EQ(RemoveServer(idle.Port()), 0U);
  EXPECT_EQ(hasClosed.Wait(kDeadlineMs), 1) << "its client goes";
  EXPECT_EQ(RemoveServer(idle.Port()), static_cast<unsigned long>(ENXIO)) << "it is gone";
  const Request served(good_);
  const Request waiting(good_);
  EXPECT_EQ(Submit(served), 0U);
  ASSERT_EQ(hasBegun.Wait(kDeadlineMs), 1);
  EXPECT_EQ(Submit(waiting), 0U);
  EXPECT_EQ(RemoveServer(tika.Port()), 0U);
  EXPECT_EQ(RemoveServer(tika.Port()), static_cast<unsigned long>(ENXIO));
  EXPECT_EQ(waiting.Wait(), Outcome::NoServer) << "while the other is still served";
  EXPECT_STREQ(waiting->GetCause(), "no Tika server could be reached");
  // Added again, its new worker serves although the former one has not ended.
  AddServer(tika.Port());
  mayEnd.Set();
  EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
  EXPECT_EQ(served.Wait(), Outcome::Extracted) << served->GetCause();
  EXPECT_EQ(tika.Documents(), 2);
}

// A worker that waits for its server, or asks for it, is told to stop, whoever removes the server.
TEST_F(Dispatcher, ServersAreRemovedByThePrepareFunctionOfTheirOwnAndOfOtherWorkers) {
  struct Context {
    std::function<bool(unsigned short)> remove;
    unsigned short absent = 0;
    std::atomic<int> removed{0};
    SCA_Event isWaiting{1, 0};
    SCA_Event wasStopped{1, 0};
  } context;
  const Tika absent(&lab_);
  context.absent = absent.Port();
  context.remove = [this](unsigned short port) { return RemoveServer(port) == 0; };
  Dispatch().SetPrepareServer(
      [](SCA_TikaClient* client, SCA_Event* stop, void* data, unsigned long* error) {
        auto* const shared = static_cast<Context*>(data);
        *error = ECONNREFUSED;
        if (client->GetPortNumber() == shared->absent) {
          shared->isWaiting.Set();
          if (stop->Wait(kDeadlineMs) != 0) shared->wasStopped.Set();
          return 0;
        }
        shared->isWaiting.Wait(kDeadlineMs);
        for (const unsigned short port : {shared->absent, client->GetPortNumber()}) {
          if (shared->remove(port)) ++shared->removed;
        }
        return 1;
      },
      &context);
  AddServer(context.absent);
  Tika& tika = AddTika();
  EXPECT_EQ(context.wasStopped.Wait(kDeadlineMs), 1);
  ASSERT_TRUE(Eventually([&context] { return context.removed == 2; }));
  EXPECT_EQ(RemoveServer(tika.Port()), static_cast<unsigned long>(ENXIO));
}

TEST_F(Dispatcher, FilesSurviveServersThatComeAndGo) {
  std::atomic<bool> isOver{false};
  for (int i = 0; i < 2; ++i) AddTika();
  std::vector<std::thread> owners;
  for (const auto& server : servers_) {
    owners.emplace_back([this, &isOver, tika = server.get()] {
      while (!isOver) {
        const int documents = tika->Documents();
        EXPECT_TRUE(Eventually([&] { return isOver || tika->Documents() > documents; }));
        EXPECT_EQ(RemoveServer(tika->Port()), 0U);
        AddServer(tika->Port());
      }
    });
  }
  const std::string killer = Marked("reset,tries=1");
  for (int i = 0; i < 300; ++i) SubmitAlso(i % 50 == 0 ? killer : good_);
  for (const auto& request : requests_) {
    EXPECT_EQ(request->Wait(), Outcome::Extracted) << (*request)->GetCause();
  }
  isOver = true;
  for (std::thread& owner : owners) owner.join();
}

TEST_F(Dispatcher, ThousandFilesOverFaultyServersHaveTheOutcomesForetold) {
  constexpr int kFiles = 1000;
  settings_.SetNetworkTimeout(300);
  std::vector<FaultSpec> faults;
  for (const char* const words :
       {"die,rate=0.005", "die,tries=1,rate=0.01", "reset=20,tries=1,rate=0.05",
        "close=20,tries=1,rate=0.05", "cut=20,rate=0.01", "status=500,rate=0.03",
        "status=422,rate=0.03", "size-word,rate=0.02", "hang-up=0,rate=0.1", "hang,rate=0.003"}) {
    faults.push_back(ToFault(words));
  }
  lab_.plan = FaultPlan(faults, 0, 7);
  for (int i = 0; i < 3; ++i) {
    AddTika();
    AddServer(servers_.back()->Port());
  }
  for (int i = 0; i < kFiles; ++i) SubmitDocument("document " + std::to_string(i));
  std::map<Outcome, int> outcomes;
  for (const auto& request : requests_) {
    const std::string& content = request->content;
    const FaultSpec fault = lab_.plan.Choose({content.size(), content});
    const Outcome outcome = request->Wait();
    const std::string cause = (*request)->GetCause();
    ++outcomes[outcome];
    EXPECT_EQ(outcome == Outcome::Extracted, Foretell(fault) == FaultPrognosis::Text)
        << content << ' ' << FaultWords(fault) << ' ' << cause;
    EXPECT_EQ(cause.empty(), outcome == Outcome::Extracted);
    if (outcome != Outcome::Extracted) continue;
    EXPECT_EQ(request->sink->text, TextOf(content));
    EXPECT_TRUE(request->sink->isTiled);
  }
  EXPECT_GT(outcomes[Outcome::Refused], 0);
  EXPECT_GT(outcomes[Outcome::ServersDied], 0);
}

// Requesters cancel and abandon while requests wait, are served, move to another server and end.
TEST_F(Dispatcher, CancellingAndAbandoningAtAnyMomentLeavesNothing) {
  std::atomic<unsigned> draws{0};
  for (int i = 0; i < 2; ++i) {
    AddTika([&draws](const DocumentHead&) {
      const unsigned draw = draws.fetch_add(1) % 7;
      return ToFault(draw == 3 ? "close=9" : draw == 5 ? "reset" : "slow=0");
    });
    AddServer(servers_.back()->Port());
  }
  std::vector<std::thread> requesters;
  for (unsigned t = 0; t < 4; ++t) {
    requesters.emplace_back([this, t] {
      std::mt19937 random(t);
      for (int i = 0; i < 150; ++i) {
        Request request(good_);
        ASSERT_EQ(Submit(request, 1), 0U);
        // The moment is what is varied here: no event could stand for it.
        for (auto spin = random() % 1000000; spin > 0; --spin)
          std::atomic_signal_fence(std::memory_order_seq_cst);
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
