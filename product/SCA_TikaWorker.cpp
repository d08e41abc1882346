#include <algorithm>
#include <cerrno>
#include <new>

#include "platform/SCA_Error.h"
#include "platform/SCA_Text.h"
#include "product/SCA_TikaDispatch.h"

namespace {

constexpr unsigned long kFirstHttpCode = 200;
constexpr unsigned long kLastHttpCode = 999;
constexpr unsigned long kFirstRefusal = 400;
constexpr unsigned long kNotFound = 404;
constexpr unsigned long kUnavailable = 503;

// A Tika server listens before its services are there, and answers 404 until then.
bool IsComingUp(unsigned long code) {
  return code == kNotFound || code == kUnavailable;
}

std::string NameOf(const char* hostName, unsigned short port) {
  const std::string host = hostName;
  const bool isV6 = host.find(':') != std::string::npos;
  return (isV6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

}  // namespace

// Where the text of an extraction goes, and what came of it.
struct SCA_TikaWorker::Delivery {
  SCA_TikaTextSink* sink;
  bool hasText = false;
  bool isRefused = false;  // by the sink
};

SCA_TikaWorker::SCA_TikaWorker(SCA_TikaDispatch* dispatch, unsigned long number,
                               const char* hostName, unsigned short port, unsigned long serviceId,
                               unsigned long server)
    : dispatch_(dispatch),
      number_(number),
      hostName_(hostName),
      port_(port),
      serviceId_(serviceId),
      server_(server),
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

bool SCA_TikaWorker::MayServe(const SCA_TikaExtractRequest& request) const {
  return request.failedServer_ != server_ && request.MatchServiceId(serviceId_) != 0;
}

void SCA_TikaWorker::Run() {
  while (dispatch_->StopEvent().Wait(0) == 0) {
    if (!IsReady() && !MakeReady()) {
      WaitBeforeNextTry();
      continue;
    }
    const unsigned long seen = dispatch_->Work();
    if (SCA_TikaExtractRequest* request = dispatch_->Take(*this)) {
      Serve(request);
    } else {
      Park(seen);
    }
  }
}

// Waits in the pool for work.
void SCA_TikaWorker::Park(unsigned long seen) {
  SCA_TikaClientList& pool = dispatch_->Pool();
  if (clientId_) {
    pool.AddClient(client_.get(), *clientId_);
  } else if (unsigned long id = 0; pool.AddClient(client_.get(), &id) != 0) {
    clientId_ = id;
  }
  if (dispatch_->BeginIdle(*this, seen)) {
    wake_.Wait(SCA_Infinite);
    dispatch_->EndIdle(*this);
  }
  if (clientId_) pool.RemoveClient(*clientId_);
}

bool SCA_TikaWorker::IsReady() const {
  return client_ != nullptr && client_->IsValid() != 0 && client_->IsConnected() != 0 &&
         Clock::now() - usedAt_ < std::chrono::milliseconds(dispatch_->Limits().idleMs);
}

// Makes a fresh connection.
bool SCA_TikaWorker::MakeReady() {
  unsigned long error = SCA_ErrorCannotCreate;
  if (RenewClient(&error)) {
    client_->Disconnect();
    if (dispatch_->Prepare(client_.get(), &error) != 0 &&
        client_->Connect(dispatch_->Limits().connectMs, &error) != 0) {
      dispatch_->ServerIsUp(*this);
      delayMs_ = dispatch_->Limits().firstDelayMs;
      usedAt_ = Clock::now();
      isReused_ = false;
      return true;
    }
  }
  dispatch_->ServerIsDown(*this, error);
  return false;
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
  client_->SetCancelEvent(&dispatch_->StopEvent());
  return true;
}

// The delay grows, and differs from worker to worker: a server that comes back is not met by all at
// once.
void SCA_TikaWorker::WaitBeforeNextTry() {
  std::uniform_int_distribution<unsigned long> around(delayMs_ / 2, delayMs_ + delayMs_ / 2);
  dispatch_->StopEvent().Wait(around(random_));
  delayMs_ = std::min(delayMs_ * 2, dispatch_->Limits().lastDelayMs);
}

int SCA_TikaWorker::Deliver(const char* text, unsigned long length, unsigned long offset,
                            void* context) {
  auto* const delivery = static_cast<Delivery*>(context);
  delivery->hasText = true;
  delivery->isRefused = delivery->sink->Write(text, length, offset) == 0;
  return delivery->isRefused ? 0 : 1;
}

void SCA_TikaWorker::Serve(SCA_TikaExtractRequest* request) {
  SCA_CopyText(request->server_, name_.c_str(), SCA_TextFit::Cut);
  Delivery delivery{request->GetSink()};
  unsigned long length = 0;
  unsigned long error = SCA_ErrorCancelled;
  const bool wasReused = isReused_;
  bool isExtracted = false;
  if (request->GetCancel()->Wait(0) == 0) {
    request->SetClient(client_.get());
    isExtracted =
        client_->GetFileText(dispatch_->Limits().variant, request->GetPath(), nullptr, &Deliver,
                             &delivery, request->GetCancel(), &length, &error) != 0;
    request->SetClient(nullptr);
    request->fileSize_ = client_->GetLastFileSize();
    request->refusalCode_ = client_->GetRefusalCode();
    usedAt_ = Clock::now();
    isReused_ = true;
    // The connection may hold half an exchange; the next file gets a fresh one.
    if (!isExtracted) client_->Disconnect();
  }
  if (isExtracted) {
    request->textLength_ = length;
    dispatch_->Finish(request, SCA_TikaVerdict::Make(SCA_TikaOutcome::Extracted, 0, nullptr, ""));
    return;
  }
  SCA_TikaVerdict verdict = Judge(*request, delivery, error);
  const bool isComingUp = IsComingUp(error) || IsComingUp(request->refusalCode_);
  // The server may also have closed a connection that it had kept since the file before.
  const bool isBroken = verdict.outcome == SCA_TikaOutcome::ConnectionBroken;
  if ((isComingUp || isBroken) && TryAgain(request, &delivery, wasReused || isComingUp)) {
    if (isComingUp) WaitBeforeNextTry();
    return;
  }
  if (delivery.isRefused) verdict = Judge(*request, delivery, error);
  dispatch_->Finish(request, verdict);
}

// Hands a request to another server: its connection broke, or its server was not ready for it.
// @param mayStay  Whether the same server may have it again when there is no other.
// @return False when it has had its second try, or there is nowhere to go; or the sink refused.
bool SCA_TikaWorker::TryAgain(SCA_TikaExtractRequest* request, Delivery* delivery, bool mayStay) {
  if (request->tries_ > 1) return false;
  const bool hasOther = dispatch_->HasOtherServer(*request, *this);
  const bool mayReturn = mayStay && !delivery->hasText;
  if (!hasOther && !mayReturn) return false;
  delivery->isRefused = delivery->hasText && request->GetSink()->Restart() == 0;
  if (delivery->isRefused) return false;
  dispatch_->Retry(request, hasOther ? server_ : SCA_TikaExtractRequest::kNoServer);
  return true;
}

SCA_TikaVerdict SCA_TikaWorker::Judge(const SCA_TikaExtractRequest& request,
                                      const Delivery& delivery, unsigned long error) {
  using Outcome = SCA_TikaOutcome;
  const char* const server = name_.c_str();
  const char* const text = SCA_ErrorText(error);
  if (delivery.isRefused) {
    return SCA_TikaVerdict::Make(Outcome::SinkFailed, SCA_ErrorCancelled, nullptr,
                                 "the receiver of the text refused to go on");
  }
  if (error == SCA_ErrorCancelled) {
    if (!dispatch_->IsOverdue(request)) {
      return SCA_TikaVerdict::Make(Outcome::Cancelled, error, nullptr, text);
    }
    return SCA_TikaVerdict::Make(Outcome::TimeLimit, SCA_ErrorTimeLimit, server,
                                 SCA_ErrorText(SCA_ErrorTimeLimit));
  }
  if (request.refusalCode_ >= kFirstRefusal) {
    return SCA_TikaVerdict::Make(Outcome::Refused, error, server,
                                 SCA_ErrorText(request.refusalCode_))
        .Tell(" before it had read the file");
  }
  if (error == SCA_ErrorTika422)
    return SCA_TikaVerdict::Make(Outcome::Refused, error, server, text);
  // A failure that left the client valid came from the file.
  if (client_->IsValid() != 0) {
    return SCA_TikaVerdict::Make(Outcome::FileFailed, error, nullptr, text);
  }
  if (error == ETIMEDOUT) return SCA_TikaVerdict::Make(Outcome::TimedOut, error, server, text);
  if (error >= kFirstHttpCode &&
      (error <= kLastHttpCode || error == SCA_ErrorTika500 || error == SCA_ErrorInvalidData ||
       error == SCA_ErrorHeaderTooLong)) {
    return SCA_TikaVerdict::Make(Outcome::ServerFailed, error, server, text);
  }
  if (request.failedServer_ == SCA_TikaExtractRequest::kNoServer) {
    return SCA_TikaVerdict::Make(Outcome::ConnectionBroken, error, server, text);
  }
  return SCA_TikaVerdict::Make(Outcome::ServersDied, SCA_ErrorServersDied, server,
                               SCA_ErrorText(SCA_ErrorServersDied));
}
