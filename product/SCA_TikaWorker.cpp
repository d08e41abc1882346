#include "product/SCA_TikaWorker.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>

#include "platform/SCA_Error.h"
#include "platform/SCA_TcpSock.h"
#include "platform/SCA_Text.h"

namespace {

constexpr unsigned long kFirstHttpCode = 200;
constexpr unsigned long kFirstRefusal = 400;
constexpr unsigned long kNotFound = 404;
constexpr unsigned long kTooLarge = 413;
constexpr unsigned long kTooManyRequests = 429;
constexpr unsigned long kFirstFailure = 500;
constexpr unsigned long kUnavailable = 503;

// Before a server that is busy is asked again, at least: one that asks for no pause would get the
// whole file again and again.
constexpr unsigned long kBusyPauseMs = 1000;

// A lower limit for all delays: a server that is down must not be asked without a pause.
constexpr unsigned long kLeastDelayMs = 5;

// A Tika server listens before its services are there, and answers 404 until then.
bool IsComingUp(unsigned long code) {
  return code == kNotFound || code == kUnavailable;
}

// Of the replies that arrive before the upload is complete those that are about the file.
bool IsRefusal(unsigned long code) {
  return code >= kFirstRefusal && code < kFirstFailure && !IsComingUp(code) &&
         code != kTooManyRequests;
}

// What is not an error of the system is one that the server's answer showed.
bool IsAnswer(unsigned long code) {
  return code >= kFirstHttpCode && code != SCA_ErrorCancelled;
}

// @param refusalCode  Of an answer that came before the file had been read; 0 for none.
// @param retryAfterS  As a client tells it. A server that is starting does not say when it is
// ready.
SCA_TikaTryEnd Classify(const SCA_TikaVerdict& verdict, unsigned long refusalCode,
                        long retryAfterS) {
  const unsigned long code = refusalCode != 0 ? refusalCode : verdict.code;
  if (verdict.outcome == SCA_TikaOutcome::ServerFailed) {
    if (code == kTooManyRequests) return SCA_TikaTryEnd::Busy;
    if (code == kUnavailable && retryAfterS >= 0) return SCA_TikaTryEnd::Crashed;
  }
  if (verdict.outcome == SCA_TikaOutcome::ConnectionBroken) return SCA_TikaTryEnd::Broken;
  if (verdict.outcome == SCA_TikaOutcome::Cancelled) return SCA_TikaTryEnd::Cancelled;
  return IsComingUp(verdict.code) || IsComingUp(refusalCode) ? SCA_TikaTryEnd::NotReady
                                                             : SCA_TikaTryEnd::Final;
}

SCA_TikaVerdict RefusedBySink() {
  return SCA_TikaVerdict::Make(SCA_TikaOutcome::SinkFailed, SCA_ErrorCancelled, nullptr,
                               "the receiver of the text refused to go on");
}

std::string NameOf(const char* hostName, unsigned short port) {
  char name[SCA_HostPortSize];
  SCA_FormatHostPort(hostName, port, name, sizeof name);
  return name;
}

}  // namespace

// Where the text of an extraction goes, and what came of it.
struct SCA_TikaWorker::Delivery {
  SCA_TikaTextSink* sink;
  unsigned long long limit;       // bytes; 0 for none
  unsigned long long length = 0;  // bytes delivered
  bool isTooLong = false;
  bool isRefused = false;         // by the sink
  unsigned long refusalCode = 0;  // of the server, before it had read the file
};

SCA_TikaWorker::SCA_TikaWorker(SCA_TikaWorkplace* workplace, const char* hostName,
                               unsigned short port, unsigned long serviceId)
    : workplace_(workplace),
      hostName_(hostName),
      port_(port),
      serviceId_(serviceId),
      name_(NameOf(hostName, port)),
      delayMs_(workplace->Terms().limits.firstDelayMs),
      random_(std::random_device()()) {}

void SCA_TikaWorker::Start() {
  // Without its events nothing could end it.
  if (stop_.IsValid() == 0 || wake_.IsValid() == 0 || askEnds_.IsValid() == 0) {
    throw std::bad_alloc();
  }
  thread_ = std::thread([this] { Run(); });
}

void SCA_TikaWorker::Join() {
  if (thread_.joinable()) thread_.join();
}

void SCA_TikaWorker::RequestStop() {
  stop_.Set();
  Wake();
}

bool SCA_TikaWorker::IsServer(const char* hostName, unsigned short port) const {
  return port == port_ && SCA_StrCompareNoCase(hostName, hostName_.c_str()) != 0;
}

