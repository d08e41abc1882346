/// The live side of a Tika service: the control connection and the clients of its servers.
#ifndef SCA_PRODUCT_SCA_TIKASERVICESTATUS_H
#define SCA_PRODUCT_SCA_TIKASERVICESTATUS_H

#include <cstdint>

#include "client/SCA_TikaClient.h"
#include "control/SCA_TikaInterface.h"
#include "foundation/SCA_List.h"
#include "settings/SCA_TikaService.h"

/// Holds a copy of the service's record, owns the control connection, and keeps a list of clients
/// that it does not own. Fetching the service's servers and making their clients is up to the
/// caller. int results are 1 or 0.
/// Threads: one at a time.
class SCA_API SCA_TikaServiceStatus : public SCA_Object {
 public:
  SCA_TikaServiceStatus();
  ~SCA_TikaServiceStatus() override;  ///< Disconnects.
  SCA_TikaServiceStatus(const SCA_TikaServiceStatus&) = delete;
  SCA_TikaServiceStatus& operator=(const SCA_TikaServiceStatus&) = delete;

  /// The same as `UpdateService`. @note Inherited.
  int Init(SCA_TikaService* service);
  /// Copies the service's configuration, not its status, into the copy here. A failure is reported.
  int UpdateService(SCA_TikaService* service);

  /// Connects to the service's control port.
  /// @param error  `SCA_ErrorInvalidData` while connected; `SCA_ErrorCannotCreate`; else as
  ///               in `SCA_TikaServiceClient::Connect`.
  int DoConnect(unsigned long* error);
  /// Asks the service to delete all its servers, gives it a few seconds for that, and closes the
  /// connection. @return 1. @note Inherited.
  int DoDisconnect();
  int IsConnected() const { return interface_ != nullptr ? 1 : 0; }

  /// The copy of the record; lives as long as this object.
  SCA_TikaService* GetService() { return &service_; }
  unsigned long GetServiceId() const { return service_.GetServiceId(); }
  /// @return The control connection, which this object owns; null while not connected.
  SCA_TikaInterface* GetInterface() { return interface_.get(); }
  SCA_List<SCA_TikaClient*>* GetClients() { return &clients_; }

  /// Appends a client under its client id. It stays the caller's.
  /// @param id  Not written. @return 1, or 0 without memory. @note Inherited.
  int AddClient(SCA_TikaClient* client, unsigned long* id);
  /// @param client  Receives the first client of a server's port; untouched when there is none.
  int GetClientByPort(unsigned short port, SCA_TikaClient** client) const;
  /// Does nothing. @return 1. @note Inherited.
  int ClearAll() { return 1; }

  /// Milliseconds for connecting to the control port.
  unsigned long GetSvcConnectTimeout() const { return svcConnectTimeout_; }
  void SetSvcConnectTimeout(unsigned long timeoutMs) {
    svcConnectTimeout_ = static_cast<std::uint32_t>(timeoutMs);
  }
  /// Milliseconds for connecting clients to the Tika servers; kept for the caller.
  unsigned long GetTikaConnectTimeout() const { return tikaConnectTimeout_; }
  void SetTikaConnectTimeout(unsigned long timeoutMs) {
    tikaConnectTimeout_ = static_cast<std::uint32_t>(timeoutMs);
  }

 private:
  SCA_TikaService service_;
  SCA_List<SCA_TikaClient*> clients_{0};
  SCA_Owned<SCA_TikaInterface> interface_;
  std::uint32_t svcConnectTimeout_ = 200;
  std::uint32_t tikaConnectTimeout_ = 1000;
};

#endif  // SCA_PRODUCT_SCA_TIKASERVICESTATUS_H
