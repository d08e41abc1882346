#include "programs/tikaextract/Inquiry.h"

#include <chrono>

#include "client/SCA_TikaClient.h"
#include "programs/common/Address.h"
#include "programs/tikaextract/DocumentReport.h"

namespace {

using Clock = std::chrono::steady_clock;

// The document has been parsed before, up to the failure: this is generous.
constexpr unsigned long kConnectMs = 5000;
constexpr unsigned long kSilenceMs = 10000;
constexpr std::chrono::seconds kLongest{20};

struct Answer {
  ReportJudge judge;
  SCA_TikaMetadataReader reader{&judge};
  Clock::time_point deadline = Clock::now() + kLongest;
};

int TakeAnswer(const char* bytes, unsigned long length, unsigned long /*offset*/, void* context) {
  auto* const answer = static_cast<Answer*>(context);
  return Clock::now() < answer->deadline && answer->reader.Take(bytes, length) != 0;
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

Inquiry::Inquiry(const RequestChoice& choice, SCA_Event* cancel)
    : choice_(choice), cancel_(cancel) {
  settings_.SetNetworkTimeout(kSilenceMs);
}

std::optional<Reason> Inquiry::Ask(const std::string& server, const std::string& path,
                                   const std::string& name) {
  HostPort address;
  if (mute_.count(server) != 0 || !ParseHostPort(server, 0, &address).empty()) return std::nullopt;
  SCA_TikaClient client(&settings_, address.host.c_str(), address.port);
  client.SetCancelEvent(cancel_);
  client.SetServerVersion(versions_[server]);
  SCA_TikaRequestOptions options = OptionsFor(choice_, name);
  options.content = SCA_TikaContent::Metadata;
  Answer answer;
  unsigned long length = 0;
  unsigned long error = 0;
  const bool isAnswered = client.InitDataBuffer() != 0 && Reach(&client) &&
                          client.GetFileText(path.c_str(), options, &TakeAnswer, &answer, cancel_,
                                             &length, &error) != 0 &&
                          answer.reader.Finish() != 0;
  versions_[server] = client.GetServerVersion();
  if (!isAnswered) {
    mute_.insert(server);
    return std::nullopt;
  }
  // A document that is whole now was refused for another reason.
  const SCA_TikaFinding finding = answer.judge.judge.GetFinding();
  if (finding == SCA_TikaFinding::Complete) return std::nullopt;
  return Reason{finding, answer.judge.judge.GetCause(), std::move(answer.judge.metadata)};
}
