/// Frames on a connection, for an end that waits for them. Internal to the library.
/// Threads: one at a time, except for `SCA_VirtualTcpSock::Shutdown` on the socket.
#ifndef SCA_CONTROL_SCA_NETCHANNEL_H
#define SCA_CONTROL_SCA_NETCHANNEL_H

#include "control/SCA_NetFrames.h"
#include "platform/SCA_TcpSock.h"

class SCA_NetChannel {
 public:
  /// @param socket  Connected or yet to be; not owned.
  SCA_NetChannel(SCA_VirtualTcpSock* socket, SCA_NetSide side) : socket_(*socket), frames_(side) {}
  SCA_NetChannel(const SCA_NetChannel&) = delete;
  SCA_NetChannel& operator=(const SCA_NetChannel&) = delete;

  /// What frames have to be like.
  SCA_NetFrames* Frames() { return &frames_; }

  /// Sends a frame, or nothing.
  /// @param timeoutMs  Limit of a send that makes no progress; 0 stands for 10 seconds.
  /// @return `SCA_ErrorFrameTooLarge` and `SCA_ErrorDataTooLarge` leave the connection as it is;
  ///         after any other it cannot be used.
  SCA_Result Send(SCA_FrameKind kind, std::uint32_t sequence, const SCA_NetMessage& message,
                  unsigned long timeoutMs);

  /// Waits for a frame.
  /// @param timeoutMs  Limit of the whole.
  /// @param frame      Receives it; valid until `Drop` or the next receive.
  /// @return `ETIMEDOUT`: what has arrived is kept for the next call. `SCA_ErrorFrame`,
  ///         `SCA_ErrorFrameTooLarge`, `SCA_ErrorFrameForged`, `ECONNRESET` and others: the
  ///         connection cannot be used any more.
  SCA_Result Receive(unsigned long timeoutMs, SCA_NetFrame* frame);
  /// Gives back the memory of the frame that was received.
  void Drop() { input_.Drop(); }

 private:
  SCA_Result ReadMore(unsigned long timeoutMs);

  SCA_VirtualTcpSock& socket_;
  SCA_NetFrames frames_;
  SCA_NetInput input_;
  std::vector<char> output_;
};

#endif  // SCA_CONTROL_SCA_NETCHANNEL_H
