/// The other end of every measurement: a process of its own, so that its work is not counted.
#ifndef SCA_BENCH_REPLYSERVER_H
#define SCA_BENCH_REPLYSERVER_H

#include <sys/types.h>

#include <string>

/// A chunked reply of one chunk size. A chunk's closing CR LF travels with the next size line, as
/// with Tika.
class ChunkedReply {
 public:
  /// @param textSize  Bytes of text; a multiple of the chunk size.
  ChunkedReply(unsigned long long textSize, unsigned long chunkSize);

  unsigned long long TextSize() const { return textSize_; }
  /// Bytes from the header's first to the last.
  unsigned long long WireSize() const;

 private:
  friend class ReplyServer;

  unsigned long long textSize_;
  std::string first_;  // with the header
  std::string piece_;  // sent again and again; empty when the reply is short
  unsigned long long pieceCount_ = 0;
  std::string last_;
};

/// Takes requests on loopback, port 0, on any number of connections, reads each with its content,
/// and answers all of them with one reply. A long reply is sent without copying it (sendfile), so
/// that the server keeps ahead of every client. Were it slower, the fastest client would pay most:
/// for being put to sleep and woken again for every few kilobytes.
/// Made before the process has threads.
class ReplyServer {
 public:
  /// @param congestionControl  For sending the reply; empty for the system's default. One that
  ///                           cannot be had throws.
  explicit ReplyServer(const ChunkedReply& reply, const std::string& congestionControl = "");
  ~ReplyServer();  ///< Ends the process.
  ReplyServer(const ReplyServer&) = delete;
  ReplyServer& operator=(const ReplyServer&) = delete;

  unsigned short Port() const { return port_; }

 private:
  unsigned short port_ = 0;
  pid_t child_ = -1;
};

#endif  // SCA_BENCH_REPLYSERVER_H
