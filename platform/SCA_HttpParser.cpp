#include "platform/SCA_HttpParser.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>

#include "platform/SCA_Text.h"

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr unsigned long kMaxContentLength = 0xFFFFFFFF;
constexpr unsigned long kMaxRetryAfterS = 1000000000;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// The characters of a field name, RFC 9110 section 5.6.2.
bool IsTokenChar(char c) {
  return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         (c != '\0' && std::strchr("!#$%&'*+-.^_`|~", c) != nullptr);
}

bool IsControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return (byte < 0x20 && c != '\t') || byte == 0x7F;
}

// @return The length of the empty line that the text begins with, or 0 where there is none. A line
// feed alone is one as well (RFC 9112, section 2.2): the buffer in which a reply ends may take all
// of its last CR LF but the line feed, which then precedes the next reply.
std::size_t EmptyLineLength(std::string_view text) {
  if (text.substr(0, kLineEnd.size()) == kLineEnd) return kLineEnd.size();
  return text.substr(0, 1) == "\n" ? 1 : 0;
}

std::string_view Trim(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t");
  // Empty but not null: what is copied from it must have an address.
  if (begin == std::string_view::npos) return text.substr(0, 0);
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

bool EqualNoCase(std::string_view left, const char* right) {
  char name[32];
  if (left.size() >= sizeof name) return false;
  std::memcpy(name, left.data(), left.size());
  name[left.size()] = '\0';
  return SCA_StrCompareNoCase(name, right) != 0;
}

template <class Predicate>
bool Any(std::string_view text, Predicate predicate) {
  for (const char c : text) {
    if (predicate(c)) return true;
  }
  return false;
}

// "HTTP/1.x NNN", then the end or a blank and any reason.
bool ParseStatusLine(std::string_view line, tagSCA_HTTP_REQUEST* record) {
  constexpr std::string_view kVersion = "HTTP/1.";
  constexpr std::size_t kCodeAt = 9;
  constexpr std::size_t kCodeEnd = 12;
  if (line.substr(0, kVersion.size()) != kVersion || line.size() < kCodeEnd ||
      !IsDigit(line[kVersion.size()]) || line[kCodeAt - 1] != ' ' || line[kCodeAt] == '0' ||
      Any(line, IsControl)) {
    return false;
  }
  for (std::size_t i = kCodeAt; i < kCodeEnd; ++i) {
    if (!IsDigit(line[i])) return false;
    record->replyCode = record->replyCode * 10 + static_cast<unsigned long>(line[i] - '0');
  }
  return line.size() == kCodeEnd || line[kCodeEnd] == ' ';
}

bool SetContentLength(std::string_view value, tagSCA_HTTP_REQUEST* record) {
  unsigned long length = 0;
  for (const char c : value) {
    if (!IsDigit(c)) return false;
    length = length * 10 + static_cast<unsigned long>(c - '0');
    // Before it is narrowed: 4294967296 must not become a reply without text.
    if (length > kMaxContentLength) return false;
  }
  if (value.empty() || (record->hasContentLength != 0 && record->contentLength != length)) {
    return false;
  }
  record->contentLength = length;
  record->hasContentLength = 1;
  return true;
}

bool AddTransferEncoding(std::string_view value, tagSCA_HTTP_REQUEST* record) {
  char* field = record->transferEncoding;
  std::size_t used = std::strlen(field);
  const std::string_view separator = used > 0 ? ", " : "";
  if (used + separator.size() + value.size() >= sizeof record->transferEncoding) return false;
  std::memcpy(field + used, separator.data(), separator.size());
  used += separator.size();
  std::memcpy(field + used, value.data(), value.size());
  field[used + value.size()] = '\0';
  return true;
}

// A list of codings; each one except "identity" changes the content.
void AddContentEncoding(std::string_view value, tagSCA_HTTP_REQUEST* record) {
  while (!value.empty()) {
    const std::size_t end = std::min(value.find(','), value.size());
    const std::string_view coding = Trim(value.substr(0, end));
    if (!coding.empty() && !EqualNoCase(coding, "identity")) record->isContentEncoded = 1;
    value.remove_prefix(std::min(end + 1, value.size()));
  }
}

void SetRetryAfter(std::string_view value, tagSCA_HTTP_REQUEST* record) {
  if (value.empty() || Any(value, [](char c) { return !IsDigit(c); })) return;
  unsigned long seconds = 0;
  for (const char c : value) {
    seconds = std::min(seconds * 10 + static_cast<unsigned long>(c - '0'), kMaxRetryAfterS);
  }
  record->retryAfterS = seconds;
}

bool ParseField(std::string_view line, tagSCA_HTTP_REQUEST* record) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  const std::string_view name = line.substr(0, colon);
  const std::string_view value = Trim(line.substr(colon + 1));
  if (Any(name, [](char c) { return !IsTokenChar(c); }) || Any(value, IsControl)) return false;
  if (EqualNoCase(name, "Content-Length")) return SetContentLength(value, record);
  if (EqualNoCase(name, "Transfer-Encoding")) return AddTransferEncoding(value, record);
  if (EqualNoCase(name, "Content-Encoding")) AddContentEncoding(value, record);
  if (EqualNoCase(name, "Retry-After")) SetRetryAfter(value, record);
  if (EqualNoCase(name, "Content-Type")) {
    record->isJson = EqualNoCase(Trim(value.substr(0, value.find(';'))), "application/json");
  }
  return true;
}

}  // namespace

