/// Inside of the client: one connection to a Tika server, which carries requests and replies one
/// after the other, and what may lie between a reply and the next request.
/// Threads: one thread at a time.
#ifndef SCA_CLIENT_SCA_TIKALINK_H
#define SCA_CLIENT_SCA_TIKALINK_H

#include "platform/SCA_HttpParser.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_TcpSock.h"

/// A server name as a Host line shows it: an IPv6 address in brackets and without its zone.
struct SCA_HostLine {
  explicit SCA_HostLine(const char* serverName);
  char text[262];
};

class SCA_TikaLink {
 public:
  /// How the connection stands between two replies.
  enum class State {
    Clean,       ///< the last reply has ended, and nothing follows it
    Unfinished,  ///< the end of the last reply has not arrived: a trailer may come before it
    Unusable     ///< an exchange was broken off, or there are bytes that nobody asked for
  };

  /// Whether the last byte of a reply was among those that were taken.
  enum class ReplyEnd {
    Seen,
    Owed  ///< of a chunked reply: an empty line, and before it perhaps a trailer, are still to come
  };

  bool IsValid() const { return socket_.IsValid() != 0; }
  SCA_TcpSock& Socket() { return socket_; }

  /// Lends the socket a cancel event, which is not owned; null for none.
  void SetCancelEvent(SCA_Event* cancel);

  /// Looks, without waiting, at what has arrived since the last exchange ended. Does not look at
  /// the cancel event, which an answer might unset.
  /// @param isClosed  Receives whether the connection has ended.
  State Look(bool* isClosed);

  /// Whether it has carried no exchange so far.
  bool IsFresh() const { return phase_ == Phase::Fresh; }
  /// A request is about to be sent. Until `EndExchange` the exchange counts as broken off.
  void BeginExchange() { phase_ = Phase::Exchange; }
  /// The reply has been taken.
  /// @param unread  What was received after the bytes taken.
  void EndExchange(const char* unread, unsigned long length, ReplyEnd end);

  /// Receives until a complete HTTP header is held.
  /// @param buffer        `capacity` + 1 bytes; a zero byte follows what was received.
  /// @param headerLength  Receives the header's length, the position of the first body byte.
  /// @param received      Receives the bytes held, body bytes included.
  /// @return `SCA_ErrorHeaderTooLong` when the header does not end within `capacity`.
  SCA_Result ReadHeader(unsigned long timeoutMs, char* buffer, unsigned long capacity,
                        unsigned long* headerLength, unsigned long* received);

  /// Receives the header of the final reply: the end of the reply before it and interim replies
  /// (100 Continue, 102 Processing, 103 Early Hints) are dropped. After a 101 no final reply would
  /// come, nor would HTTP.
  /// @return `SCA_ErrorInvalidData` for a header that was received and is none.
  SCA_Result ReadReplyHeader(unsigned long timeoutMs, char* buffer, unsigned long capacity,
                             tagSCA_HTTP_REQUEST* reply, unsigned long* headerLength,
                             unsigned long* received);

 private:
  // Less than the smallest header buffer, so that a reply's header finds room after it.
  static constexpr unsigned long kRestSize = 256;

  enum class Phase { Fresh, Exchange, Between };

  State SortRest();
  void DropRest(unsigned long count);
  unsigned long TakeRest(char* buffer, unsigned long capacity);
  SCA_Result ReadOn(unsigned long timeoutMs, char* buffer, unsigned long capacity,
                    unsigned long* headerLength, unsigned long* received);

  SCA_TcpSock socket_;
  SCA_Event* cancel_ = nullptr;
  Phase phase_ = Phase::Fresh;
  bool owesEnd_ = false;          // the last reply's end has not been seen
  unsigned long restLength_ = 0;  // full: more has come than any end of a reply is long
  char rest_[kRestSize];          // received, and of no reply so far
};

#endif  // SCA_CLIENT_SCA_TIKALINK_H
