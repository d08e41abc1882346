/// Frames of the control protocol as bytes; docs/control-protocol.md describes them. Internal to
/// the library.
/// Threads: one at a time.
#ifndef SCA_CONTROL_SCA_NETFRAMES_H
#define SCA_CONTROL_SCA_NETFRAMES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "control/SCA_NetMessage.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Sha256.h"

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

/// A frame as it lies in its receiver's memory.
struct SCA_NetFrame {
  SCA_FrameKind kind = SCA_FrameKind::Message;
  std::uint32_t sequence = 0;
  const char* body = nullptr;  ///< the header precedes it, the proof follows it
  unsigned long length = 0;    ///< of the body, in bytes
};

/// Which end of the connection this is: frames of one direction prove nothing in the other.
enum class SCA_NetSide : unsigned char { Client = 0, Server = 1 };

/// Writes and reads the frames of one end of a connection.
class SCA_NetFrames {
 public:
  explicit SCA_NetFrames(SCA_NetSide side) : side_(side) {}

  /// From now on every frame proves that its sender knows the key.
  void Authenticate(const SCA_Digest& sessionKey);
  /// From now on frames may be as large as they get.
  void AllowLargeFrames() { limit_ = SCA_MaxFrame; }

  /// Appends a frame to `bytes`, or leaves them as they are.
  /// @return `SCA_ErrorFrameTooLarge`, `SCA_ErrorDataTooLarge`, `ENOMEM`.
  SCA_Result Write(SCA_FrameKind kind, std::uint32_t sequence, const SCA_NetMessage& message,
                   std::vector<char>* bytes) const;
  /// The same with a code in place of a message: for `Refused` and `Failure`.
  SCA_Result WriteCode(SCA_FrameKind kind, std::uint32_t sequence, unsigned long code,
                       std::vector<char>* bytes) const;

  /// Finds the frame that begins at `bytes`; whether it is genuine is asked separately.
  /// @param held  Bytes that are there, > 0.
  /// @param size  Receives the size of the frame with everything, as far as it is known yet.
  /// @return `EAGAIN` while it has not arrived whole; `SCA_ErrorFrame`, `SCA_ErrorFrameTooLarge`.
  SCA_Result Find(const char* bytes, std::size_t held, SCA_NetFrame* frame,
                  std::size_t* size) const;
  /// @return Whether the other end has sent the frame, which `Find` gave.
  bool IsGenuine(const SCA_NetFrame& frame) const;

  /// @return The code that a `Refused` or a `Failure` carries; `SCA_ErrorFrame` when there is none.
  static unsigned long CodeOf(const SCA_NetFrame& frame);
  /// Reads the message in a frame's body.
  /// @return False for a body that is none.
  static bool Decode(const SCA_NetFrame& frame, SCA_NetMessage* message);

 private:
  SCA_Digest Prove(SCA_NetSide sender, const char* bytes, std::size_t length) const;
  SCA_Result Append(SCA_FrameKind kind, std::uint32_t sequence, const SCA_NetMessage& message,
                    std::vector<char>* bytes) const;

  const SCA_NetSide side_;
  std::uint32_t limit_ = SCA_MaxLoginFrame;
  std::optional<SCA_HmacSha256> key_;
};

/// What a peer sends, until it makes up a frame. Takes memory only as bytes arrive, whatever length
/// the peer has announced, and gives back that of a large frame.
class SCA_NetInput {
 public:
  bool IsEmpty() const { return begin_ == end_; }
  /// @return Bytes of memory that it has.
  std::size_t Capacity() const { return bytes_.capacity(); }

  /// @param room  Receives how many bytes may arrive, > 0.
  /// @return Where to put them. Throws `std::bad_alloc`.
  char* MakeRoom(std::size_t* room);
  void Arrived(std::size_t count) { end_ += count; }

  /// @param frame  Receives the next frame; valid until `Drop`.
  /// @return As `SCA_NetFrames::Find`; `EAGAIN` when nothing has arrived.
  SCA_Result Find(const SCA_NetFrames& frames, SCA_NetFrame* frame);
  /// Forgets the frame that was found, if any.
  void Drop();

  /// Takes and gives memory that several share while they are empty.
  void TakeMemory(std::vector<char>* shared);
  void GiveMemory(std::vector<char>* shared);

 private:
  std::vector<char> bytes_;  // of which those from begin_ to end_ have arrived
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::size_t found_ = 0;   // size of the frame that was found
  std::size_t wanted_ = 0;  // size of the frame that is arriving, as far as it is known
};

/// Memory for frames that several connections share while they have no use for it: `own` takes what
/// there is unless it has some, and gives back what it has, unless there is some already or it is
/// more than usual exchanges need. Both leave no content.
void SCA_TakeFrameMemory(std::vector<char>* own, std::vector<char>* shared);
void SCA_GiveFrameMemory(std::vector<char>* own, std::vector<char>* shared);
/// Frees memory that is larger than usual exchanges need, or leaves it for the next one.
void SCA_TrimFrameMemory(std::vector<char>* memory);

#endif  // SCA_CONTROL_SCA_NETFRAMES_H
