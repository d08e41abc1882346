// The dispatcher against servers that fail in every way, come and go, and requesters that lose
// interest.

#include "product/SCA_TikaDispatcher.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "faultlab/FaultServer.h"
#include "platform/SCA_Error.h"
#include "product/SCA_TikaDispatch.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

using Outcome = SCA_TikaOutcome;
using Choose = std::function<FaultSpec(const DocumentHead&)>;

FaultSpec ToFault(const std::string& words) {
  FaultSpec fault;
  EXPECT_EQ(ParseFault(words, &fault), "");
  return fault;
}
// The text of a document whose content may hold a marker.
std::string TextOf(const std::string& content) {
  DocumentText text = TextOf(content, FaultPlan().Choose({content.size(), content}));
  return text.Next(static_cast<std::size_t>(text.Length()));
}

// A server of the fault lab on a port of its own, which comes back there when it has died.
class Tika {
 public:
  explicit Tika(std::shared_ptr<LabMemory> memory, FaultServerOptions options = {})
      : memory_(std::move(memory)),
        options_(std::move(options)),
        port_("127.0.0.1", options_.port, -1) {
    options_.port = port_.Port();
    options_.note = [this](const FaultSpec&, unsigned long long) { ++documents; };
    options_.die = [this] {
      ++deaths;
      died_.Set();
    };
    Restart();
    reviver_ = std::thread([this] {
      while (died_.Wait(SCA_Infinite) != 0 && !isOver_) Restart();
    });
  }
  ~Tika() {
    isOver_ = true;
    died_.Set();
    reviver_.join();
  }
  unsigned short Port() const { return options_.port; }
  /// Since it came back last; not while a document may kill it.
  int Connections() const { return server_->Connections(); }
  /// Dies and comes back; not while a test or a document does the same.
  void Restart() {
    server_.reset();
    server_ = std::make_unique<FaultServer>(options_, memory_);
  }

  std::atomic<int> documents{0};
  std::atomic<int> deaths{0};

 private:
  const std::shared_ptr<LabMemory> memory_;
  FaultServerOptions options_;
  const Listener port_;
  SCA_Event died_{0, 0};
  std::atomic<bool> isOver_{false};
  std::unique_ptr<FaultServer> server_;
  std::thread reviver_;
};

std::atomic<int> livingSinks{0};

class Collector : public SCA_TikaTextSink {
 public:
  Collector() { ++livingSinks; }
  ~Collector() override { --livingSinks; }
  int Write(const char* block, unsigned long length, unsigned long offset) override {
    EXPECT_EQ(offset, text.size());
    text.append(block, length);
    return accepts ? 1 : 0;
  }
  int Restart() override {
    text.clear();
    ++restarts;
    return 1;
  }
  void Finish(SCA_TikaExtractRequest* /*request*/) override {
    ++finishes;
    if (onFinish) onFinish();
  }

