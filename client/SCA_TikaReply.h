/// Inside of the client: a chunked reply while a decoder takes the text out of it.
/// Threads: that of the extraction.
#ifndef SCA_CLIENT_SCA_TIKAREPLY_H
#define SCA_CLIENT_SCA_TIKAREPLY_H

#include <cstdint>
#include <cstring>

#include "client/SCA_TikaClient.h"
#include "client/SCA_TikaStep.h"
#include "platform/SCA_TcpSock.h"

class SCA_TikaReply;

/// One of the three ways to extract a text: what they differ in.
struct SCA_TikaVariant {
  const char* source;        ///< report source
  const char* name;          ///< operation, as its reports name it
  const char* uploadSource;  ///< the same for the upload
  const char* uploadName;
  unsigned long networkSize;   ///< bytes of its network buffer
  bool traces;                 ///< reports its steps when the debug level is above 1
  bool countsCancelledUpload;  ///< a cancel during the upload counts as an error
  bool growsTextLength;        ///< the last text length grows with each block
  SCA_TikaStep (*decode)(SCA_TikaReply* reply);
};

/// What a failed wait or receive is called in a report.
struct SCA_TikaReceiveTexts {
  const char* waitFailed;
  const char* receiveFailed;
};

/// What the caller and the client lend to an extraction. Nothing of it is owned.
struct SCA_TikaLoan {
  SCA_TikaTextCallback callback;
  void* context;
  SCA_Event* cancel;            ///< may be null
  SCA_TikaConfigOrv* settings;  ///< read afresh before each wait
  char* text;                   ///< the data buffer, `capacity` + 1 bytes
  unsigned long capacity;
  SCA_AtomicValue<unsigned long long>* recvData;
  SCA_AtomicValue<std::uint32_t>* lastTextLength;
  bool traces;

  bool IsCancelled() const { return cancel != nullptr && cancel->Wait(0) != 0; }
};

/// The decoder's view of the socket, and the text that it gathers. The network buffer receives the
/// reply's header and later what surrounds the text; text that is not in it yet is received
/// straight into the data buffer, where it gathers until the callback takes it.
class SCA_TikaReply {
 public:
  static constexpr unsigned long kMaxNetworkSize = 2048;

  SCA_TikaReply(const SCA_TikaVariant& variant, const SCA_TikaLoan& loan, SCA_TcpSock* socket)
      : variant_(variant), loan_(loan), socket_(socket) {}
  SCA_TikaReply(const SCA_TikaReply&) = delete;
  SCA_TikaReply& operator=(const SCA_TikaReply&) = delete;

  const SCA_TikaVariant& Variant() const { return variant_; }
  bool Traces() const { return loan_.traces; }
  SCA_TcpSock* Socket() const { return socket_; }
  unsigned long TimeoutMs() const { return loan_.settings->GetNetworkTimeout(); }

  // The network buffer.
  char network[kMaxNetworkSize];  ///< of which the variant uses its own size
  unsigned long received = 0;     ///< RL: bytes that it holds
  unsigned long position = 0;     ///< RP: read position in it

  const char* Next() const { return network + position; }
  unsigned long Unread() const { return received - position; }

  /// Receives into the network buffer from its start; what it held is gone.
  SCA_TikaStep Refill();
  /// Receives elsewhere. A failure is reported, in the variant's words.
  /// @param count  Receives 1 to `length`.
  SCA_TikaStep Receive(const SCA_TikaReceiveTexts& texts, char* buffer, unsigned long length,
                       unsigned long* count);

  // The text.
  unsigned long Collected() const { return collected_; }
  unsigned long Delivered() const { return delivered_; }
  unsigned long Room() const { return loan_.capacity - collected_; }
  char* TextEnd() const { return loan_.text + collected_; }
  /// Hands what has gathered to the callback; the only place that calls it.
  SCA_TikaStep Flush();
  /// Flushes unless there is room; what does not fit an empty data buffer is a failure.
  SCA_TikaStep MakeRoom(unsigned long needed) {
    return needed <= Room() ? SCA_TikaStep::Done() : FlushFor(needed);
  }
  SCA_TikaStep ChunkDoesNotFit(unsigned long long needed) const;
  /// Takes text from the network buffer. @param count  At most `Unread()` and `Room()`.
  void Take(unsigned long count) {
    std::memcpy(loan_.text + collected_, Next(), count);
    collected_ += count;
    position += count;
  }
  /// Receives text straight into the data buffer. @param missing  At most `Room()`.
  SCA_TikaStep ReceiveText(unsigned long missing);
  /// Counts bytes as text that lie at its end already. @param count  At most `Room()`.
  void Keep(unsigned long count) { collected_ += count; }
  /// Takes bytes back that were no text. @param count  Of those received last.
  void Drop(unsigned long count) { collected_ -= count; }
  bool IsCancelled() const { return loan_.IsCancelled(); }

 private:
  SCA_TikaStep FlushFor(unsigned long needed);

  const SCA_TikaVariant& variant_;
  const SCA_TikaLoan& loan_;
  SCA_TcpSock* const socket_;
  unsigned long collected_ = 0;  // bytes waiting in the data buffer
  unsigned long delivered_ = 0;  // bytes handed to the callback
};

#endif  // SCA_CLIENT_SCA_TIKAREPLY_H
