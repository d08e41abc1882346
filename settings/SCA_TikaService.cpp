#include "settings/SCA_TikaService.h"

#include "foundation/SCA_FieldRows.h"
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

template <class Service, class Row>
bool SCA_TikaService::ForEachField(Service& service, int withStatus, const Row& row) {
  const bool isDone = row("ServiceId", service.serviceId_) && row("Enabled", service.enabled_) &&
                      row("HostName", service.hostName_) && row("FileName", service.fileName_) &&
                      row("ControlPort", service.controlPort_) &&
                      row("DataPort", service.dataPort_) &&
                      row("NumOfServers", service.numOfServers_) &&
                      row("HeapSize", service.heapSize_) && row("PoolName", service.poolName_) &&
                      row("ProcessCustomExtensions", service.processCustomExtensions_) &&
                      row("FileExtensions", service.fileExtensions_);
  if (!isDone || withStatus == 0) return isDone;
  return row("Connected", service.connected_) && row("ErrorServers", service.errorServers_) &&
         row("ActiveServers", service.activeServers_) &&
         row("ProcessStatus", service.processStatus_) && row("MemoryUsage", service.memoryUsage_) &&
         row("UpTime", service.upTime_);
}

int SCA_TikaService::Serialize(SCA_ConfigObj* obj, int withStatus) const {
  return obj != nullptr && ForEachField(*this, withStatus, SCA_FieldWriter{obj}) ? 1 : 0;
}

int SCA_TikaService::Deserialize(SCA_ConfigObj* obj, int withStatus) {
  return obj != nullptr && ForEachField(*this, withStatus, SCA_FieldReader{*obj}) ? 1 : 0;
}

int SCA_TikaService::SetContent(const SCA_TikaService* from, int withStatus) {
  SCA_ConfigObj temporary("Service", nullptr);
  return from != nullptr && from->Serialize(&temporary, withStatus) != 0
             ? Deserialize(&temporary, withStatus)
             : 0;
}