SCA_HttpClientRequest::SCA_HttpClientRequest() {
  SetValid(1);
}

SCA_HttpClientRequest::~SCA_HttpClientRequest() = default;

int SCA_HttpClientRequest::InitContentBuffer() {
  content_.reset();
  content_.reset(new (std::nothrow) char[contentLength_ + 1]);
  return content_ != nullptr ? 1 : 0;
}

int SCA_HttpParser::IsHeaderReady(const char* text, unsigned long length,
                                  unsigned long* headerLength) {
  if (length == 0) return 0;
  const std::string_view received(text, ::strnlen(text, length));
  std::string_view header = received;
  while (const std::size_t empty = EmptyLineLength(header)) header.remove_prefix(empty);
  const std::size_t end = header.find("\r\n\r\n");
  if (end == std::string_view::npos) return 0;
  *headerLength = static_cast<unsigned long>(received.size() - header.size() + end + 4);
  return 1;
}

int SCA_HttpParser::ParseHttpHeader(const char* text, unsigned long headerLength,
                                    tagSCA_HTTP_REQUEST* record) {
  if (headerLength > SCA_HttpMaxHeaderLength) return 0;
  std::string_view rest(text, headerLength);
  tagSCA_HTTP_REQUEST parsed;
  bool hasStatus = false;
  for (unsigned long lines = 0; lines < SCA_HttpMaxHeaderLines; ++lines) {
    if (const std::size_t empty = hasStatus ? 0 : EmptyLineLength(rest)) {
      rest.remove_prefix(empty);
      continue;
    }
    const std::size_t end = rest.find(kLineEnd);
    if (end == std::string_view::npos) return 0;
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end + kLineEnd.size());
    if (line.empty()) {
      *record = parsed;
      return 1;
    }
    if (!(hasStatus ? ParseField(line, &parsed) : ParseStatusLine(line, &parsed))) return 0;
    hasStatus = true;
  }
  return 0;
}

int SCA_HttpParser::ParseHttpHeader(const char* text, unsigned long headerLength,
                                    SCA_HttpClientRequest* record) {
  tagSCA_HTTP_REQUEST parsed;
  if (ParseHttpHeader(text, headerLength, &parsed) == 0) return 0;
  record->SetReplyCode(parsed.replyCode);
  record->SetContentLength(parsed.contentLength);
  return 1;
}
