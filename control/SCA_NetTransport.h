/// The client's end of a control connection.
/// Threads: one at a time.
#ifndef SCA_CONTROL_SCA_NETTRANSPORT_H
#define SCA_CONTROL_SCA_NETTRANSPORT_H

#include <cstdint>
#include <memory>

#include "control/SCA_NetMessage.h"
#include "platform/SCA_TcpSock.h"

struct SCA_NetLink;  ///< Reserved. @note Inherited.
class SCA_NetChannel;
struct SCA_NetFrame;

/// Sends requests and waits for their replies, one after the other. int results are 1 for success,
/// or 0 with the code in `*error`.
class SCA_API SCA_NetTransport : public SCA_Object {
 public:
  /// @param link  Reserved; null.
  explicit SCA_NetTransport(SCA_NetLink* link);
  ~SCA_NetTransport() override;  ///< Closes the connection.
  SCA_NetTransport(const SCA_NetTransport&) = delete;
  SCA_NetTransport& operator=(const SCA_NetTransport&) = delete;

  /// Connects and, where the server asks for it, logs in with the key that `SCA_GetControlKey` has.
  /// A server on TCP that asks for no login is refused when there is a key for it.
  /// @param host       Name or address; or the path of a Unix socket, which begins with a slash and
  ///                   makes nothing of the port. The system vouches there for both ends: no key is
  ///                   asked for.
  /// @param timeoutMs  Limit of the connect, 0 for 60 seconds. The login has 5 seconds more.
  /// @param error      The socket's code; `SCA_ErrorFrame` when something else answers;
  ///                   `SCA_ErrorNoKey`, `SCA_ErrorLoginRefused`, `SCA_ErrorLoginMissing`,
  ///                   `SCA_ErrorConnectionLimit`, `SCA_ErrorTooManyLogins`,
  ///                   `SCA_ErrorPeerAccount`, `SCA_ErrorSocketPath`; `ENOMEM`, `EAGAIN`.
  int Connect(const char* host, unsigned short port, unsigned long timeoutMs, unsigned long* error);
  /// @return 1 from a successful connect to the first failure that makes the connection useless.
  int Connected() const { return channel_ != nullptr ? 1 : 0; }

  /// Lets `Connect` use a server on TCP that asks for no login although there is a key for it, when
  /// `allow` is not 0. Any program on that port is then taken for the server.
  void SetAllowNoLogin(int allow) { allowNoLogin_ = allow != 0; }
  int GetAllowNoLogin() const { return allowNoLogin_ ? 1 : 0; }

  /// Sends a request.
  /// @param timeoutMs  Limit of a send that makes no progress; 0 for 10 seconds.
  /// @param error      `ENOTCONN`; `SCA_ErrorFrameTooLarge` and `SCA_ErrorDataTooLarge`, which
  ///                   leave the connection as it is; else the socket's code.
  int SendMessage(unsigned long timeoutMs, SCA_NetMessage* message, unsigned long* error);
  /// Waits for the reply to the last request. Replies to earlier ones, which came too late, are
  /// passed over.
  /// @param error  `ETIMEDOUT`, which leaves the connection as it is, as does the code with which
  ///               the server failed to reply (`SCA_ErrorFrameTooLarge`); `ECONNRESET` at once when
  ///               the server is gone; `SCA_ErrorFrame` and others.
  int WaitForMessage(unsigned long timeoutMs, SCA_NetMessage* message, unsigned long* error);

  /// @name What the connection keeps of itself; times are absolute
  /// @{
  unsigned long GetBlockRetryCount() const { return blockRetryCount_; }
  void SetBlockRetryCount(unsigned long count) {
    blockRetryCount_ = static_cast<std::uint32_t>(count);
  }
  unsigned long GetServerLoginMode() const { return serverLoginMode_; }
  void SetServerLoginMode(unsigned long mode) {
    serverLoginMode_ = static_cast<std::uint32_t>(mode);
  }
  unsigned long long GetClientStartTime() const { return clientStartTime_; }
  void SetClientStartTime(unsigned long long time) { clientStartTime_ = time; }
  unsigned long long GetClientConnectTime() const { return clientConnectTime_; }
  void SetClientConnectTime(unsigned long long time) { clientConnectTime_ = time; }
  unsigned long long GetServerStartTime() const { return serverStartTime_; }
  void SetServerStartTime(unsigned long long time) { serverStartTime_ = time; }
  unsigned long long GetServerConnectTime() const { return serverConnectTime_; }
  void SetServerConnectTime(unsigned long long time) { serverConnectTime_ = time; }
  /// @}

 private:
  int Drop(unsigned long code, unsigned long* error);
  int TakeReply(const SCA_NetFrame& frame, SCA_NetMessage* message, unsigned long* error);

  SCA_Owned<SCA_VirtualTcpSock> socket_;
  std::unique_ptr<SCA_NetChannel> channel_;  // null unless connected
  bool allowNoLogin_ = false;
  std::uint32_t sequence_ = 0;  // of the last request
  std::uint32_t blockRetryCount_ = 0;
  std::uint32_t serverLoginMode_ = 0;
  unsigned long long clientStartTime_;
  unsigned long long clientConnectTime_ = 0;
  unsigned long long serverStartTime_ = 0;
  unsigned long long serverConnectTime_ = 0;
};

#endif  // SCA_CONTROL_SCA_NETTRANSPORT_H
