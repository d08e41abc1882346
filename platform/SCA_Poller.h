/// Many connections served by one thread: what waits for all of them, and sockets that never wait.
/// Internal to the library.
#ifndef SCA_PLATFORM_SCA_POLLER_H
#define SCA_PLATFORM_SCA_POLLER_H

#include <cstddef>

#include "platform/SCA_Object.h"
#include "platform/SCA_Result.h"

/// What is awaited on a descriptor. A broken connection always counts as ready.
enum class SCA_PollFor : unsigned char { Input, Output };

/// A descriptor that is ready.
struct SCA_PollEvent {
  void* tag = nullptr;    ///< as given with the descriptor
  bool isBroken = false;  ///< output is awaited, and the peer has closed or cannot take any
};

/// Waits for many descriptors at once. What is ready is told again by each wait until it is dealt
/// with, so that another thread may go on from any wait.
/// Threads: one at a time, except `Wake`.
class SCA_Poller : public SCA_Object {
 public:
  SCA_Poller();
  ~SCA_Poller() override;
  SCA_Poller(const SCA_Poller&) = delete;
  SCA_Poller& operator=(const SCA_Poller&) = delete;

  /// @param tag  Comes back with the events; not null.
  SCA_Result Add(int handle, SCA_PollFor what, void* tag);
  SCA_Result Change(int handle, SCA_PollFor what, void* tag);
  /// For a descriptor that was added. One that is closed needs no removal.
  void Remove(int handle);

  /// @param events     Room for `room` of them, > 0.
  /// @param timeoutMs  0 only asks; `SCA_Infinite` waits for ever.
  /// @return How many are ready; 0 after the time-out, a `Wake` or a signal.
  std::size_t Wait(SCA_PollEvent* events, std::size_t room, unsigned long timeoutMs);

  /// Ends one wait, the present or the next one. Any thread.
  void Wake();

 private:
  int pollFd_;
  int wakeFd_;
};

/// The accepted end of a connection, of which no operation waits. Closes it when it goes.
/// Threads: one at a time.
class SCA_PolledSock {
 public:
  /// @param handle  Connected; taken over.
  explicit SCA_PolledSock(int handle) : handle_(handle) {}
  ~SCA_PolledSock() { Close(); }
  SCA_PolledSock(const SCA_PolledSock&) = delete;
  SCA_PolledSock& operator=(const SCA_PolledSock&) = delete;

  int Handle() const { return handle_; }
  bool IsOpen() const { return handle_ >= 0; }
  void Close();
  /// @return The descriptor, which is the caller's from now on.
  int Release();

  /// @param received  Receives 1 to `room`, which is > 0.
  /// @return `EAGAIN` when nothing has arrived, `ECONNRESET` when the peer has closed; else the
  ///         system's.
  SCA_Result Receive(char* buffer, std::size_t room, std::size_t* received);
  /// @param sent  Receives how many bytes the system took, 1 to `length`, which is > 0.
  /// @return `EAGAIN` when it takes none now; else the system's.
  SCA_Result Send(const char* bytes, std::size_t length, std::size_t* sent);

 private:
  int handle_;
};

/// @return How many descriptors this process may have open.
unsigned long SCA_GetMaxHandles();

#endif  // SCA_PLATFORM_SCA_POLLER_H
