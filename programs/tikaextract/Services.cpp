#include "programs/tikaextract/Services.h"

#include "programs/common/LocalHost.h"

bool Services::Start(const Setup& setup, SCA_TikaDispatcher* dispatcher) {
  if (setup.Services().empty()) return true;
  for (const SCA_TikaService* service : setup.Services()) {
    board_.Add(service->GetServiceId(),
               FormatServiceAddress({service->GetHostName(), service->GetControlPort()}),
               service->GetNumOfServers() > 0);
  }
  fleet_ = std::make_unique<SCA_TikaFleet>(dispatcher, &board_);
  for (SCA_TikaService* service : setup.Services()) {
    unsigned long error = 0;
    if (fleet_->Follow(service, setup.Settings().GetJavaOptions(), &error) == 0) return false;
  }
  return true;
}

bool Services::WaitForServer(SCA_Event* cancel) {
  return fleet_ != nullptr && fleet_->WaitForServer(SCA_Infinite, cancel) != 0;
}

void Services::Leave() {
  if (fleet_ != nullptr) fleet_->Leave();
}
