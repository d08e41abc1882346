/// Everybody who can send a file by `PUT /tika` and take the text that comes back.
#ifndef SCA_BENCH_PEERS_H
#define SCA_BENCH_PEERS_H

#include <memory>
#include <string>

/// One client with one connection, which the first exchange makes and which then stays open.
class Peer {
 public:
  virtual ~Peer() = default;

  /// Sends a file and takes the text of the reply.
  /// @return The bytes of text; 0 on failure, after which the next exchange makes a connection.
  virtual unsigned long long Exchange(const std::string& fileName) = 0;

  /// Ends the connection, so that the next exchange makes one.
  virtual void Disconnect() = 0;
};

/// What peers are made for.
struct PeerTarget {
  unsigned short port;
  unsigned long long wireSize;  ///< bytes of every reply, for the peer that does not look into it
  unsigned long long textSize;
};

/// The least that a client can do: blocking calls of the sizes that cost it least, into memory that
/// begins at a page's start; the request header travels with the file's first block, and the reply
/// is counted and dropped.
constexpr char kBareName[] = "bare loop";
constexpr unsigned long kBareSendSize = 1 << 20;
constexpr unsigned long kBareReceiveSize = 1 << 16;

/// The library by its three decoders, with a cancel event and a callback that counts: the text has
/// been collected in blocks of 1 MiB by then.
constexpr const char* kOurNames[] = {"variant 1", "variant 2", "variant 3"};

/// libcurl's easy interface on a kept handle, as it comes and with the buffers that suit it best,
/// and cpp-httplib's client, kept alive: with a callback that collects the text in a buffer of
/// 1 MiB. Smaller buffers cost more. cpp-httplib's buffer for replies,
/// of 4 KiB, is fixed when the distribution builds it; its file is read in blocks as large as those
/// of the tuned libcurl.
constexpr const char* kOtherNames[] = {"libcurl", "libcurl 256 KiB", "cpp-httplib"};
constexpr unsigned long kTunedSize = 256 << 10;

/// @param name  One of the names above.
std::unique_ptr<Peer> MakePeer(const std::string& name, const PeerTarget& target);

/// @return Versions of the other peers, for the head of a report.
std::string PeerVersions();

#endif  // SCA_BENCH_PEERS_H
