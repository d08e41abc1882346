#include "programs/tikaextract/Services.h"

#include <algorithm>

#include "programs/common/LocalHost.h"

bool Services::Start(const Setup& setup) {
  for (SCA_TikaService* service : setup.Services()) {
    SCA_TikaServiceStatus* status = nullptr;
    if (statuses_.AddStatus(service, &status) == 0) return false;
    board_.Add(service->GetServiceId(),
               FormatServiceAddress({service->GetHostName(), service->GetControlPort()}),
               std::max(1UL, service->GetNumOfServers()));
    hosts_.push_back(
        std::make_unique<ServiceHost>(&board_, status, setup.Settings().GetJavaOptions()));
  }
  // The board knows them all now.
  for (const auto& host : hosts_) host->Start();
  return true;
}

void Services::Leave() {
  for (const auto& host : hosts_) host->AskToLeave();
  hosts_.clear();
  statuses_.ClearAll();
}