void SCA_TikaWorker::Run() {
  while (stop_.Wait(0) == 0) {
    if (!IsReady()) {
      // A connection that the server has closed may be that of a process which is gone.
      if (client_ != nullptr && client_->IsConnected() != 0 && client_->IsUsable() == 0) {
        client_->SetServerVersion({});
        if (unready_ != 0) silentSince_.reset();
      }
      if (!MakeReady(proof_)) {
        WaitBeforeNextTry();
        continue;
      }
    }
    if (SCA_TikaTicket* ticket = workplace_->Take(this)) {
      if (!Serve(ticket)) WaitBeforeNextTry();
    } else {
      workplace_->Rest(this);
    }
  }
  workplace_->HasEnded(this);
}

bool SCA_TikaWorker::IsReady() const {
  // What a starting server said before the worker rested may be out of date.
  return unready_ == 0 && client_ != nullptr && client_->IsValid() != 0 &&
         client_->IsConnected() != 0 &&
         Clock::now() - usedAt_ < std::chrono::milliseconds(workplace_->Terms().limits.idleMs) &&
         client_->IsUsable() != 0;
}

// Makes a new connection.
// @param proof  Whether the server must answer first. A proxy may accept connections for a server
//               that has ended, and break them.
bool SCA_TikaWorker::MakeReady(Proof proof) {
  unsigned long error = SCA_ErrorCannotCreate;
  if (RenewClient(&error)) {
    client_->Disconnect();
    if (Prepare(&error) && Answers(proof, &error) && Connect(&error)) {
      workplace_->ServerIsUp(this);
      usedAt_ = Clock::now();
      proof_ = Proof::None;
      return true;
    }
  }
  // What answers there next may be another server; one that answers 404 is there still.
  const auto silentSince = silentSince_;
  Forget();
  if (error == kNotFound) silentSince_ = silentSince;
  workplace_->ServerIsDown(this, error);
  return false;
}

// What a server has told holds for one start of it. Where a connection was refused or broke,
// another start may follow.
void SCA_TikaWorker::Forget() {
  if (client_ != nullptr) client_->SetServerVersion({});
  silentSince_.reset();
}

// Notes that the server answered 404 to the question for its version.
// @return True when it has done so for longer than a server takes to start, as a proxy does that
// passes on nothing but documents: it then has a version that is not known.
bool SCA_TikaWorker::IsSilentForGood() {
  const Clock::time_point now = Clock::now();
  if (!silentSince_) silentSince_ = now;
  return now - *silentSince_ >= std::chrono::milliseconds(workplace_->Terms().limits.notReadyMs);
}

bool SCA_TikaWorker::Prepare(unsigned long* error) {
  const SCA_TikaWorkTerms& terms = workplace_->Terms();
  return terms.prepare == nullptr ||
         terms.prepare(client_.get(), &stop_, terms.prepareContext, error) != 0;
}

bool SCA_TikaWorker::Connect(unsigned long* error) {
  return client_->Connect(workplace_->Terms().limits.connectMs, error) != 0;
}

// Asks the server for its version, unless that is known and no proof is wanted. The version decides
// the path of a request, and whatever comes back after a break may be another one.
// @param proof  `Answer`: a server that is starting does not count.
bool SCA_TikaWorker::Answers(Proof proof, unsigned long* error) {
  unready_ = 0;
  if (proof == Proof::None && client_->GetServerVersion().IsKnown()) return true;
  if (!Connect(error)) return false;
  client_->SetServerVersion({});
  char version[101];
  workplace_->BeginAsk(this, &askEnds_);
  client_->SetCancelEvent(&askEnds_);
  const bool isTold = client_->GetVersion(version, sizeof version, error) != 0;
  bool answers = isTold || (IsAnswer(*error) && !IsComingUp(*error));
  if (!isTold && *error == kNotFound) {
    answers = IsSilentForGood();
  } else {
    silentSince_.reset();
  }
  if (!answers && IsComingUp(*error) && proof == Proof::None) {
    unready_ = *error;
    answers = true;
  }
  client_->SetCancelEvent(&stop_);
  workplace_->EndAsk(this);
  if (!answers && *error == SCA_ErrorCancelled) *error = ETIMEDOUT;
  client_->Disconnect();
  return answers;
}

// Replaces the client when there is none that can be trusted.
bool SCA_TikaWorker::RenewClient(unsigned long* error) {
  if (client_ != nullptr && client_->IsValid() != 0) return true;
  const SCA_TikaVersion version =
      client_ != nullptr ? client_->GetServerVersion() : SCA_TikaVersion();
  client_.reset(new (std::nothrow)
                    SCA_TikaClient(workplace_->Terms().settings, hostName_.c_str(), port_));
  if (client_ == nullptr || client_->IsValid() == 0 || client_->InitDataBuffer() == 0) {
    client_.reset();
    *error = ENOMEM;
    return false;
  }
  client_->SetServerVersion(version);
  client_->SetServiceId(serviceId_);
  client_->SetCancelEvent(&stop_);
  return true;
}

