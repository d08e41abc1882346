/// Frames on a connection of the control protocol; docs/control-protocol.md has the bytes. Internal
/// to the library.
/// Threads: one at a time, except for `SCA_VirtualTcpSock::Shutdown` on the socket.
#ifndef SCA_CONTROL_SCA_NETCHANNEL_H
#define SCA_CONTROL_SCA_NETCHANNEL_H

#include <cstdint>
#include <optional>
#include <vector>

#include "control/SCA_NetMessage.h"
#include "platform/SCA_Sha256.h"
#include "platform/SCA_TcpSock.h"

/// Kinds of frames. All but the first are the transport's own; those up to 11 are reserved for it.
enum class SCA_FrameKind : std::uint32_t {
  Message = 1,  ///< a request or a reply
  Hello = 2,    ///< the server's first frame
  Login = 3,    ///< the client's answer to a challenge
  Welcome = 4,  ///< the server's answer to a login
  Refused = 5,  ///< the connection ends; "Code" tells why
  Failure = 6   ///< in place of a reply that could not be sent; "Code" tells why
};

/// Largest content of a frame in bytes; and before a login has passed.
constexpr std::uint32_t SCA_MaxFrame = 16U << 20;
constexpr std::uint32_t SCA_MaxLoginFrame = 4096;

struct SCA_NetFrame {
  SCA_FrameKind kind = SCA_FrameKind::Message;
  std::uint32_t sequence = 0;
  const char* body = nullptr;  ///< valid until the next receive
  unsigned long length = 0;
};

/// Which end of the connection this is: frames of one direction prove nothing in the other.
enum class SCA_NetSide : unsigned char { Client = 0, Server = 1 };

class SCA_NetChannel {
 public:
  /// @param socket  Connected or yet to be; not owned.
  SCA_NetChannel(SCA_VirtualTcpSock* socket, SCA_NetSide side) : socket_(*socket), side_(side) {}
  SCA_NetChannel(const SCA_NetChannel&) = delete;
  SCA_NetChannel& operator=(const SCA_NetChannel&) = delete;

  /// Sends a frame, or nothing.
  /// @param timeoutMs  Limit of a send that makes no progress; 0 stands for 10 seconds.
  /// @param error      `SCA_ErrorFrameTooLarge` and `SCA_ErrorDataTooLarge` leave the connection
  ///                   as it is; after any other it cannot be used.
  int Send(SCA_FrameKind kind, std::uint32_t sequence, const SCA_NetMessage& message,
           unsigned long timeoutMs, unsigned long* error);

  /// Sends a code in place of a message: with `Refused` or `Failure`.
  int SendCode(SCA_FrameKind kind, std::uint32_t sequence, unsigned long code,
               unsigned long timeoutMs);
  /// @return The code that such a frame carries; `SCA_ErrorFrame` when there is none.
  static unsigned long CodeOf(const SCA_NetFrame& frame);

  /// Waits for a frame.
  /// @param idleMs   Limit until its first byte, and of all when `frameMs` is `SCA_Infinite`.
  /// @param frameMs  Limit from its first byte to its last.
  /// @param error    `ETIMEDOUT`: what has arrived is kept for the next call. `SCA_ErrorFrame`,
  ///                 `SCA_ErrorFrameTooLarge`, `SCA_ErrorFrameForged`, `ECONNRESET` and others: the
  ///                 connection cannot be used any more.
  int Receive(unsigned long idleMs, unsigned long frameMs, SCA_NetFrame* frame,
              unsigned long* error);

  /// From now on every frame proves that its sender knows the key.
  void Authenticate(const SCA_Digest& sessionKey);
  /// From now on frames may be as large as they get.
  void AllowLargeFrames() { limit_ = SCA_MaxFrame; }

  /// Reads the message in a frame's body.
  /// @return 0 for a body that is none.
  static int Decode(const SCA_NetFrame& frame, SCA_NetMessage* message);

 private:
  enum class Parse { Complete, Incomplete, Faulty };

  Parse ParseFrame(SCA_NetFrame* frame, unsigned long* error);
  int ReadMore(unsigned long timeoutMs, unsigned long* error);
  void DropFrame();
  SCA_Digest Code(SCA_NetSide sender, const char* bytes, std::size_t length) const;
  std::size_t TrailerSize() const { return key_.has_value() ? SCA_DigestSize : 0; }

  SCA_VirtualTcpSock& socket_;
  const SCA_NetSide side_;
  std::uint32_t limit_ = SCA_MaxLoginFrame;
  std::optional<SCA_HmacSha256> key_;

  std::vector<char> input_;  // room for what arrives, of which the bytes up to end_ have
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::size_t frameSize_ = 0;  // of the frame that was handed out
  std::size_t wanted_ = 0;     // of the frame that is arriving, as far as is known
  std::vector<char> output_;
};

#endif  // SCA_CONTROL_SCA_NETCHANNEL_H
