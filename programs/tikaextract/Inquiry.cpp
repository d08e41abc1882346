#include "programs/tikaextract/Inquiry.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>

#include "client/SCA_TikaClient.h"
#include "programs/common/Address.h"
#include "programs/common/Event.h"
#include "programs/tikaextract/DocumentReport.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned long kConnectMs = 5000;
constexpr unsigned long kSilenceMs = 10000;
constexpr unsigned long kLookMs = 50;  // after which the two causes of an end are looked at
constexpr std::chrono::seconds kMostCredit{5};
constexpr int kShare = 10;  // one part in so many of the time
constexpr std::chrono::minutes kMuteFor{1};

// An event for the client that is set when the run is cancelled and when the time is over. A server
// that sends a byte now and then must not outrun either, in whichever part of the exchange.
class Limit {
 public:
  Limit(SCA_Event* cancel, Clock::duration longest)
      : cancel_(cancel), deadline_(Clock::now() + longest), thread_([this] { Watch(); }) {}
  ~Limit() {
    done_.Set();
    thread_.join();
  }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;

  SCA_Event* End() { return &end_; }
  bool HasPassed() const { return Clock::now() >= deadline_; }

 private:
  void Watch() {
    while (done_.Wait(kLookMs) == 0) {
      if (HasPassed() || cancel_->Wait(0) != 0) end_.Set();
    }
  }

  SCA_Event* const cancel_;
  const Clock::time_point deadline_;
  ProgramEvent end_{1, 0};
  ProgramEvent done_{1, 0};
  std::thread thread_;  // last: it uses the others
};

struct Answer {
  ReportJudge judge;
  SCA_TikaMetadataReader reader{&judge};
};

int TakeAnswer(const char* bytes, unsigned long length, unsigned long /*offset*/, void* context) {
  return static_cast<Answer*>(context)->reader.Take(bytes, length);
}

// The version decides how the question is asked. A server closes once it has told it.
bool Reach(SCA_TikaClient* client) {
  unsigned long error = 0;
  char version[101];
  if (client->GetServerVersion().IsKnown()) return client->Connect(kConnectMs, &error) != 0;
  const bool isTold = client->Connect(kConnectMs, &error) != 0 &&
                      client->GetVersion(version, sizeof version, &error) != 0;
  client->Disconnect();
  return isTold && client->Connect(kConnectMs, &error) != 0;
}

}  // namespace

Inquiry::Inquiry(const RequestChoice& choice, SCA_Event* cancel, Duration longest)
    : choice_(choice), cancel_(cancel), longest_(longest), credit_(kMostCredit) {
  settings_.SetNetworkTimeout(kSilenceMs);
}

bool Inquiry::HasTime() {
  const Clock::time_point now = Clock::now();
  credit_ = std::min<Duration>(kMostCredit, credit_ + (now - creditedAt_) / kShare);
  creditedAt_ = now;
  return credit_ > Duration::zero();
}

bool Inquiry::IsMute(const std::string& server) {
  const auto found = mute_.find(server);
  return found != mute_.end() && Clock::now() < found->second;
}

std::optional<Reason> Inquiry::Ask(const std::string& server, const std::string& path,
                                   const std::string& name) try {
  HostPort address;
  if (IsMute(server) || !ParseHostPort(server, 0, &address).empty()) return std::nullopt;
  const Clock::time_point begin = Clock::now();
  Limit limit(cancel_, longest_);
  SCA_TikaClient client(&settings_, address.host.c_str(), address.port);
  client.SetCancelEvent(limit.End());
  client.SetServerVersion(versions_[server]);
  SCA_TikaRequestOptions options = OptionsFor(choice_, name);
  options.content = SCA_TikaContent::Metadata;
  Answer answer;
  unsigned long length = 0;
  unsigned long error = 0;
  const bool isReached = client.InitDataBuffer() != 0 && Reach(&client);
  const bool isAnswered = isReached &&
                          client.GetFileText(path.c_str(), options, &TakeAnswer, &answer,
                                             limit.End(), &length, &error) != 0 &&
                          answer.reader.Finish() != 0;
  versions_[server] = client.GetServerVersion();
  credit_ -= Clock::now() - begin;
  if (!isAnswered) {
    // Another answer than the one wanted may be the document's fault.
    if (!isReached || error == ETIMEDOUT || limit.HasPassed())
      mute_[server] = Clock::now() + kMuteFor;
    return std::nullopt;
  }
  // A document that is whole now was refused for another reason.
  const SCA_TikaFinding finding = answer.judge.judge.GetFinding();
  if (finding == SCA_TikaFinding::Complete) return std::nullopt;
  return Reason{finding, answer.judge.judge.GetCause(), std::move(answer.judge.metadata)};
} catch (const std::system_error&) {
  return std::nullopt;  // no further thread can be had
}
