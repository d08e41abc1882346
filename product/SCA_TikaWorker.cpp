#include <algorithm>
#include <cerrno>
#include <new>

#include "platform/SCA_Error.h"
#include "platform/SCA_Text.h"
#include "product/SCA_TikaDispatch.h"

namespace {

constexpr unsigned long kFirstHttpCode = 200;
constexpr unsigned long kFirstRefusal = 400;
constexpr unsigned long kNotFound = 404;
constexpr unsigned long kFirstFailure = 500;
constexpr unsigned long kUnavailable = 503;

// However short the delays are: a server that is down must not be asked without pause.
constexpr unsigned long kLeastDelayMs = 5;

// A Tika server listens before its services are there, and answers 404 until then.
bool IsComingUp(unsigned long code) {
  return code == kNotFound || code == kUnavailable;
}

// Of the replies that arrive before the upload is complete those that are about the file.
bool IsRefusal(unsigned long code) {
  return code >= kFirstRefusal && code < kFirstFailure && !IsComingUp(code);
}

// What is not an error of the system is one that the server's answer showed.
bool IsAnswer(unsigned long code) {
  return code >= kFirstHttpCode && code != SCA_ErrorCancelled;
}

SCA_TikaTryEnd Classify(const SCA_TikaVerdict& verdict, unsigned long refusalCode) {
  if (verdict.outcome == SCA_TikaOutcome::ConnectionBroken) return SCA_TikaTryEnd::Broken;
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
  bool isRefused = false;  // by the sink
};

SCA_TikaWorker::SCA_TikaWorker(SCA_TikaDispatch* dispatch, const char* hostName,
                               unsigned short port, unsigned long serviceId)
    : dispatch_(dispatch),
      hostName_(hostName),
      port_(port),
      serviceId_(serviceId),
      name_(NameOf(hostName, port)),
      delayMs_(dispatch->Limits().firstDelayMs),
      random_(std::random_device()()) {}

void SCA_TikaWorker::Start() {
  thread_ = std::thread([this] { Run(); });
}

void SCA_TikaWorker::Join() {
  if (thread_.joinable()) thread_.join();
}

bool SCA_TikaWorker::IsServer(const char* hostName, unsigned short port) const {
  return port == port_ && SCA_StrCompareNoCase(hostName, hostName_.c_str()) != 0;
}

void SCA_TikaWorker::Run() {
  while (stop_.Wait(0) == 0) {
    if (!IsReady() && !MakeReady(proof_)) {
      WaitBeforeNextTry();
      continue;
    }
    const unsigned long seen = dispatch_->Work();
    if (SCA_TikaExtractRequest* request = dispatch_->Take(this)) {
      if (!Serve(request)) WaitBeforeNextTry();
    } else {
      Park(seen);
    }
  }
  dispatch_->HasEnded(this);
}

// Waits in the pool for work.
void SCA_TikaWorker::Park(unsigned long seen) {
  SCA_TikaClientList& pool = dispatch_->Pool();
  if (clientId_) {
    pool.AddClient(client_.get(), *clientId_);
  } else if (unsigned long id = 0; pool.AddClient(client_.get(), &id) != 0) {
    clientId_ = id;
  }
  if (dispatch_->BeginIdle(this, seen)) {
    wake_.Wait(SCA_Infinite);
    dispatch_->EndIdle(this);
  }
  if (clientId_) pool.RemoveClient(*clientId_);
}

bool SCA_TikaWorker::IsReady() const {
  return client_ != nullptr && client_->IsValid() != 0 && client_->IsConnected() != 0 &&
         Clock::now() - usedAt_ < std::chrono::milliseconds(dispatch_->Limits().idleMs) &&
         client_->IsUsable() != 0;
}

// Makes a new connection.
// @param proof  Whether the server must answer first. What lies between may take connections for
//               a server that is gone, and break them.
bool SCA_TikaWorker::MakeReady(Proof proof) {
  unsigned long error = SCA_ErrorCannotCreate;
  if (RenewClient(&error)) {
    client_->Disconnect();
    if (dispatch_->Prepare(client_.get(), &stop_, &error) != 0 &&
        (proof == Proof::None || Answers(&error)) && Connect(&error)) {
      dispatch_->ServerIsUp(this);
      usedAt_ = Clock::now();
      proof_ = Proof::None;
      return true;
    }
  }
  dispatch_->ServerIsDown(this, error);
  return false;
}

bool SCA_TikaWorker::Connect(unsigned long* error) {
  return client_->Connect(dispatch_->Limits().connectMs, error) != 0;
}

bool SCA_TikaWorker::Answers(unsigned long* error) {
  if (!Connect(error)) return false;
  char version[101];
  dispatch_->BeginAsk(this, &askEnds_);
  client_->SetCancelEvent(&askEnds_);
  const bool answers = client_->GetVersion(version, sizeof version, error) != 0 ||
                       (IsAnswer(*error) && !IsComingUp(*error));
  client_->SetCancelEvent(&stop_);
  dispatch_->EndAsk(this);
  if (!answers && *error == SCA_ErrorCancelled) *error = ETIMEDOUT;
  client_->Disconnect();
  return answers;
}

// Replaces the client when there is none that can be trusted.
bool SCA_TikaWorker::RenewClient(unsigned long* error) {
  if (client_ != nullptr && client_->IsValid() != 0) return true;
  client_.reset(new (std::nothrow) SCA_TikaClient(dispatch_->Settings(), hostName_.c_str(), port_));
  if (client_ == nullptr || client_->IsValid() == 0 || client_->InitDataBuffer() == 0) {
    client_.reset();
    *error = ENOMEM;
    return false;
  }
  client_->SetServiceId(serviceId_);
  if (clientId_) client_->SetClientId(*clientId_);
  client_->SetCancelEvent(&stop_);
  return true;
}

// The delay grows, and differs from worker to worker: a server that comes back is not met by all at
// once.
void SCA_TikaWorker::WaitBeforeNextTry() {
  const unsigned long delayMs = std::max(delayMs_, kLeastDelayMs);
  std::uniform_int_distribution<unsigned long> around(delayMs / 2, delayMs + delayMs / 2);
  stop_.Wait(around(random_));
  delayMs_ = std::min(delayMs * 2, dispatch_->Limits().lastDelayMs);
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

// @return False when the server was of no use, and is to be left alone for a while.
bool SCA_TikaWorker::Serve(SCA_TikaExtractRequest* request) {
  if (request->IsSuspect() && !MakeReady(Proof::Answer)) {
    // A connection alone must not make the server count as up again.
    proof_ = Proof::Answer;
    dispatch_->EndTry(request, SCA_TikaTryEnd::NotBegun);
    dispatch_->Retry(request);
    return false;
  }
  Delivery delivery{request->GetSink(), dispatch_->Limits().textBytes};
  SCA_TikaVerdict verdict = Extract(request, &delivery);
  const SCA_TikaTryEnd end = Classify(verdict, request->refusalCode_);
  if (end == SCA_TikaTryEnd::Final) delayMs_ = dispatch_->Limits().firstDelayMs;
  if (end == SCA_TikaTryEnd::Broken) proof_ = Proof::Answer;
  bool isAgain = dispatch_->EndTry(request, end);
  if (isAgain && delivery.length > 0 && request->GetSink()->Restart() == 0) {
    verdict = RefusedBySink();
    isAgain = false;
  } else if (end == SCA_TikaTryEnd::Broken) {
    verdict = SCA_TikaVerdict::Make(SCA_TikaOutcome::ServersDied, SCA_ErrorServersDied,
                                    name_.c_str(), SCA_ErrorText(SCA_ErrorServersDied));
  }
  if (isAgain) {
    dispatch_->Retry(request);
  } else {
    dispatch_->Finish(request, verdict);
  }
  return end != SCA_TikaTryEnd::NotReady;
}

// One try, and how the request ends if it is the last.
SCA_TikaVerdict SCA_TikaWorker::Extract(SCA_TikaExtractRequest* request, Delivery* delivery) {
  SCA_CopyText(request->serverName_, name_.c_str(), SCA_TextFit::Cut);
  dispatch_->BeginTry(request, client_.get());
  if (request->GetCancel()->Wait(0) != 0) return Judge(*request, *delivery, SCA_ErrorCancelled);
  unsigned long length = 0;
  unsigned long error = 0;
  const bool isExtracted =
      client_->GetFileText(dispatch_->Limits().variant, request->GetPath(), nullptr, &Deliver,
                           delivery, request->GetCancel(), &length, &error) != 0;
  request->fileSize_ = client_->GetLastFileSize();
  request->refusalCode_ = client_->GetRefusalCode();
  usedAt_ = Clock::now();
  if (isExtracted) {
    request->textLength_ = delivery->length;
    return SCA_TikaVerdict::Make(SCA_TikaOutcome::Extracted, 0, nullptr, "");
  }
  // The connection may hold half an exchange; the next file gets a new one.
  client_->Disconnect();
  return Judge(*request, *delivery, error);
}

SCA_TikaVerdict SCA_TikaWorker::Judge(const SCA_TikaExtractRequest& request,
                                      const Delivery& delivery, unsigned long error) {
  using Outcome = SCA_TikaOutcome;
  const char* const server = name_.c_str();
  const char* const text = SCA_ErrorText(error);
  if (delivery.isRefused) return RefusedBySink();
  if (delivery.isTooLong) {
    return SCA_TikaVerdict::Make(Outcome::ServerFailed, SCA_ErrorTextTooLong, server,
                                 SCA_ErrorText(SCA_ErrorTextTooLong));
  }
  if (error == SCA_ErrorCancelled) {
    if (!dispatch_->IsOverdue(request)) {
      return SCA_TikaVerdict::Make(Outcome::Cancelled, error, nullptr, text);
    }
    return SCA_TikaVerdict::Make(Outcome::TimeLimit, SCA_ErrorTimeLimit, server,
                                 SCA_ErrorText(SCA_ErrorTimeLimit));
  }
  if (request.refusalCode_ >= kFirstRefusal) {
    const bool isRefusal = IsRefusal(request.refusalCode_);
    return SCA_TikaVerdict::Make(isRefusal ? Outcome::Refused : Outcome::ServerFailed, error,
                                 server, SCA_ErrorText(request.refusalCode_))
        .Tell(" before it had read the file");
  }
  if (error == SCA_ErrorTika422)
    return SCA_TikaVerdict::Make(Outcome::Refused, error, server, text);
  // A failure that left the client valid came from the file.
  if (client_->IsValid() != 0) {
    return SCA_TikaVerdict::Make(Outcome::FileFailed, error, nullptr, text);
  }
  if (error == ETIMEDOUT) return SCA_TikaVerdict::Make(Outcome::TimedOut, error, server, text);
  if (IsAnswer(error)) {
    return SCA_TikaVerdict::Make(Outcome::ServerFailed, error, server, text);
  }
  return SCA_TikaVerdict::Make(Outcome::ConnectionBroken, error, server, text);
}
