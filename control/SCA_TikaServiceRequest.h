/// The record of one request to a Tika service.
#ifndef SCA_CONTROL_SCA_TIKASERVICEREQUEST_H
#define SCA_CONTROL_SCA_TIKASERVICEREQUEST_H

#include <cstdint>

#include "platform/SCA_Object.h"

class SCA_TikaClient;

/// For hosting programs; the library itself makes none. @note Inherited.
/// Threads: one at a time.
class SCA_API SCA_TikaServiceRequest : public SCA_Object {
 public:
  explicit SCA_TikaServiceRequest(unsigned long opCode);

  unsigned long GetOpCode() const { return opCode_; }
  void SetOpCode(unsigned long code) { opCode_ = static_cast<std::uint32_t>(code); }
  unsigned long GetRequestId() const { return requestId_; }
  void SetRequestId(unsigned long id) { requestId_ = static_cast<std::uint32_t>(id); }
  unsigned long GetServiceId() const { return serviceId_; }
  void SetServiceId(unsigned long id) { serviceId_ = static_cast<std::uint32_t>(id); }
  unsigned long GetClientId() const { return clientId_; }
  void SetClientId(unsigned long id) { clientId_ = static_cast<std::uint32_t>(id); }
  /// A process status of `host/SCA_ProcessStatus.h`; idle at first.
  unsigned long GetProcessStatus() const { return processStatus_; }
  void SetProcessStatus(unsigned long status) {
    processStatus_ = static_cast<std::uint32_t>(status);
  }
  unsigned long GetStatusCode() const { return statusCode_; }
  void SetStatusCode(unsigned long code) { statusCode_ = static_cast<std::uint32_t>(code); }
  unsigned short GetPortNumber() const { return portNumber_; }
  void SetPortNumber(unsigned short port) { portNumber_ = port; }
  /// Not owned.
  SCA_TikaClient* GetClient() const { return client_; }
  void SetClient(SCA_TikaClient* client) { client_ = client; }

 private:
  std::uint32_t opCode_;
  std::uint32_t requestId_ = 0;
  std::uint32_t serviceId_ = 0;
  std::uint32_t clientId_ = 0;
  std::uint32_t processStatus_;
  std::uint32_t statusCode_ = 0;
  unsigned short portNumber_ = 0;
  SCA_TikaClient* client_ = nullptr;
};

#endif  // SCA_CONTROL_SCA_TIKASERVICEREQUEST_H