  std::string text;
  bool accepts = true;
  int restarts = 0;
  int finishes = 0;
  std::function<void()> onFinish;
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
  bool RemoveServer(unsigned short port, unsigned long serviceId = 0) {
    unsigned long error = ENXIO;
    const int removed = Dispatch().RemoveServer("127.0.0.1", port, serviceId, &error);
    EXPECT_EQ(error, static_cast<unsigned long>(ENXIO));
    return removed != 0;
  }
  /// @param choose  The fault of documents; unset, their markers and the plan tell.
  Tika& AddTika(Choose choose = nullptr, int workers = 1) {
    FaultServerOptions options;
    options.choose = std::move(choose);
    options.plan = plan_;
    servers_.push_back(std::make_unique<Tika>(memory_, options));
    for (int i = 0; i < workers; ++i) AddServer(servers_.back()->Port());
    return *servers_.back();
  }
  /// @return The error code, 0 for success.
  unsigned long Submit(const Request& request, int wait = 0) {
    unsigned long error = 0;
    return Dispatch().Submit(request.request.get(), wait, &error) != 0 ? 0 : error;
  }
  /// Submits one more of those that the test keeps.
  void SubmitDocument(const std::string& content) {
    requests_.push_back(
        std::make_unique<Request>(dir_.Write("f" + std::to_string(requests_.size()), content)));
    requests_.back()->content = content;
    ASSERT_EQ(Submit(*requests_.back(), 1), 0U);
  }
  Outcome Extract(const Request& request) {
    EXPECT_EQ(Submit(request), 0U);
    return request.Wait();
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
  FaultPlan plan_;
  const std::shared_ptr<LabMemory> memory_ = std::make_shared<LabMemory>();
  std::vector<std::unique_ptr<Tika>> servers_;
  std::unique_ptr<SCA_TikaDispatcher> dispatcher_;
  std::vector<std::unique_ptr<Request>> requests_;
  const std::string good_ = dir_.Write("good", "a good document");
};

TEST_F(Dispatcher, FilesEndAsTheyShouldAndTheNextOneOfTheSameClientIsExact) {
  struct Row {
    const char* fault;
    Outcome outcome;
    unsigned long code;
    const char* cause;
    unsigned long tries = 1;  // what is final is tried once
    std::size_t size = 0;
    unsigned long fileMs = 0;
    unsigned long long textBytes = 0;
  };
  constexpr std::size_t kHuge = 1 << 26;  // the answer comes before all of it has gone
  const Row rows[] = {
      {"slow=0", Outcome::Extracted, 0, ""},
      {"close=9", Outcome::ServersDied, SCA_ErrorServersDied, "broke twice", 3},
      {"status=500", Outcome::ServerFailed, SCA_ErrorTika500, "HTTP 500"},
      {"status=422", Outcome::Refused, SCA_ErrorTika422, "HTTP 422"},
      {"size-word", Outcome::ServerFailed, SCA_ErrorInvalidData, "invalid"},
      {"refuse=413", Outcome::Refused, 0, "HTTP 413 before it had read the file", 1, kHuge},
      {"refuse=500", Outcome::ServerFailed, 0, "HTTP 500 before it had read the file", 1, kHuge},
      {"refuse=503", Outcome::ServerFailed, 0, "HTTP 503 before it had read the file", 0, kHuge},
      {"hang=9", Outcome::TimedOut, ETIMEDOUT, "timed out"},
      {"hang", Outcome::TimeLimit, SCA_ErrorTimeLimit, "", 1, 0, 100},
      {"hang", Outcome::TimeLimit, SCA_ErrorTimeLimit, "", 1, 5 << 20, 10},
      {"endless=0", Outcome::TimeLimit, SCA_ErrorTimeLimit, "", 1, 0, 100},
      {"endless=0", Outcome::ServerFailed, SCA_ErrorTextTooLong, "", 1, 0, 0, 5 << 20},
      {"text=9000", Outcome::ServerFailed, SCA_ErrorTextTooLong, "", 1, 0, 0, 8999},
      {"text=9000", Outcome::Extracted, 0, "", 1, 0, 0, 9000},
  };
  limits_.notReadyMs = 0;
  limits_.fileMsPerMiB = 10;
  for (const Row& row : rows) {
    SCOPED_TRACE(&row - rows);
    dispatcher_.reset();
    limits_.fileMs = row.fileMs;
    limits_.textBytes = row.textBytes;
    AddTika();
    std::string content = std::string("tikafault:") + row.fault + " ";
    content.resize(std::max(content.size(), row.size), 'x');
    settings_.SetNetworkTimeout(row.outcome == Outcome::TimedOut ? 100 : kDeadlineMs);
    const Request request(dir_.Write("f", content));
    EXPECT_EQ(Extract(request), row.outcome);
    settings_.SetNetworkTimeout(kDeadlineMs);
    EXPECT_TRUE(row.size == kHuge || request->GetStatusCode() == row.code)
        << request->GetStatusCode();
    EXPECT_NE(std::string(request->GetCause()).find(row.cause), std::string::npos)
        << request->GetCause();
    EXPECT_EQ(request->GetTries(), row.tries);
    EXPECT_TRUE(row.textBytes == 0 || request.sink->text.size() <= row.textBytes);
    EXPECT_TRUE(row.fileMs == 0 || request->GetDuration() >= row.fileMs + 10 * (row.size >> 20));
    const Request next(good_);
    EXPECT_TRUE(row.fileMs != 0 || Extract(next) == Outcome::Extracted) << next->GetCause();
    EXPECT_TRUE(row.fileMs != 0 || next.sink->text == TextOf("a good document"));
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
  for (int i = 0; i < 2; ++i) AddTika();
  const Request request(Marked(words));
  EXPECT_EQ(Extract(request), Outcome::Extracted) << request->GetCause();
  EXPECT_EQ(request.sink->text, TextOf("a document with tikafault:" + words));
  EXPECT_EQ(request.sink->restarts, 1);
  EXPECT_EQ(request->GetTries(), 2U);
  for (const auto& server : servers_) EXPECT_EQ(server->documents, 1);
}

// The neighbours of a file that kills its servers lose their connections with it, and must not be
// taken for its accomplices.
TEST_F(Dispatcher, KillerAmongManyFilesEndsAloneAndItsNeighboursAreExtracted) {
  const std::string killer = "tikafault:die";
  for (const int servers : {1, 3}) {
    dispatcher_.reset();
    servers_.clear();
    requests_.clear();
    for (int i = 0; i < servers; ++i) AddTika(nullptr, 4);
    // Many are under way when the killer is.
    for (int i = 0; i < 40; ++i) SubmitDocument(i == 20 ? killer : "tikafault:slow=5 ");
    for (const auto& request : requests_) {
      const bool isKiller = request->content == killer;
      EXPECT_EQ(request->Wait(), isKiller ? Outcome::ServersDied : Outcome::Extracted)
          << request->content << ' ' << (*request)->GetCause();
      EXPECT_EQ(request->sink->text, isKiller ? "" : TextOf(request->content));
    }
    int deaths = 0;
    for (const auto& server : servers_) deaths += server->deaths;
    EXPECT_EQ(deaths, 3) << "it is tried in company, and twice alone";
  }
}

// Or a neighbour of long standing would go down with the next try, too.
TEST_F(Dispatcher, SuspectWaitsUntilItsServerHasNoOtherFile) {
  SCA_Event hasBegun(1, 0);
  std::atomic<int> tries{0};
  std::atomic<unsigned long long> answers{0};
  const Choose choose = [&](const DocumentHead& head) {
    if (head.bytes != "suspect") {
      hasBegun.Set();
      return ToFault("slow=300");
    }
    if (++tries == 1) return ToFault("reset");
    answers = memory_->Answers();
    return ToFault("slow=0");
  };
  AddTika(choose, 2);
  SubmitDocument("neighbour");
  ASSERT_EQ(hasBegun.Wait(kDeadlineMs), 1);
  SubmitDocument("suspect");
  for (const auto& request : requests_) EXPECT_EQ(request->Wait(), Outcome::Extracted);
  EXPECT_EQ(tries, 2);
  EXPECT_EQ(answers, 1U) << "the neighbour's comes first";
}

TEST_F(Dispatcher, ServerThatIsComingUpCostsNoFileAndOneThatNeverIsReadyIsGivenUp) {
  std::atomic<int> documents{0};
  const Choose comesUp = [&documents](const DocumentHead&) {
    return ToFault(++documents <= 12 ? "status=404" : documents <= 24 ? "status=503" : "slow=0");
  };
  AddTika(comesUp, 2);
  for (int i = 0; i < 4; ++i) SubmitDocument("a document");
  for (const auto& request : requests_) {
    EXPECT_EQ(request->Wait(), Outcome::Extracted) << (*request)->GetCause();
    EXPECT_EQ((*request)->GetTries(), 1U);
  }
  // Here for one file only.
  dispatcher_.reset();
  limits_.notReadyMs = 50;
  for (int i = 0; i < 2; ++i) AddTika();
  const Request unwanted(Marked("status=404"));
  ASSERT_EQ(Submit(unwanted), 0U);
  ASSERT_TRUE(Eventually([this, &unwanted] {
    EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
    return unwanted->GetReady()->Wait(0) != 0;
  }));
  EXPECT_EQ(unwanted->GetOutcome(), Outcome::ServerFailed);
}

// A file that waited long for its server has as much time as any other.
TEST_F(Dispatcher, ServerThatSaysWhenToAskAgainIsAskedThen) {
  FaultServerOptions options;
  options.version = "Apache Tika 4.0.0";
  Tika tika(memory_, options);
  limits_.fileMs = 20000;
  AddServer(tika.Port());
  struct Row {
    const char* fault;
    Outcome outcome;
    unsigned long tries;
    int documents;  // that the server had
    int leastMs;
    const char* cause;
  };
  const char* const busy = "HTTP 429: no worker for the document";
  const char* const crash = "HTTP 503: no worker for the document";
  const Row rows[] = {
      {"busy=0,tries=1", Outcome::Extracted, 1, 2, 1000, ""},
      {"busy=1,tries=1", Outcome::Extracted, 1, 2, 1000, ""},
      {"crash=1,tries=1", Outcome::Extracted, 2, 2, 1000, ""},
      {"crash=0", Outcome::ServerFailed, 2, 2, 0, crash},
      {"status=413", Outcome::Refused, 1, 1, 0, "HTTP 413: what went wrong"},
      {"status=422", Outcome::Refused, 1, 1, 0, "what went wrong"},
      // Longer than the file may take.
      {"busy=21", Outcome::ServerFailed, 0, 1, 0, busy},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.fault);
    tika.documents = 0;
    const Stopwatch watch;
    const Request request(Marked(row.fault));
    EXPECT_EQ(Extract(request), row.outcome) << request->GetCause();
    EXPECT_EQ(request->GetTries(), row.tries);
    EXPECT_EQ(tika.documents, row.documents);
    EXPECT_GE(watch.Ms(), row.leastMs);
    EXPECT_NE(std::string(request->GetCause()).find(row.cause), std::string::npos)
        << request->GetCause();
  }
  // The server is left alone now, and that is no reason to wait for its worker.
  const Request waiting(good_);
  EXPECT_EQ(Submit(waiting), 0U);
  EXPECT_TRUE(RemoveServer(tika.Port()));
}

TEST_F(Dispatcher, OptionsAreFollowedByTheServersVersion) {
  FaultServerOptions four;
  four.version = "Apache Tika 4.0.0";
  const Tika tikas[] = {Tika(memory_), Tika(memory_, four)};
  AddServer(tikas[0].Port());
  const std::string text = TextOf("a good document");
  struct Row {
    SCA_TikaContent content;
    const char* password;
    std::array<const char*, 2> got;  // by the server's line; null: refused
    unsigned long ignoredByFour;
  };
  using Content = SCA_TikaContent;
  const std::string json = R"([{"Content-Type":"text/plain","X-TIKA:content":")" + text + "\"}]";
  const std::string markdown = "# " + text;
  const Row rows[] = {
      {Content::Text, "", {text.c_str(), text.c_str()}, SCA_TikaOptionOcr},
      {Content::Text, "se cret", {text.c_str(), nullptr}, 0},
      {Content::Markdown, "", {markdown.c_str(), markdown.c_str()}, SCA_TikaOptionOcr},
      {Content::Metadata, "", {json.c_str(), json.c_str()}, SCA_TikaOptionOcr},
  };
  for (const std::size_t server : {0, 1}) {
    if (server == 1) {
      EXPECT_TRUE(RemoveServer(tikas[0].Port()));
      AddServer(tikas[1].Port());
    }
    for (const Row& row : rows) {
      SCA_TikaRequestOptions options;
      options.content = row.content;
      options.password = row.password;
      options.ocr = SCA_TikaOcr::None;
      Request request(good_);
      request.request.reset(new SCA_TikaExtractRequest(good_.c_str(), "pdf", "Default",
                                                       request.sink = new Collector, options));
      const bool isRefused = row.got[server] == nullptr;
      EXPECT_EQ(Extract(request), isRefused ? Outcome::OptionRefused : Outcome::Extracted)
          << request->GetCause();
      EXPECT_EQ(request.sink->text, isRefused ? "" : row.got[server]);
      if (isRefused) {
        EXPECT_EQ(request->GetCause(), "127.0.0.1:" + std::to_string(tikas[1].Port()) +
                                           ": Tika 4.0.0 cannot follow this option of a request: "
                                           "password");
      }
      EXPECT_EQ(request->GetIgnoredOptions() & (isRefused ? 0 : ~0UL),
                server == 1 ? row.ignoredByFour : 0);
      options.contentType = "\n";
      const SCA_Owned<SCA_TikaExtractRequest> invalid(
          new SCA_TikaExtractRequest(good_.c_str(), "pdf", "Default", new Collector, options));
      unsigned long error = 0;
      EXPECT_EQ(Dispatch().Submit(invalid.get(), 0, &error), 0);
      EXPECT_EQ(error, SCA_ErrorOptionInvalid);
    }
    EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
  }
}

