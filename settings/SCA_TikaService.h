/// One Tika service host as the product's settings know it.
/// Threads: one at a time per record.
#ifndef SCA_SETTINGS_SCA_TIKASERVICE_H
#define SCA_SETTINGS_SCA_TIKASERVICE_H

#include <cstdint>

#include "foundation/SCA_ConfigObj.h"

/// Values of a service's process status; any other one shows as enabled.
constexpr unsigned long SCA_ServiceError = 0;
constexpr unsigned long SCA_ServiceDisconnected = 10;
constexpr unsigned long SCA_ServiceConnected = 11;

/// Where a service's control port is, what its Tika servers are like, which pool and files it
/// serves, and the status figures last seen. A plain value: it does no input or output itself.
/// Texts are cut to 259 bytes when they are set or read; a null text counts as the empty one.
/// Pointers to texts are to the fields themselves.
class SCA_API SCA_TikaService : public SCA_Object {
 public:
  SCA_TikaService();

  /// Given by the list that holds the record.
  unsigned long GetServiceId() const { return serviceId_; }
  void SetServiceId(unsigned long id) { serviceId_ = static_cast<std::uint32_t>(id); }
  int IsEnabled() const { return enabled_; }
  void SetEnabled(int enabled) { enabled_ = enabled; }
  /// Host of the control port, and the record's name in its list.
  const char* GetHostName() const { return hostName_; }
  void SetHostName(const char* hostName);
  /// The jar that the service's Tika servers run.
  const char* GetFileName() const { return fileName_; }
  void SetFileName(const char* fileName);
  unsigned short GetControlPort() const { return controlPort_; }
  void SetControlPort(unsigned short port) { controlPort_ = port; }
  /// HTTP port of the first server; the others use the next ports.
  unsigned short GetDataPort() const { return dataPort_; }
  void SetDataPort(unsigned short port) { dataPort_ = port; }
  unsigned long GetNumOfServers() const { return numOfServers_; }
  void SetNumOfServers(unsigned long count) { numOfServers_ = static_cast<std::uint32_t>(count); }
  /// Java heap of each server, in megabytes.
  unsigned long GetHeapSize() const { return heapSize_; }
  void SetHeapSize(unsigned long megabytes) { heapSize_ = static_cast<std::uint32_t>(megabytes); }
  const char* GetPoolName() const { return poolName_; }
  void SetPoolName(const char* poolName);
  /// 1 when the service's own extensions say which files it takes; 0 leaves that to the settings.
  int GetProcessCustomExtensions() const { return processCustomExtensions_; }
  void SetProcessCustomExtensions(int process) { processCustomExtensions_ = process; }
  /// Separated by blanks.
  const char* GetFileExtensions() const { return fileExtensions_; }
  void SetFileExtensions(const char* extensions);

  /// @name Status
  /// @{
  int IsConnected() const { return connected_; }
  void SetConnected(int connected) { connected_ = connected; }
  unsigned long GetErrorServers() const { return errorServers_; }
  void SetErrorServers(unsigned long count) { errorServers_ = static_cast<std::uint32_t>(count); }
  unsigned long GetActiveServers() const { return activeServers_; }
  void SetActiveServers(unsigned long count) { activeServers_ = static_cast<std::uint32_t>(count); }
  unsigned long GetProcessStatus() const { return processStatus_; }
  void SetProcessStatus(unsigned long status) {
    processStatus_ = static_cast<std::uint32_t>(status);
  }
  /// In bytes, as the service reports it.
  unsigned long long GetMemoryUsage() const { return memoryUsage_; }
  void SetMemoryUsage(unsigned long long bytes) { memoryUsage_ = bytes; }
  /// In milliseconds, as the service reports it.
  unsigned long long GetUpTime() const { return upTime_; }
  void SetUpTime(unsigned long long milliseconds) { upTime_ = milliseconds; }
  /// @return "Disabled", "Error", "Disconnected", "Connected" or "Enabled"; static storage.
  const char* GetStatusString() const;
  /// @return The resource name of the icon that shows the state; static storage.
  const char* GetStatusIcon() const;
  /// @}

  /// @param ext  An extension without its dot, in any case.
  /// @return 1 when the service takes custom extensions and this is one of them.
  int MatchExtension(const char* ext) const;

  /// Adds the fields to an object.
  /// @param withStatus  Not 0 adds the status too.
  /// @return 0 when a field cannot be added, such as a text that holds the byte 0x01; the fields
  ///         before it are there then.
  int Serialize(SCA_ConfigObj* obj, int withStatus) const;
  /// Reads the fields from an object. One that is absent, or has no value of its type, leaves the
  /// member as it was. @return 1; 0 for a null object.
  int Deserialize(SCA_ConfigObj* obj, int withStatus);
  /// Makes this record a copy of another, its id included.
  int SetContent(const SCA_TikaService* from, int withStatus);

 private:
  template <class Service, class Row>
  static bool ForEachField(Service& service, int withStatus, const Row& row);

  std::uint32_t serviceId_ = 0;
  int enabled_ = 1;
  int connected_ = 0;
  char hostName_[260] = "localhost";
  char fileName_[260] = "tika-server.jar";
  unsigned short controlPort_ = 9500;
  unsigned short dataPort_ = 9980;
  std::uint32_t numOfServers_ = 1;
  std::uint32_t errorServers_ = 0;
  std::uint32_t activeServers_ = 0;
  std::uint32_t processStatus_ = SCA_ServiceDisconnected;
  unsigned long long memoryUsage_ = 0;
  unsigned long long upTime_ = 0;
  std::uint32_t heapSize_ = 1024;
  char poolName_[260] = "Default";
  int processCustomExtensions_ = 0;
  char fileExtensions_[260] = "PDF DOC DOCX XLS XLSX";
};

#endif  // SCA_SETTINGS_SCA_TIKASERVICE_H
