#include "settings/SCA_TikaService.h"

#include "platform/SCA_Text.h"

SCA_TikaService::SCA_TikaService() {
  SetValid(1);
}

void SCA_TikaService::SetHostName(const char* hostName) {
  SCA_CopyText(hostName_, hostName, SCA_TextFit::Cut);
}

void SCA_TikaService::SetFileName(const char* fileName) {
  SCA_CopyText(fileName_, fileName, SCA_TextFit::Cut);
}

void SCA_TikaService::SetPoolName(const char* poolName) {
  SCA_CopyText(poolName_, poolName, SCA_TextFit::Cut);
}

void SCA_TikaService::SetFileExtensions(const char* extensions) {
  SCA_CopyText(fileExtensions_, extensions, SCA_TextFit::Cut);
}

const char* SCA_TikaService::GetStatusString() const {
  if (enabled_ == 0) return "Disabled";
  switch (processStatus_) {
    case SCA_ServiceError:
      return "Error";
    case SCA_ServiceDisconnected:
      return "Disconnected";
    case SCA_ServiceConnected:
      return "Connected";
    default:
      return "Enabled";
  }
}

const char* SCA_TikaService::GetStatusIcon() const {
  if (enabled_ != 0) {
    if (errorServers_ != 0 || processStatus_ == SCA_ServiceError) return ":/images/error_16px.png";
    if (processStatus_ == SCA_ServiceConnected) return ":/images/ready_16px.png";
  }
  return ":/images/idle_16px.png";
}

int SCA_TikaService::MatchExtension(const char* ext) const {
  return processCustomExtensions_ != 0 ? SCA_HasToken(fileExtensions_, ext) : 0;
}

int SCA_TikaService::Serialize(SCA_ConfigObj* obj, int withStatus) const {
  if (obj == nullptr) return 0;
  const bool isAdded = obj->AddField("ServiceId", serviceId_, 0) != 0 &&
                       obj->AddField("Enabled", enabled_, 0) != 0 &&
                       obj->AddField("HostName", hostName_, 0) != 0 &&
                       obj->AddField("FileName", fileName_, 0) != 0 &&
                       obj->AddField("ControlPort", controlPort_, 0) != 0 &&
                       obj->AddField("DataPort", dataPort_, 0) != 0 &&
                       obj->AddField("NumOfServers", numOfServers_, 0) != 0 &&
                       obj->AddField("HeapSize", heapSize_, 0) != 0 &&
                       obj->AddField("PoolName", poolName_, 0) != 0 &&
                       obj->AddField("ProcessCustomExtensions", processCustomExtensions_, 0) != 0 &&
                       obj->AddField("FileExtensions", fileExtensions_, 0) != 0;
  if (!isAdded || withStatus == 0) return isAdded ? 1 : 0;
  return obj->AddField("Connected", connected_, 0) != 0 &&
                 obj->AddField("ErrorServers", errorServers_, 0) != 0 &&
                 obj->AddField("ActiveServers", activeServers_, 0) != 0 &&
                 obj->AddField("ProcessStatus", processStatus_, 0) != 0 &&
                 obj->AddField("MemoryUsage", memoryUsage_, 0) != 0 &&
                 obj->AddField("UpTime", upTime_, 0) != 0
             ? 1
             : 0;
}

int SCA_TikaService::Deserialize(SCA_ConfigObj* obj, int withStatus) {
  if (obj == nullptr) return 0;
  obj->GetField("ServiceId", &serviceId_);
  obj->GetField("Enabled", &enabled_);
  obj->GetField("HostName", hostName_, sizeof hostName_);
  obj->GetField("FileName", fileName_, sizeof fileName_);
  obj->GetField("ControlPort", &controlPort_);
  obj->GetField("DataPort", &dataPort_);
  obj->GetField("NumOfServers", &numOfServers_);
  obj->GetField("HeapSize", &heapSize_);
  obj->GetField("PoolName", poolName_, sizeof poolName_);
  obj->GetField("ProcessCustomExtensions", &processCustomExtensions_);
  obj->GetField("FileExtensions", fileExtensions_, sizeof fileExtensions_);
  if (withStatus == 0) return 1;
  obj->GetField("Connected", &connected_);
  obj->GetField("ErrorServers", &errorServers_);
  obj->GetField("ActiveServers", &activeServers_);
  obj->GetField("ProcessStatus", &processStatus_);
  obj->GetField("MemoryUsage", &memoryUsage_);
  obj->GetField("UpTime", &upTime_);
  return 1;
}

int SCA_TikaService::SetContent(const SCA_TikaService* from, int withStatus) {
  SCA_ConfigObj temporary("Service", nullptr);
  return from != nullptr && from->Serialize(&temporary, withStatus) != 0
             ? Deserialize(&temporary, withStatus)
             : 0;
}
