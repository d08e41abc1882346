/// Reading HTTP reply headers, and the records that hold what they say (RFC 9112).
/// Threads: the parser has no state; a record belongs to one thread at a time.
#ifndef SCA_PLATFORM_SCA_HTTPPARSER_H
#define SCA_PLATFORM_SCA_HTTPPARSER_H

#include <memory>

#include "platform/SCA_Object.h"

/// Limits of a reply header: lines and bytes, leading empty lines included.
constexpr unsigned long SCA_HttpMaxHeaderLines = 128;
constexpr unsigned long SCA_HttpMaxHeaderLength = 65536;

/// What the decoders need to know of a reply header. @note Inherited: the name says request.
struct tagSCA_HTTP_REQUEST {
  unsigned long replyCode = 0;      ///< 100 to 999
  char transferEncoding[260] = "";  ///< Value as sent; several fields are joined by ", ".
  unsigned long contentLength = 0;  ///< 32-bit; 0 unless the next says otherwise
  int hasContentLength = 0;         ///< 1 when the header carried a Content-Length
  int isContentEncoded = 0;         ///< 1 for a Content-Encoding other than "identity"
};

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

/// Reads reply headers. Lines end in CR LF; field names match in any case; blanks around values
/// are trimmed. Empty lines before the status line are skipped and belong to the header: a reader
/// of chunked replies leaves the CR LF after the last chunk to the next reply.
class SCA_API SCA_HttpParser {
 public:
  /// @param text          The bytes received so far; a zero byte ends them early.
  /// @param length        Their number.
  /// @param headerLength  Receives the length of the header, blank line included, which is the
  ///                      position of the first body byte; untouched otherwise.
  /// @return 1 when the text holds a complete header, else 0.
  static int IsHeaderReady(const char* text, unsigned long length, unsigned long* headerLength);

  /// Fills a record from a complete header.
  /// @return 1; or 0 when the text is not an HTTP/1 reply header, exceeds a limit, or carries a
  ///         Content-Length that is not a number, above 32 bits or contradicted by another. The
  ///         record is then unchanged.
  static int ParseHttpHeader(const char* text, unsigned long headerLength,
                             tagSCA_HTTP_REQUEST* record);
  /// The same for a record with content: sets the reply code and the content length (0 when the
  /// header has none).
  static int ParseHttpHeader(const char* text, unsigned long headerLength,
                             SCA_HttpClientRequest* record);
};

#endif  // SCA_PLATFORM_SCA_HTTPPARSER_H