// The delay grows, and differs from worker to worker: a server that comes back is not met by all at
// once.
void SCA_TikaWorker::WaitBeforeNextTry() {
  const unsigned long delayMs = std::max(delayMs_, kLeastDelayMs);
  std::uniform_int_distribution<unsigned long> around(delayMs / 2, delayMs + delayMs / 2);
  stop_.Wait(around(random_));
  delayMs_ = std::min(delayMs * 2, workplace_->Terms().limits.lastDelayMs);
}

int SCA_TikaWorker::Deliver(const char* text, unsigned long length, unsigned long offset,
                            void* context) {
  auto* const delivery = static_cast<Delivery*>(context);
  delivery->isTooLong = delivery->limit != 0 && length > delivery->limit - delivery->length;
  if (delivery->isTooLong) return 0;
  delivery->length += length;
  delivery->isRefused = delivery->sink->Write(text, length, offset) == 0;
  return delivery->isRefused ? 0 : 1;
}

// @return False when the server was of no use and should be avoided for a while.
bool SCA_TikaWorker::Serve(SCA_TikaTicket* ticket) {
  if (ticket->IsSuspect() && !MakeReady(Proof::Answer)) {
    // A mere connection must not make the server count as reachable again.
    proof_ = Proof::Answer;
    workplace_->EndTry(ticket, SCA_TikaTryEnd::NotBegun);
    workplace_->TryAgain(ticket);
    return false;
  }
  Delivery delivery{ticket->request->GetSink(), workplace_->Terms().limits.textBytes};
  SCA_TikaVerdict verdict = Extract(ticket, &delivery);
  const long retryAfterS = client_->GetRetryAfter();
  const SCA_TikaTryEnd end = unready_ == kNotFound && verdict.code == kNotFound
                                 ? SCA_TikaTryEnd::Withheld
                                 : Classify(verdict, delivery.refusalCode, retryAfterS);
  const bool mustPause = end == SCA_TikaTryEnd::Busy || end == SCA_TikaTryEnd::Crashed;
  ticket->pauseMs = retryAfterS < 0 ? kBusyPauseMs : static_cast<unsigned long>(retryAfterS) * 1000;
  if (end == SCA_TikaTryEnd::Busy) ticket->pauseMs = std::max(ticket->pauseMs, kBusyPauseMs);
  const unsigned long pauseMs = mustPause ? ticket->pauseMs : 0;
  if (end == SCA_TikaTryEnd::Final) delayMs_ = workplace_->Terms().limits.firstDelayMs;
  if (end == SCA_TikaTryEnd::Broken) proof_ = Proof::Answer;
  const bool isNotReady = end == SCA_TikaTryEnd::NotReady || end == SCA_TikaTryEnd::Withheld;
  if (end == SCA_TikaTryEnd::Broken) Forget();
  // Another server may start before the next connection.
  if (isNotReady || mustPause) client_->SetServerVersion({});
  SCA_TikaNextStep next = workplace_->EndTry(ticket, end);
  if (next == SCA_TikaNextStep::TryAgain && delivery.length > 0 && delivery.sink->Restart() == 0) {
    verdict = RefusedBySink();
    next = SCA_TikaNextStep::End;
  }
  switch (next) {
    case SCA_TikaNextStep::TryAgain:
      workplace_->TryAgain(ticket);
      Pause(pauseMs);
      return !isNotReady;
    case SCA_TikaNextStep::EndOverdue:
      verdict =
          SCA_TikaVerdict::Make(SCA_TikaOutcome::TimeLimit, SCA_ErrorTimeLimit, name_.c_str());
      break;
    case SCA_TikaNextStep::EndAsKiller:
      verdict =
          SCA_TikaVerdict::Make(SCA_TikaOutcome::ServersDied, SCA_ErrorServersDied, name_.c_str());
      break;
    case SCA_TikaNextStep::End:
      break;
  }
  workplace_->Finish(ticket, verdict);
  Pause(pauseMs);
  return !isNotReady;
}

// Leaves the server alone for as long as it has asked for; a file's time limit bounds what it can
// ask for. Other workers may find that it is free again before.
void SCA_TikaWorker::Pause(unsigned long pauseMs) {
  const unsigned long limit = workplace_->Terms().limits.fileMs;
  if (pauseMs != 0) stop_.Wait(limit != 0 ? std::min(pauseMs, limit) : pauseMs);
}

