/// Inside of the client: the three decoders of a chunked reply. Each takes a reply from the byte
/// after its header to the size line of its last chunk. What a decoder makes of a reply may depend
/// on the pieces in which it arrives.
/// Threads: that of the extraction.
#ifndef SCA_CLIENT_SCA_TIKADECODERS_H
#define SCA_CLIENT_SCA_TIKADECODERS_H

#include "client/SCA_TikaReply.h"

/// A size line must lie whole in the bytes held; the network buffer is refilled only where a chunk
/// ends at its end.
class SCA_TikaDecoderV1 {
 public:
  explicit SCA_TikaDecoderV1(SCA_TikaReply* reply) : reply_(*reply) {}
  SCA_TikaStep Decode();

 private:
  bool ReadSizeLine(unsigned long long* chunkSize);
  SCA_TikaStep FinishChunk();

  SCA_TikaReply& reply_;
};

/// A strict size line, and a refill, which drops what is left, wherever no complete one is held.
/// The rest of a chunk is received together with its CR LF, which is dropped.
class SCA_TikaDecoderV2 {
 public:
  explicit SCA_TikaDecoderV2(SCA_TikaReply* reply) : reply_(*reply) {}
  SCA_TikaStep Decode();

 private:
  SCA_TikaStep ReadSizeLine(unsigned long* chunkSize);
  SCA_TikaStep TakeChunk(unsigned long size);
  SCA_TikaStep FinishChunk();

  SCA_TikaReply& reply_;
};

/// Lines and data in any number of pieces; unread bytes are kept and more are appended.
///
/// By its definition it sees the reply through a network buffer of 512 bytes and takes the rest of
/// a chunk, with its CR LF, straight from the socket. It still takes the same pieces, but receives
/// as much as the data buffer has room for, and moves the text together there: fewer calls, fewer
/// acknowledgements, and no memory beside that which the text needs anyway.
class SCA_TikaDecoderV3 {
 public:
  explicit SCA_TikaDecoderV3(SCA_TikaReply* reply)
      : reply_(*reply), next_(reply->network + reply->position), seen_(reply->Unread()) {
    reply_.Socket()->SetOption(SCA_SockOptionTakeHeld, 1);
  }
  ~SCA_TikaDecoderV3() { reply_.Socket()->SetOption(SCA_SockOptionTakeHeld, 0); }
  SCA_TikaDecoderV3(const SCA_TikaDecoderV3&) = delete;
  SCA_TikaDecoderV3& operator=(const SCA_TikaDecoderV3&) = delete;
  SCA_TikaStep Decode();

 private:
  SCA_TikaStep ReadSizeLine(unsigned long* chunkSize);
  SCA_TikaStep TakeChunk(unsigned long size);
  SCA_TikaStep SeeMore();
  SCA_TikaStep SeeRest();
  SCA_TikaStep ReceiveUnread(unsigned long room);
  SCA_TikaStep ReceiveText(unsigned long* missing);
  unsigned long PlaceUnread();
  void See(unsigned long count);
  void Skip(unsigned long count);
  void TakeText(unsigned long count);
  void ReturnUnread();

  SCA_TikaReply& reply_;
  // What was received and not taken yet, in one piece: in the network buffer, or in the data buffer
  // after the text. There the zero after a block never hits it: the size line of the chunk that
  // makes the text be flushed lay between them.
  char* next_;
  unsigned long seen_;       // bytes from there on that the network buffer would hold
  unsigned long ahead_ = 0;  // bytes after those
  bool isFull_ = false;      // the last receive got all it asked for: more may be there
  unsigned long lack_ = 0;   // bytes that the network buffer would hold of that
};

/// The decoding of a variant, for its row.
template <class Decoder>
SCA_TikaStep SCA_DecodeReply(SCA_TikaReply* reply) {
  return Decoder(reply).Decode();
}

#endif  // SCA_CLIENT_SCA_TIKADECODERS_H
