#include "product/SCA_TikaDispatcher.h"

#include <cerrno>
#include <exception>

#include "platform/SCA_Result.h"
#include "product/SCA_TikaDispatch.h"

namespace {

int Result(unsigned long code, unsigned long* error) {
  if (code != 0) *error = code;
  return code == 0 ? 1 : 0;
}

}  // namespace

SCA_TikaDispatcher::SCA_TikaDispatcher(SCA_TikaConfigOrv* settings,
                                       const SCA_TikaDispatchLimits& limits) {
  if (settings == nullptr) return;
  try {
    auto dispatch = std::make_unique<SCA_TikaDispatch>(settings, limits);
    if (!dispatch->Start()) return;
    dispatch_ = std::move(dispatch);
    SetValid(1);
  } catch (const std::exception&) {
    // Without memory or threads there is no dispatch.
  }
}

SCA_TikaDispatcher::~SCA_TikaDispatcher() = default;

void SCA_TikaDispatcher::SetPrepareServer(SCA_TikaPrepareServer prepare, void* context) {
  if (dispatch_ != nullptr) dispatch_->SetPrepareServer(prepare, context);
}

int SCA_TikaDispatcher::AddServer(const char* hostName, unsigned short port,
                                  unsigned long serviceId, unsigned long* error) {
  if (dispatch_ == nullptr) return SCA_Fail(ENOMEM, error);
  return Result(dispatch_->AddServer(hostName, port, serviceId), error);
}

int SCA_TikaDispatcher::RemoveServer(const char* hostName, unsigned short port,
                                     unsigned long serviceId, unsigned long* error) {
  if (dispatch_ == nullptr) return SCA_Fail(ENOMEM, error);
  return Result(dispatch_->RemoveServer(hostName, port, serviceId), error);
}

int SCA_TikaDispatcher::Submit(SCA_TikaExtractRequest* request, int wait, unsigned long* error) {
  if (dispatch_ == nullptr) return SCA_Fail(ENOMEM, error);
  return Result(dispatch_->Submit(request, wait != 0), error);
}

void SCA_TikaDispatcher::Cancel(SCA_TikaExtractRequest* request) {
  if (dispatch_ != nullptr) dispatch_->Cancel(request);
}

void SCA_TikaDispatcher::CancelAll() {
  if (dispatch_ != nullptr) dispatch_->CancelAll();
}

void SCA_TikaDispatcher::Abandon(SCA_TikaExtractRequest* request) {
  if (dispatch_ != nullptr) {
    dispatch_->Abandon(request);
  } else {
    request->Destroy();
  }
}

void SCA_TikaDispatcher::Stop() {
  if (dispatch_ != nullptr) dispatch_->Stop();
}

unsigned long SCA_TikaDispatcher::GetPendingRequests() const {
  return dispatch_ != nullptr ? dispatch_->Pending() : 0;
}

int SCA_TikaDispatcher::GetStatus(SCA_ConfigObj* obj) {
  return dispatch_ != nullptr ? dispatch_->GetStatus(obj) : 0;
}