// Taken for one of Tika 3, a server of Tika 4 would send Markdown.
TEST_F(Dispatcher, VersionIsForgottenWhenItsServerRefusesAConnectionAfterAnAnswer) {
  limits_.noServerMs = 500;
  FaultServerOptions options;
  const Listener port("127.0.0.1", 0, -1);
  options.port = port.Port();
  auto server = std::make_unique<FaultServer>(options, memory_);
  AddServer(options.port);
  const Request failed(Marked("status=500"));
  failed.sink->onFinish = [&server] { server.reset(); };
  EXPECT_EQ(Extract(failed), Outcome::ServerFailed);
  EXPECT_EQ(Extract(Request(good_)), Outcome::NoServer);
  options.version = "Apache Tika 4.0.0";
  server = std::make_unique<FaultServer>(options, memory_);
  ASSERT_TRUE(Eventually([&server] { return server->Connections() >= 1; }));
  const Request next(good_);
  EXPECT_EQ(Extract(next), Outcome::Extracted) << next->GetCause();
  EXPECT_EQ(next.sink->text, TextOf("a good document"));
}

// As behind a proxy that passes on nothing but documents.
TEST_F(Dispatcher, ServerThatNeverTellsItsVersionGetsPlainRequests) {
  limits_.notReadyMs = 300;
  std::atomic<int> asked{0};
  std::atomic<int> documents{0};
  const ScriptedServer server([&](ServerConnection& connection) {
    for (std::string got; !(got = connection.ReceiveRequest()).empty();) {
      const bool isPlain = got.rfind("PUT /tika HTTP", 0) == 0;
      ++(isPlain ? documents : asked);
      connection.Send(isPlain ? ChunkedReply("text", 4)
                              : "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
      if (!isPlain) return;
    }
  });
  AddServer(server.Port());
  const Stopwatch watch;
  for (int i = 1; i <= 3; ++i) {
    const Request request(good_);
    EXPECT_EQ(Extract(request), Outcome::Extracted) << request->GetCause();
    EXPECT_EQ(request.sink->text, "text");
    EXPECT_GE(watch.Ms(), static_cast<long long>(limits_.notReadyMs)) << "it may be starting";
    EXPECT_EQ(documents, i);
  }
  EXPECT_GT(asked, 1);
}

TEST_F(Dispatcher, TimeLimitBeginsAnewWithEachTry) {
  limits_.fileMs = 500;
  limits_.fileMsPerMiB = 0;
  const Stopwatch watch;
  AddTika([&watch](const DocumentHead&) {
    return ToFault(watch.Ms() > 500 ? "slow=100" : "status=503");
  });
  const Request request(good_);
  EXPECT_EQ(Extract(request), Outcome::Extracted) << request->GetCause();
}

// A connection that its server has closed meanwhile is no fault of the file that comes next.
TEST_F(Dispatcher, ConnectionThatTheServerClosedCostsNoFile) {
  Tika& tika = AddTika();
  for (int i = 0; i < 3; ++i) {
    // Before the first file, and each time after one that failed, once it waits.
    ASSERT_TRUE(Eventually([this] {
      SCA_ConfigObj status("status", nullptr);
      return Dispatch().GetStatus(&status) != 0 &&
             status.GetConfigObj("Clients")->GetFieldCount() == 1;
    }));
    tika.Restart();
    const Request request(good_);
    EXPECT_EQ(Extract(request), Outcome::Extracted) << request->GetCause();
    EXPECT_EQ(request->GetTries(), 1U) << "seen before anything was sent";
    tika.Restart();
    EXPECT_EQ(Extract(Request(Marked("status=500"))), Outcome::ServerFailed);
  }
}

TEST_F(Dispatcher, ServerThatComesBackIsFoundAndOneThatDoesNotIsGivenUp) {
  FaultServerOptions options;
  options.port = Tika(memory_).Port();
  AddServer(options.port);
  const Request waiting(good_);
  ASSERT_EQ(Submit(waiting), 0U);
  // It refuses connections for a while; the request waits.
  EXPECT_EQ(waiting->GetReady()->Wait(60), 0);
  {
    const Tika back(memory_, options);
    EXPECT_EQ(waiting.Wait(), Outcome::Extracted) << waiting->GetCause();
  }
  dispatcher_.reset();
  limits_.noServerMs = 100;
  AddServer(options.port);
  const Request lost(good_);
  EXPECT_EQ(Extract(lost), Outcome::NoServer);
  EXPECT_EQ(lost->GetStatusCode(), SCA_ErrorNoServer);
  EXPECT_EQ(lost->GetCause(), "no Tika server could be reached; 127.0.0.1:" +
                                  std::to_string(options.port) + ": Connection refused");
  // One that breaks a file, and then answers without end, is down for all its workers.
  dispatcher_.reset();
  settings_.SetNetworkTimeout(1000);
  std::atomic<int> broken{0};
  const ScriptedServer endless([&](ServerConnection& connection) {
    const bool isGet = connection.ReceiveHeader().rfind("GET", 0) == 0;
    if (!isGet) ++broken;
    if (isGet && broken == 0) connection.Send(kVersionReply);
    if (!isGet || broken == 0) return;
    while (connection.Send("X") && connection.WaitForEnd(10)) {
    }
  });
  for (int i = 0; i < 2; ++i) AddServer(endless.Port());
  EXPECT_EQ(Extract(Request(good_)), Outcome::ConnectionBroken);
}

TEST_F(Dispatcher, ServersThatAreDownLeaveTheWorkToTheOthers) {
  auto gone = std::make_unique<Tika>(memory_);
  AddServer(gone->Port());
  // The worker has asked, is connected, and waits, when its server goes.
  ASSERT_TRUE(Eventually([&gone] { return gone->Connections() == 2; }));
  Tika& left = AddTika();
  gone.reset();
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
  EXPECT_EQ(left.documents, 20);
  // What the one that is left has broken can go nowhere else.
  const Stopwatch watch;
  EXPECT_EQ(Extract(Request(Marked("die,tries=1"))), Outcome::Extracted);
  EXPECT_LT(watch.Ms(), static_cast<long long>(limits_.noServerMs));
}

TEST_F(Dispatcher, FullQueueRefusesOrWaitsAsTheCallerChose) {
  settings_.SetMaxPendingRequests(1);
  const Request first(good_);
  const Request second(good_);
  const Request third(good_);
  EXPECT_EQ(Submit(first), 0U);
  EXPECT_EQ(Submit(second), SCA_ErrorQueueFull);
  std::thread patient([&] { EXPECT_EQ(Submit(second, 1), 0U); });
  Dispatch().Cancel(first.request.get());
  EXPECT_EQ(first.Wait(), Outcome::Cancelled) << "at once, though there is no worker";
  patient.join();
  EXPECT_EQ(Dispatch().GetPendingRequests(), 1U);
  std::thread impatient([&] { EXPECT_EQ(Submit(third, 1), SCA_ErrorCancelled); });
  Dispatch().Cancel(third.request.get());
  impatient.join();
  AddTika();
  EXPECT_EQ(second.Wait(), Outcome::Extracted);
  settings_.SetMaxPendingRequests(0);
  EXPECT_EQ(Submit(Request(good_), 1), SCA_ErrorQueueFull);
}

// A submit that waits is not woken for each request that leaves the queue, but before a worker
// rests.
TEST_F(Dispatcher, QueueFullOfRequestsForAMissingServerStarvesNoOther) {
  settings_.SetMaxPendingRequests(4);
  AddTika();
  for (int i = 0; i < 3; ++i) {
    requests_.push_back(std::make_unique<Request>(good_));
    (*requests_.back())->GetServiceList()->AddItemToTail(1UL);
    ASSERT_EQ(Submit(*requests_.back()), 0U);
  }
  const Stopwatch watch;
  for (int i = 0; i < 100; ++i) SubmitDocument("a good document");
  for (std::size_t i = 3; i < requests_.size(); ++i) {
    EXPECT_EQ(requests_[i]->Wait(), Outcome::Extracted);
  }
  EXPECT_LT(watch.Ms(), 4000) << "room is told of, not found once a second";
}

// Has work come in the moment between a worker's last look and its rest.
class LateWork : public SCA_TikaDispatch {
 public:
  using SCA_TikaDispatch::SCA_TikaDispatch;
  ~LateWork() override { Stop(); }
  SCA_TikaTicket* Take(SCA_TikaWorker* worker) override {
    SCA_TikaTicket* const ticket = SCA_TikaDispatch::Take(worker);
    if (ticket == nullptr && late != nullptr) {
      EXPECT_EQ(Submit(std::exchange(late, nullptr), false), 0U);
    }
    return ticket;
  }

  SCA_TikaExtractRequest* late = nullptr;  // the worker's, once there is one
};

TEST_F(Dispatcher, WorkThatComesBetweenTheLastLookAndTheRestIsServed) {
  const Tika tika(memory_);
  const Request request(good_);
  LateWork dispatch(&settings_, limits_);
  ASSERT_TRUE(dispatch.Start());
  dispatch.late = request.request.get();
  ASSERT_EQ(dispatch.AddServer("127.0.0.1", tika.Port(), 0), 0U);
  EXPECT_EQ(request.Wait(), Outcome::Extracted);
}

// The queue deletes what is marked as it documents; the dispatcher must not know it any longer.
TEST_F(Dispatcher, RequestThatIsMarkedAsAbandonedInTheQueueIsForgotten) {
  Request marked(good_);
  EXPECT_EQ(Submit(marked), 0U);
  marked.request.release()->SetProcessStatus(SCA_RequestAbandoned);
  AddTika();
  EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
  EXPECT_EQ(livingSinks, 0);
  EXPECT_EQ(Dispatch().GetPendingRequests(), 0U);
}

TEST_F(Dispatcher, ServicesAreChosenByPoolExtensionAndState) {
  SCA_TikaService* added[3];
  for (auto*& service : added) {
    const std::string name = std::to_string(&service - added);
    settings_.GetServiceList()->AddService(name.c_str(), &service);
  }
  added[0]->SetProcessCustomExtensions(1);
  added[0]->SetFileExtensions("odt pdf");
  added[1]->SetPoolName("Other");
  added[2]->SetEnabled(0);
  const char* const rows[][3] = {{"PDF", "Default", "0 1 "}, {"xls", "Default", "0 "},
                                 {"odt", "Default", "1 "},   {"xls", "Other", "2 "},
                                 {"odt", "Other", ""},       {"pdf", "default", ""},
                                 {"txt", "Default", ""},     {".pdf", "Default", ""}};
  for (const auto& [extension, pool, services] : rows) {
    const Request request(good_, extension, pool);
    EXPECT_EQ(Submit(request), *services == '\0' ? SCA_ErrorNoService : 0);
    std::string chosen;
    for (auto* node = request->GetServiceList()->GetHead(); node != nullptr;
         node = node->GetNext()) {
      chosen += std::to_string(node->GetItem()) + " ";
    }
    EXPECT_EQ(chosen, services) << extension << ' ' << pool;
    if (chosen.empty()) continue;
    EXPECT_EQ(Submit(request), SCA_ErrorAlreadyActive);
    Dispatch().CancelAll();
    EXPECT_EQ(request.Wait(), Outcome::Cancelled);
  }
  settings_.SetMode(SCA_TikaModeDisabled);
  EXPECT_EQ(Submit(Request(good_)), SCA_ErrorExtractionOff);
}

TEST_F(Dispatcher, StopEndsEveryRequestAndLetsNobodyWait) {
  settings_.SetMaxPendingRequests(3);
  AddTika();
  for (int i = 0; i < 4; ++i) SubmitDocument("tikafault:hang");
  const Request late(good_);
  std::thread submitter([&] { EXPECT_EQ(Submit(late, 1), SCA_ErrorStopping); });
  Dispatch().Stop();
  submitter.join();
  for (const auto& request : requests_) EXPECT_EQ(request->Wait(), Outcome::Cancelled);
  EXPECT_EQ(Submit(late), SCA_ErrorStopping);
}

// A request may have more services than are kept for the time when it may have gone.
TEST_F(Dispatcher, WorkerOfAnyServiceOfARequestIsWoken) {
  AddServer(AddTika().Port(), 100);
  ASSERT_TRUE(Eventually([&] { return servers_[0]->Connections() == 4; }));
  for (unsigned long services = 15; services < 20; ++services) {
    const Request request(good_);
    for (unsigned long i = 1; i < services; ++i) request->GetServiceList()->AddItemToTail(i);
    request->GetServiceList()->AddItemToTail(100UL);
    EXPECT_EQ(Extract(request), Outcome::Extracted);
  }
}

TEST_F(Dispatcher, RemovedServerEndsItsFileTakesNoOtherAndMayBeAddedAgain) {
  limits_.noServerMs = 100;
  SCA_Event hasBegun(1, 0);
  SCA_Event mayEnd(1, 0);
  SCA_Event hasClosed(1, 0);
  const ScriptedServer server([&](ServerConnection& connection) {
    for (std::string got; !(got = connection.ReceiveRequest()).empty();) {
      if (got.rfind("GET", 0) == 0) {
        connection.Send(kVersionReply);
        return;
      }
      hasBegun.Set();
      mayEnd.Wait(kDeadlineMs);
      connection.Send(ChunkedReply("text", 4));
    }
    hasClosed.Set();
  });
  AddServer(server.Port());
  const Request served(good_);
  const Request waiting(good_);
  EXPECT_EQ(Submit(served), 0U);
  ASSERT_EQ(hasBegun.Wait(kDeadlineMs), 1);
  EXPECT_EQ(Submit(waiting), 0U);
  EXPECT_EQ(waiting->GetReady()->Wait(limits_.noServerMs), 0) << "its server is there";
  const Stopwatch watch;
  EXPECT_FALSE(RemoveServer(server.Port(), 7)) << "another service";
  EXPECT_TRUE(RemoveServer(server.Port()));
  EXPECT_FALSE(RemoveServer(server.Port())) << "it is gone";
  EXPECT_EQ(waiting.Wait(), Outcome::NoServer) << "while the other is still served";
  EXPECT_GE(watch.Ms(), static_cast<long long>(limits_.noServerMs)) << "counted from the removal";
  mayEnd.Set();
  EXPECT_EQ(served.Wait(), Outcome::Extracted) << served->GetCause();
  EXPECT_EQ(hasClosed.Wait(kDeadlineMs), 1) << "its client goes";
  AddServer(server.Port());
  EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
}

// Whoever removes a server, its worker is told to stop, and nobody waits for himself.
TEST_F(Dispatcher, ServersAreRemovedByThePrepareFunctionsOfTheirOwnAndOfOtherWorkers) {
  struct Context {
    std::function<int()> remove;
    std::atomic<int> removed{0};
    std::atomic<int> waiting{0};
  } context{[this] { return RemoveServer(1) + RemoveServer(2); }};
  Dispatch().SetPrepareServer(
      [](SCA_TikaClient*, SCA_Event* stop, void* data, unsigned long*) {
        auto* const shared = static_cast<Context*>(data);
        ++shared->waiting;
        shared->removed += shared->remove();
        if (stop->Wait(kDeadlineMs) != 0) --shared->waiting;
        return 0;
      },
      &context);
  AddServer(1);
  AddServer(2);
  EXPECT_TRUE(Eventually([&] { return context.removed == 2 && context.waiting == 0; }));
  // The other worker may be about to call the function still, and the context goes first.
  Dispatch().Stop();
}

TEST_F(Dispatcher, ThousandFilesOverFaultyServersThatComeAndGoHaveTheOutcomesForetold) {
  settings_.SetNetworkTimeout(1500);
  std::vector<FaultSpec> faults;
  for (const char* const words :
       {"die,rate=0.005", "die,tries=1,rate=0.01", "reset=20,tries=1,rate=0.05",
        "close=20,tries=1,rate=0.05", "cut=20,rate=0.01", "status=500,rate=0.03",
        "status=422,rate=0.03", "size-word,rate=0.02", "hang-up=0,rate=0.1", "hang,rate=0.003"}) {
    faults.push_back(ToFault(words));
  }
  plan_ = FaultPlan(faults, 0, 7);
  settings_.SetMaxPendingRequests(5);
  for (int i = 0; i < 3; ++i) AddTika(nullptr, 2);
  std::atomic<bool> isOver{false};
  std::thread owner([this, &isOver] {
    for (std::size_t i = 0; !isOver; i = (i + 1) % 3) {
      const int documents = servers_[i]->documents;
      EXPECT_TRUE(Eventually([&] { return isOver || servers_[i]->documents > documents; }));
      EXPECT_TRUE(RemoveServer(servers_[i]->Port()));
      for (int k = 0; k < 2; ++k) AddServer(servers_[i]->Port());
    }
  });
  const Stopwatch watch;
  for (int i = 0; i < 1000; ++i) SubmitDocument("document " + std::to_string(i));
  EXPECT_LT(watch.Ms(), 40000) << "room is told of, not found once a second";
  for (const auto& request : requests_) {
    const std::string& content = request->content;
    const FaultSpec fault = plan_.Choose({content.size(), content});
    const bool isExtracted = request->Wait() == Outcome::Extracted;
    EXPECT_EQ(isExtracted, Foretell(fault) == FaultPrognosis::Text)
        << content << ' ' << FaultWords(fault) << ' ' << (*request)->GetCause();
    EXPECT_EQ(isExtracted, (*request)->GetCause()[0] == '\0');
    EXPECT_TRUE(!isExtracted || request->sink->text == TextOf(content)) << content;
  }
  isOver = true;
  owner.join();
}

// Requesters cancel and abandon while requests wait, are served, move to another server and end.
TEST_F(Dispatcher, CancellingAndAbandoningAtAnyMomentLeavesNothing) {
  std::atomic<unsigned> draws{0};
  const Choose choose = [&draws](const DocumentHead&) {
    const unsigned draw = ++draws % 7;
    return ToFault(draw == 3 ? "close=9" : draw == 5 ? "reset" : "slow=0");
  };
  for (int i = 0; i < 2; ++i) AddTika(choose, 2);
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
        const auto what = random() % 4;  // to wait, to cancel, to abandon now or after the end
        if (what == 1 || what == 2) Dispatch().Cancel(request.request.get());
        if (what != 3) request.Wait();
        if (what >= 2) Dispatch().Abandon(request.request.release());
      }
    });
  }
  for (std::thread& requester : requesters) requester.join();
  EXPECT_EQ(Extract(Request(good_)), Outcome::Extracted);
}

}  // namespace
