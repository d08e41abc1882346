/// Inside of the client: the frame of an extraction, from the file to the outcome: upload, reply
/// header, checks, decoding, bookkeeping.
/// Threads: that of the caller of `GetFileText`.
#ifndef SCA_CLIENT_SCA_TIKAEXTRACTION_H
#define SCA_CLIENT_SCA_TIKAEXTRACTION_H

#include "client/SCA_TikaReply.h"
#include "client/SCA_TikaRequestHead.h"
#include "platform/SCA_File.h"
#include "platform/SCA_HttpParser.h"

class SCA_TikaLink;

/// One extraction. Only it writes the figures of its client.
class SCA_TikaExtraction {
 public:
  /// @param head  Must outlive the extraction.
  SCA_TikaExtraction(SCA_TikaClient* client, const SCA_TikaVariant& variant,
                     SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                     const SCA_TikaRequestHead& head);
  SCA_TikaExtraction(const SCA_TikaExtraction&) = delete;
  SCA_TikaExtraction& operator=(const SCA_TikaExtraction&) = delete;

  /// @param textLength  Receives the bytes of text delivered, on success.
  /// @return 1, or 0 with the code in `*error`.
  int Run(const char* fileName, unsigned long* textLength, unsigned long* error);
  /// The upload only: its failures are not counted.
  int SendFile(const char* fileName, unsigned long* error);

 private:
  class Limits;

  SCA_TikaStep Open(const char* fileName);
  SCA_TikaStep Begin();
  SCA_TikaStep Send();
  SCA_TikaStep SendHead();
  SCA_TikaStep SendContent();
  SCA_TikaStep SendStraight(unsigned long long* remaining);
  SCA_TikaStep SendThroughBuffer(unsigned long long remaining);
  SCA_TikaStep SendFailed(unsigned long code);
  SCA_TikaStep ReadReply();
  bool TakeMessage(const tagSCA_HTTP_REQUEST& header, const char* held, unsigned long length,
                   unsigned long waitMs);
  SCA_TikaStep TakeText(const tagSCA_HTTP_REQUEST& header);
  SCA_TikaStep CheckFile(const SCA_TikaStep& outcome);
  int Conclude(const SCA_TikaStep& step, unsigned long* error);

  SCA_TikaClient& client_;
  SCA_TikaLink* const link_;  // null without a connection
  const SCA_TikaVariant& variant_;
  const SCA_TikaRequestHead& head_;
  const SCA_TikaLoan loan_;
  SCA_File file_;
  bool wentStraight_ = false;  // sent, but perhaps not copied before the server has read it
  SCA_TikaReply reply_;
};

#endif  // SCA_CLIENT_SCA_TIKAEXTRACTION_H
