#include "product/SCA_TikaServiceStatus.h"

#include <new>

#include "platform/SCA_Error.h"
#include "platform/SCA_Report.h"

namespace {

constexpr char kSource[] = "SCA_TikaServiceStatus";
// A service that does not answer must not delay a disconnect.
constexpr unsigned long kFarewellTimeoutMs = 5000;

}  // namespace

SCA_TikaServiceStatus::SCA_TikaServiceStatus() {
  SetValid(1);
}

SCA_TikaServiceStatus::~SCA_TikaServiceStatus() {
  DoDisconnect();
}

int SCA_TikaServiceStatus::Init(SCA_TikaService* service) {
  return UpdateService(service);
}

int SCA_TikaServiceStatus::UpdateService(SCA_TikaService* service) {
  if (service_.SetContent(service, 0) != 0) return 1;
  SCA_GetReportFunction(kSource, __LINE__)(
      SCA_LevelError, "SCA_TikaServiceStatus::UpdateService: cannot copy service - %lu",
      service != nullptr ? service->GetServiceId() : SCA_NoItemId);
  return 0;
}

int SCA_TikaServiceStatus::DoConnect(unsigned long* error) {
  if (interface_ != nullptr) {
    SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError,
                                             "SCA_TikaServiceStatus::DoConnect: already connected");
    *error = SCA_ErrorInvalidData;
    return 0;
  }
  SCA_Owned<SCA_TikaInterface> connecting(new (std::nothrow) SCA_TikaInterface());
  if (connecting == nullptr || connecting->IsValid() == 0) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError, "SCA_TikaServiceStatus::DoConnect: cannot create Tika service interface");
    *error = SCA_ErrorCannotCreate;
    return 0;
  }
  if (connecting->Connect(service_.GetHostName(), service_.GetControlPort(), svcConnectTimeout_,
                          error) == 0) {
    return 0;
  }
  interface_ = std::move(connecting);
  return 1;
}

int SCA_TikaServiceStatus::DoDisconnect() {
  if (interface_ == nullptr) return 1;
  interface_->SetReplyTimeout(kFarewellTimeoutMs);
  interface_->DeleteAllServers();
  interface_.reset();
  return 1;
}

int SCA_TikaServiceStatus::AddClient(SCA_TikaClient* client, unsigned long* /*id*/) {
  return clients_.AddItemToTail(client, client->GetClientId());
}

int SCA_TikaServiceStatus::GetClientByPort(unsigned short port, SCA_TikaClient** client) const {
  for (const auto* node = clients_.GetHead(); node != nullptr; node = node->GetNext()) {
    if (node->GetItem()->GetPortNumber() != port) continue;
    *client = node->GetItem();
    return 1;
  }
  return 0;
}
