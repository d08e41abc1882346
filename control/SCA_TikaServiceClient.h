/// The control client: a service host's operations over its control port.
#ifndef SCA_CONTROL_SCA_TIKASERVICECLIENT_H
#define SCA_CONTROL_SCA_TIKASERVICECLIENT_H

#include <cstdint>

#include "control/SCA_NetTransport.h"
#include "control/SCA_ServiceCommands.h"

/// The longest wait for a reply, in milliseconds.
constexpr unsigned long SCA_MaxReplyTimeoutMs = 60000;

/// Each operation sends one request and waits for its reply. It fails when the connection does,
/// which `GetLastStatusCode` explains, when the service host answers "ERR", and when the reply
/// lacks a field or has a plain field where an object belongs. Outputs before a missing field stay
/// written; objects are handed out all or none.
/// Threads: one at a time.
class SCA_API SCA_TikaServiceClient : public SCA_TikaServiceVirtual {
 public:
  SCA_TikaServiceClient();
  ~SCA_TikaServiceClient() override;

  /// Connects to a control port, or to the Unix socket whose path stands in place of the host; an
  /// earlier connection is closed.
  /// @param timeoutMs  Limit of the connect, 0 for 60 seconds.
  /// @param error      As in `SCA_NetTransport::Connect`. The names and the port then stay.
  int Connect(const char* host, unsigned short port, unsigned long timeoutMs, unsigned long* error);

  /// @return The host that was given to `Connect`, cut to 31 bytes; "" before.
  const char* GetName() const { return name_; }
  /// @return "host:port"; "" before `Connect`.
  const char* GetFullName() const { return fullName_; }
  /// @return 0xFFFF before `Connect`.
  unsigned short GetPort() const { return port_; }
  /// @return Why the connection failed the last call: the transport's code, `EINVAL` for a text
  ///         that cannot be sent; 0 when the service host itself answered, even with "ERR".
  unsigned long GetLastStatusCode() const { return lastStatusCode_; }
  void SetLastStatusCode(unsigned long code) { lastStatusCode_ = static_cast<std::uint32_t>(code); }
  SCA_NetTransport* GetNetTransport() { return &transport_; }
  /// Milliseconds that each call waits for its reply, at most `SCA_MaxReplyTimeoutMs`.
  unsigned long GetReplyTimeout() const { return replyTimeout_; }
  void SetReplyTimeout(unsigned long timeoutMs);

  /// @name The operations of a service host, as `SCA_TikaServiceVirtual` describes them
  /// @{
  SCA_SERVICE_COMMANDS(SCA_DECLARE_OPERATION)
  /// @}

 private:
  template <class... Args>
  auto Call(const SCA_ServiceCommand<Args...>& command);

  std::uint32_t replyTimeout_ = SCA_MaxReplyTimeoutMs;
  SCA_NetTransport transport_;
  std::uint32_t lastStatusCode_ = 0;
  SCA_NetMessage request_;
  SCA_NetMessage reply_;
  char name_[32] = "";
  char fullName_[260] = "";
  unsigned short port_ = 0xFFFF;
};

#endif  // SCA_CONTROL_SCA_TIKASERVICECLIENT_H
