#include "product/SCA_TikaDispatcher.h"

#include <new>

#include "product/SCA_TikaDispatch.h"

namespace {

int Result(unsigned long code, unsigned long* error) {
  if (code != 0) *error = code;
  return code == 0 ? 1 : 0;
}

}  // namespace

SCA_TikaDispatcher::SCA_TikaDispatcher(SCA_TikaConfigOrv* settings,
                                       const SCA_TikaDispatchLimits& limits)
    : dispatch_(settings != nullptr ? new (std::nothrow) SCA_TikaDispatch(settings, limits)
                                    : nullptr) {
  SetValid(dispatch_ != nullptr && dispatch_->Start() ? 1 : 0);
}

SCA_TikaDispatcher::~SCA_TikaDispatcher() = default;

void SCA_TikaDispatcher::SetPrepareServer(SCA_TikaPrepareServer prepare, void* context) {
  dispatch_->SetPrepareServer(prepare, context);
}

int SCA_TikaDispatcher::AddServer(const char* hostName, unsigned short port,
                                  unsigned long serviceId, unsigned long* error) {
  return Result(dispatch_->AddServer(hostName, port, serviceId), error);
}

int SCA_TikaDispatcher::Submit(SCA_TikaExtractRequest* request, int wait, unsigned long* error) {
  return Result(dispatch_->Submit(request, wait != 0), error);
}

void SCA_TikaDispatcher::Cancel(SCA_TikaExtractRequest* request) {
  dispatch_->Cancel(request);
}

void SCA_TikaDispatcher::CancelAll() {
  dispatch_->CancelAll();
}

void SCA_TikaDispatcher::Abandon(SCA_TikaExtractRequest* request) {
  dispatch_->Abandon(request);
}

void SCA_TikaDispatcher::Stop() {
  dispatch_->Stop();
}

unsigned long SCA_TikaDispatcher::GetPendingRequests() const {
  return dispatch_->Pending();
}

int SCA_TikaDispatcher::GetStatus(SCA_ConfigObj* obj) {
  return dispatch_->GetStatus(obj);
}
