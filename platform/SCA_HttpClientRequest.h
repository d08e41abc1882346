/// The record of an HTTP exchange whose content is held in memory.
/// Threads: one thread at a time per record.
#ifndef SCA_PLATFORM_SCA_HTTPCLIENTREQUEST_H
#define SCA_PLATFORM_SCA_HTTPCLIENTREQUEST_H

#include <memory>

#include "platform/SCA_Object.h"

/// A request or a reply with its content, in memory. @note Inherited: the name says request.
class SCA_API SCA_HttpClientRequest : public SCA_Object {
 public:
  SCA_HttpClientRequest();
  ~SCA_HttpClientRequest() override;
  SCA_HttpClientRequest(const SCA_HttpClientRequest&) = delete;
  SCA_HttpClientRequest& operator=(const SCA_HttpClientRequest&) = delete;

  unsigned long GetReplyCode() const { return replyCode_; }
  void SetReplyCode(unsigned long code) { replyCode_ = code; }

  /// Bytes of the content held; also what `InitContentBuffer` allocates for. 32-bit.
  unsigned long GetContentLength() const { return contentLength_; }
  void SetContentLength(unsigned long length) { contentLength_ = length; }

  /// Allocates content length + 1 bytes, releasing what was there; the contents are not set.
  /// @return 1, or 0 when memory is exhausted, no buffer being left.
  int InitContentBuffer();
  /// @return The buffer, owned by the record, valid until the next `InitContentBuffer`; or null.
  char* GetContentBuffer() { return content_.get(); }

 private:
  unsigned long replyCode_ = 0;
  unsigned long contentLength_ = 0;
  std::unique_ptr<char[]> content_;
};

#endif  // SCA_PLATFORM_SCA_HTTPCLIENTREQUEST_H
