/// Reading HTTP reply headers, and the record that holds what they say (RFC 9112). Internal to the
/// library.
/// Threads: the parser has no state; a record belongs to one thread at a time.
#ifndef SCA_PLATFORM_SCA_HTTPPARSER_H
#define SCA_PLATFORM_SCA_HTTPPARSER_H

#include "platform/SCA_HttpClientRequest.h"

/// Limits of a reply header: lines and bytes, leading empty lines included.
constexpr unsigned long SCA_HttpMaxHeaderLines = 128;
constexpr unsigned long SCA_HttpMaxHeaderLength = 65536;

/// A Retry-After that a reply did not have.
constexpr unsigned long SCA_HttpNoRetryAfter = 0xFFFFFFFF;

/// What the decoders need to know of a reply header. @note Inherited: the name says request.
struct tagSCA_HTTP_REQUEST {
  unsigned long replyCode = 0;      ///< 100 to 999
  char transferEncoding[260] = "";  ///< Value as sent; several fields are joined by ", ".
  unsigned long contentLength = 0;  ///< 32-bit; 0 unless the next says otherwise
  int hasContentLength = 0;         ///< 1 when the header carried a Content-Length
  int isContentEncoded = 0;         ///< 1 for a Content-Encoding other than "identity"
  int isJson = 0;                   ///< 1 for a Content-Type of "application/json"
  /// Seconds after which the server may be asked again, at most 10^9. Dates are not read.
  unsigned long retryAfterS = SCA_HttpNoRetryAfter;
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