// One try, and how the request ends if it is the last.
SCA_TikaVerdict SCA_TikaWorker::Extract(SCA_TikaTicket* ticket, Delivery* delivery) {
  SCA_TikaExtractRequest* const request = ticket->request;
  ticket->NoteServer(name_.c_str());
  workplace_->BeginTry(ticket, client_.get());
  if (ticket->IsCancelled()) return Judge(*delivery, SCA_ErrorCancelled);
  // Its answer to the file would be the same, or the text in another form: a server of Tika 4 that
  // becomes ready now would take the request for one for Markdown.
  if (unready_ != 0) {
    client_->Disconnect();
    return SCA_TikaVerdict::Make(SCA_TikaOutcome::ServerFailed, unready_, name_.c_str());
  }
  unsigned long error = 0;
  const bool isExtracted = Send(*request, delivery, &error) != 0;
  delivery->refusalCode = client_->GetRefusalCode();
  ticket->NoteReply(*client_, isExtracted ? delivery->length : 0);
  usedAt_ = Clock::now();
  if (isExtracted) return SCA_TikaVerdict::Make(SCA_TikaOutcome::Extracted, 0, nullptr, "");
  // The connection may hold half an exchange; the next file gets a new one.
  client_->Disconnect();
  SCA_TikaVerdict verdict = Judge(*delivery, error);
  const bool isAnswered = verdict.outcome == SCA_TikaOutcome::Refused ||
                          verdict.outcome == SCA_TikaOutcome::ServerFailed;
  if (isAnswered && client_->GetServerMessage()[0] != '\0') {
    verdict.Tell(": ").Tell(client_->GetServerMessage());
  }
  return verdict;
}

int SCA_TikaWorker::Send(const SCA_TikaExtractRequest& request, Delivery* delivery,
                         unsigned long* error) {
  unsigned long length = 0;
  return request.GetOptions() != nullptr
             ? client_->GetFileText(request.GetPath(), *request.GetOptions(), &Deliver, delivery,
                                    request.GetCancel(), &length, error)
             : client_->GetFileText(workplace_->Terms().limits.variant, request.GetPath(), nullptr,
                                    &Deliver, delivery, request.GetCancel(), &length, error);
}

SCA_TikaVerdict SCA_TikaWorker::RefusedOptions() const {
  const SCA_TikaVersion& version = client_->GetServerVersion();
  char text[300];
  if (version.IsKnown()) {
    std::snprintf(text, sizeof text, "Tika %lu.%lu.%lu cannot follow this option of a request: %s",
                  version.GetMajor(), version.GetMinor(), version.GetPatch(),
                  SCA_TikaOptionNames(client_->GetRefusedOptions()).c_str());
  }
  return SCA_TikaVerdict::Make(
      SCA_TikaOutcome::OptionRefused, SCA_ErrorOptionRefused, name_.c_str(),
      version.IsKnown()
          ? text
          : "the server does not tell its version, without which no options can be sent");
}

SCA_TikaVerdict SCA_TikaWorker::Judge(const Delivery& delivery, unsigned long error) const {
  using Outcome = SCA_TikaOutcome;
  if (delivery.isRefused) return RefusedBySink();
  if (delivery.isTooLong) {
    return SCA_TikaVerdict::Make(Outcome::ServerFailed, SCA_ErrorTextTooLong, name_.c_str());
  }
  if (error == SCA_ErrorCancelled) {
    return SCA_TikaVerdict::Make(Outcome::Cancelled, error, nullptr);
  }
  if (delivery.refusalCode >= kFirstRefusal) {
    const bool isRefusal = IsRefusal(delivery.refusalCode);
    return SCA_TikaVerdict::Make(isRefusal ? Outcome::Refused : Outcome::ServerFailed, error,
                                 name_.c_str(), SCA_ErrorText(delivery.refusalCode))
        .Tell(" before it had read the file");
  }
  if (error == SCA_ErrorOptionRefused) return RefusedOptions();
  if (error == SCA_ErrorTika422 || error == kTooLarge)
    return SCA_TikaVerdict::Make(Outcome::Refused, error, name_.c_str());
  // A failure that left the client valid came from the file.
  if (client_->IsValid() != 0) return SCA_TikaVerdict::Make(Outcome::FileFailed, error, nullptr);
  if (error == ETIMEDOUT) return SCA_TikaVerdict::Make(Outcome::TimedOut, error, name_.c_str());
  if (IsAnswer(error)) return SCA_TikaVerdict::Make(Outcome::ServerFailed, error, name_.c_str());
  return SCA_TikaVerdict::Make(Outcome::ConnectionBroken, error, name_.c_str());
}
