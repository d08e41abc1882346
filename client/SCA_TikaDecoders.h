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

/// What the second and third decoder share: the rest of a chunk is received together with its CR
/// LF, which is dropped.
class SCA_TikaLineDecoder {
 public:
  SCA_TikaStep Decode();

 protected:
  explicit SCA_TikaLineDecoder(SCA_TikaReply* reply) : reply_(*reply) {}
  ~SCA_TikaLineDecoder() = default;

  virtual SCA_TikaStep ReadSizeLine(unsigned long* chunkSize) = 0;
  /// Takes the CR LF of a chunk that the network buffer held whole.
  virtual SCA_TikaStep FinishChunk() = 0;

  SCA_TikaReply& reply_;
};

/// A strict size line, and a refill, which drops what is left, wherever no complete one is held.
class SCA_TikaDecoderV2 final : public SCA_TikaLineDecoder {
 public:
  explicit SCA_TikaDecoderV2(SCA_TikaReply* reply) : SCA_TikaLineDecoder(reply) {}

 private:
  SCA_TikaStep ReadSizeLine(unsigned long* chunkSize) override;
  SCA_TikaStep FinishChunk() override;
};

/// Lines and data in any number of pieces; unread bytes are kept and more are appended.
class SCA_TikaDecoderV3 final : public SCA_TikaLineDecoder {
 public:
  explicit SCA_TikaDecoderV3(SCA_TikaReply* reply) : SCA_TikaLineDecoder(reply) {}

 private:
  SCA_TikaStep ReadSizeLine(unsigned long* chunkSize) override;
  SCA_TikaStep FinishChunk() override;
};

/// The decoding of a variant, for its row.
template <class Decoder>
SCA_TikaStep SCA_DecodeReply(SCA_TikaReply* reply) {
  return Decoder(reply).Decode();
}

#endif  // SCA_CLIENT_SCA_TIKADECODERS_H
