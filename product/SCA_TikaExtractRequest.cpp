#include "product/SCA_TikaExtractRequest.h"

#include <cstring>
#include <new>

#include "product/SCA_TikaDispatch.h"

namespace {

std::unique_ptr<char[]> Copy(const char* text) {
  if (text == nullptr) return nullptr;
  const std::size_t size = std::strlen(text) + 1;
  std::unique_ptr<char[]> copy(new (std::nothrow) char[size]);
  if (copy != nullptr) std::memcpy(copy.get(), text, size);
  return copy;
}

}  // namespace

const char* SCA_TikaOutcomeText(SCA_TikaOutcome outcome) {
  switch (outcome) {
    case SCA_TikaOutcome::None:
      return "none";
    case SCA_TikaOutcome::Extracted:
      return "extracted";
    case SCA_TikaOutcome::Refused:
      return "refused";
    case SCA_TikaOutcome::ServerFailed:
      return "server failed";
    case SCA_TikaOutcome::ConnectionBroken:
      return "connection broken";
    case SCA_TikaOutcome::ServersDied:
      return "servers died";
    case SCA_TikaOutcome::TimedOut:
      return "timed out";
    case SCA_TikaOutcome::TimeLimit:
      return "time limit";
    case SCA_TikaOutcome::Cancelled:
      return "cancelled";
    case SCA_TikaOutcome::FileFailed:
      return "file failed";
    case SCA_TikaOutcome::SinkFailed:
      return "sink failed";
    case SCA_TikaOutcome::NoServer:
      return "no server";
    case SCA_TikaOutcome::OptionRefused:
      return "option refused";
  }
  return "none";
}

void SCA_TikaTextSink::Finish(SCA_TikaExtractRequest* /*request*/) {}

SCA_TikaExtractRequest::SCA_TikaExtractRequest(const char* path, const char* fileExt,
                                               const char* poolName, SCA_TikaTextSink* sink)
    : SCA_TikaClientRequest(fileExt, poolName), path_(Copy(path)), sink_(sink) {
  const bool isComplete = path_ != nullptr && sink_ != nullptr && cancel_.IsValid() != 0;
  SetValid(IsValid() != 0 && isComplete ? 1 : 0);
}

SCA_TikaExtractRequest::SCA_TikaExtractRequest(const char* path, const char* fileExt,
                                               const char* poolName, SCA_TikaTextSink* sink,
                                               const SCA_TikaRequestOptions& options)
    : SCA_TikaExtractRequest(path, fileExt, poolName, sink) {
  try {
    options_ = std::make_unique<const SCA_TikaRequestOptions>(options);
  } catch (const std::bad_alloc&) {
    SetValid(0);
  }
}

SCA_TikaExtractRequest::~SCA_TikaExtractRequest() {
  // A request that the queue deletes, because its requester has marked it as abandoned.
  if (SCA_TikaTicket* ticket = ticket_.Get()) ticket->dispatch->Forget(ticket);
}
