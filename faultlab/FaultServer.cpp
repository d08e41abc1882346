#include "faultlab/FaultServer.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/SCA_Text.h"

namespace {

constexpr std::size_t kMaxHeader = 16384;
constexpr int kBacklog = 128;
constexpr unsigned long long kTrickles = 100;
constexpr int kLookMs = 2;  // between two looks at how many documents have been answered
constexpr char kReply[] =
    "HTTP/1.1 200 OK\r\n"
    "Content-Type: text/plain\r\n"
    "Date: Thu, 01 Jan 2026 00:00:00 GMT\r\n"
    "Server: Jetty(11.0.26)\r\n";

// What a request asks for.
enum class Content { Text, Markdown, Metadata, Detection };

// @param isLine4  Whether the server is of Tika 4, which answers Markdown at /tika.
std::optional<Content> ContentAt(std::string_view target, bool isLine4) {
  if (target == "/tika") return isLine4 ? Content::Markdown : Content::Text;
  if (target == "/tika/text" && isLine4) return Content::Text;
  if (target == "/tika/md") return Content::Markdown;
  if (target == "/rmeta/body" || target == "/rmeta/text") return Content::Metadata;
  if (target == "/meta") return Content::Detection;
  return std::nullopt;
}

std::string JsonString(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    if (static_cast<unsigned char>(c) >= 0x20) {
      quoted += c;
    } else {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
      quoted += escape;
    }
  }
  return quoted + '"';
}

struct Request {
  std::string method;
  std::string target;
  bool isHttp10 = false;
  bool expectsContinue = false;
  std::optional<unsigned long long> length;
};

std::string_view CutLine(std::string_view* text) {
  const std::size_t end = text->find("\r\n");
  const std::string_view line = text->substr(0, end);
  text->remove_prefix(std::min(text->size(), line.size() + 2));
  return line;
}

std::string CutWord(std::string_view* line) {
  const std::string word(line->substr(0, line->find(' ')));
  line->remove_prefix(std::min(line->size(), word.size() + 1));
  return word;
}

Request ParseRequest(std::string_view header) {
  Request request;
  std::string_view line = CutLine(&header);
  request.method = CutWord(&line);
  request.target = CutWord(&line);
  request.isHttp10 = line == "HTTP/1.0";
  while (!header.empty()) {
    line = CutLine(&header);
    const std::size_t colon = std::min(line.find(':'), line.size());
    const std::string name(line.substr(0, colon));
    std::string_view value = line.substr(std::min(line.size(), colon + 1));
    value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
    if (SCA_StrCompareNoCase(name.c_str(), "Content-Length") != 0) {
      request.length = std::strtoull(std::string(value).c_str(), nullptr, 10);
    }
    if (SCA_StrCompareNoCase(name.c_str(), "Expect") != 0) request.expectsContinue = true;
  }
  return request;
}

}  // namespace

// One connection: requests, one after the other.
class FaultServer::Exchange {
 public:
  Exchange(FaultServer* server, int fd)
      : server_(server), options_(server->options_), connection_(fd, server->stop_) {}

  void Run() {
    while (ServeRequest()) {
    }
  }

 private:
  bool ServeRequest();
  bool ServeDocument(const Request& request);
  bool ReceiveContent(std::size_t wanted);
  bool PlayEarly(const FaultSpec& fault);
  bool Reply(const std::string& content, const FaultSpec& fault);
  bool SendJson(DocumentText text);
  bool SendChunks(std::string header, DocumentText text, const FaultSpec& fault);
  bool PlayAt(const FaultSpec& fault);
  // Before the last bytes of a reply: the client that has them finds it counted.
  void CountAnswer() { server_->memory_->CountAnswer(); }
  bool WaitForAnswers(unsigned long long others);
  bool SendStatus(unsigned long long code, std::string_view body = {},
                  std::string_view fields = {});
  bool SendFailure(unsigned long long code, std::string_view message, std::string_view fields = {});
  bool IsLine4() const { return options_.version.find(" 4.") != std::string::npos; }
  bool SendPaced(std::string_view bytes, const FaultSpec& fault, unsigned long long length);
  bool Die();

  FaultServer* const server_;
  const FaultServerOptions& options_;
  ServerConnection connection_;
  Content content_ = Content::Text;  // that the request asks for
  std::string held_;  // what has been received of the request, its header aside once that is read
};

bool FaultServer::Exchange::ServeRequest() {
  std::size_t end = 0;
  while ((end = held_.find("\r\n\r\n")) == std::string::npos) {
    if (held_.size() > kMaxHeader) return SendStatus(431) && false;
    const std::string more = connection_.Receive();
    if (more.empty() && !held_.empty()) server_->strange_.fetch_add(1);
    if (more.empty()) return false;
    held_ += more;
  }
  const Request request = ParseRequest(std::string_view(held_).substr(0, end + 2));
  held_.erase(0, end + 4);
  if (server_->requests_.fetch_add(1) >= options_.muteAfter) {
    connection_.WaitForEnd();
    return false;
  }
  if (std::chrono::steady_clock::now() - server_->startedAt_ < options_.comingUp) {
    const auto size =
        static_cast<std::size_t>(std::min(request.length.value_or(0), options_.maxDocument));
    if (!ReceiveContent(size)) return false;
    held_.erase(0, size);
    return SendStatus(404) && !request.isHttp10;
  }
  if (request.method == "GET" && request.target == "/version") {
    return SendStatus(200, options_.version) && !request.isHttp10;
  }
  const std::optional<Content> content = ContentAt(request.target, IsLine4());
  if (content) content_ = *content;
  if (request.method != "PUT" || !content) {
    server_->strange_.fetch_add(1);
    return SendStatus(404) && false;
  }
  if (!request.length) return SendStatus(411) && false;
  if (*request.length > options_.maxDocument) return SendStatus(413) && false;
  if (request.expectsContinue && !connection_.Send("HTTP/1.1 100 Continue\r\n\r\n")) return false;
  return ServeDocument(request) && !request.isHttp10;
}

bool FaultServer::Exchange::ServeDocument(const Request& request) {
  const auto size = static_cast<std::size_t>(*request.length);
  const std::size_t headSize = std::min(size, DocumentHead::kSize);
  if (!ReceiveContent(headSize)) return false;
  const DocumentHead head{size, held_.substr(0, headSize)};
  FaultSpec fault = options_.choose ? options_.choose(head) : options_.plan.Choose(head);
  server_->documents_.fetch_add(1);
  if (fault.tries != 0 && server_->memory_->CountTry(options_.plan.Identify(head)) > fault.tries) {
    fault.row = nullptr;
  }
  if (options_.note) options_.note(fault, size);
  const auto early = {FaultKind::DieEarly, FaultKind::ResetEarly, FaultKind::HangEarly,
                      FaultKind::Refuse};
  if (std::find(early.begin(), early.end(), fault.Kind()) != early.end()) return PlayEarly(fault);
  if (!ReceiveContent(size)) return false;
  const std::string content = held_.substr(0, size);
  held_.erase(0, size);
  const bool isKept = Reply(content, fault);
  if (!isKept || fault.Kind() != FaultKind::HangUp) return isKept;
  connection_.WaitForEnd(static_cast<int>(fault.Value()));
  return false;
}

// @return True once that many bytes of the content are held.
bool FaultServer::Exchange::ReceiveContent(std::size_t wanted) {
  while (held_.size() < wanted) {
    const std::string more = connection_.Receive();
    if (more.empty()) return false;
    held_ += more;
  }
  return true;
}

bool FaultServer::Exchange::PlayEarly(const FaultSpec& fault) {
  switch (fault.Kind()) {
    case FaultKind::DieEarly:
      return Die();
    case FaultKind::ResetEarly:
      connection_.ResetOnClose();
      return false;
    case FaultKind::HangEarly:
      connection_.WaitForEnd();
      return false;
    default:
      SendStatus(fault.Value());
      return false;
  }
}

// @return Whether the connection goes on.
bool FaultServer::Exchange::Reply(const std::string& content, const FaultSpec& fault) {
  const DocumentText text = TextOf(content, fault);
  const bool isJson = content_ == Content::Metadata || content_ == Content::Detection;
  const std::string length = "Content-Length: " + std::to_string(text.Length()) + "\r\n";
  std::string header = kReply;
  switch (fault.Kind()) {
    case FaultKind::Status:
      CountAnswer();
      return SendFailure(fault.Value(), "what went wrong");
    case FaultKind::Busy:
    case FaultKind::Crash:
      return SendFailure(fault.Kind() == FaultKind::Busy ? 429 : 503, "no worker for the document",
                         "Retry-After: " + std::to_string(fault.Value()) + "\r\n");
    case FaultKind::Garbage:
      CountAnswer();
      return connection_.Send("220 mail.example ready\r\n\r\n");
    case FaultKind::NoText:
      CountAnswer();
      return SendStatus(200);
    case FaultKind::Plain:
      CountAnswer();
      return connection_.Send(header + length + "\r\n") &&
             connection_.Send(DocumentText(text).Next(static_cast<std::size_t>(text.Length())));
    case FaultKind::After:
      if (!WaitForAnswers(fault.Value())) return false;
      break;
    case FaultKind::Slow:
      if (!connection_.WaitForEnd(static_cast<int>(fault.Value()))) return false;
      break;
    case FaultKind::Continue:
      header.insert(0, "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 102 Processing\r\n\r\n");
      break;
    case FaultKind::LengthToo:
      header += "Content-Length: 0\r\n";
      break;
    case FaultKind::Gzip:
      header += "Content-Encoding: gzip\r\n";
      break;
    default:
      break;
  }
  if (fault.row != nullptr && fault.row->isPlace && !fault.value) return PlayAt(fault);
  if (isJson && fault.row == nullptr) return SendJson(text);
  header += "Transfer-Encoding: chunked\r\n\r\n";
  if (content_ == Content::Markdown) header += "2\r\n# \r\n";
  return SendChunks(header, text, fault);
}

bool FaultServer::Exchange::SendChunks(std::string header, DocumentText text,
                                       const FaultSpec& fault) {
  const bool hasPlace = fault.row != nullptr && fault.row->isPlace;
  const unsigned long long place = hasPlace ? fault.Value() : DocumentText::kEndless;
  const bool isCut = fault.Kind() == FaultKind::Cut;
  std::string pending = std::move(header);
  const char* separator = "";
  for (unsigned long long done = 0; done < std::min(place, text.Length());) {
    std::size_t limit = options_.chunkSize;
    if (!isCut) limit = static_cast<std::size_t>(std::min<unsigned long long>(limit, place - done));
    const std::string chunk = text.Next(limit);
    std::size_t size = chunk.size();
    if (fault.Kind() == FaultKind::SizeLong) ++size;
    if (fault.Kind() == FaultKind::SizeShort) --size;
    char line[64];
    std::snprintf(line, sizeof line, "%zX\r\n", size);
    if (fault.Kind() == FaultKind::SizeWord) std::snprintf(line, sizeof line, "size\r\n");
    if (fault.Kind() == FaultKind::SizeHuge) {
      std::snprintf(line, sizeof line, "1%016zX\r\n", size);
    }
    const auto sent = std::min<unsigned long long>(chunk.size(), place - done);
    pending += separator;
    pending += line;
    pending += std::string_view(chunk).substr(0, static_cast<std::size_t>(sent));
    if (!SendPaced(pending, fault, text.Length())) return false;
    done += sent;
    pending.clear();
    // A chunk's end travels with the next size line, as with Tika.
    separator = "\r\n";
    if (fault.Kind() == FaultKind::Endless &&
        !connection_.WaitForEnd(static_cast<int>(fault.Value()))) {
      return false;
    }
  }
  if (!isCut) pending += separator;
  if (hasPlace) return SendPaced(pending, fault, text.Length()) && PlayAt(fault);
  CountAnswer();
  return SendPaced(pending + "0\r\n\r\n", fault, text.Length());
}

// What happens at a place in the text.
bool FaultServer::Exchange::PlayAt(const FaultSpec& fault) {
  switch (fault.Kind()) {
    case FaultKind::Die:
      return Die();
    case FaultKind::Reset:
      connection_.ResetOnClose();
      return false;
    case FaultKind::Hang:
      connection_.WaitForEnd();
      return false;
    default:
      return false;
  }
}

bool FaultServer::Exchange::WaitForAnswers(unsigned long long others) {
  const unsigned long long begin = server_->memory_->Answers();
  while (server_->memory_->Answers() - begin < others) {
    if (!connection_.WaitForEnd(kLookMs)) return false;
  }
  return true;
}

// The metadata with the text, in one chunk.
bool FaultServer::Exchange::SendJson(DocumentText text) {
  std::string json = R"({"Content-Type":"text/plain"})";
  if (content_ == Content::Metadata) {
    json.insert(
        json.size() - 1,
        R"(,"X-TIKA:content":)" + JsonString(text.Next(static_cast<std::size_t>(text.Length()))));
    json = "[" + json + "]";
  }
  char size[32];
  std::snprintf(size, sizeof size, "%zX\r\n", json.size());
  CountAnswer();
  return connection_.Send(
      "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n" +
      (size + json) + "\r\n0\r\n\r\n");
}

// As Tika 4 tells of a failure; those before it send text.
bool FaultServer::Exchange::SendFailure(unsigned long long code, std::string_view message,
                                        std::string_view fields) {
  if (!IsLine4()) return SendStatus(code, message, fields);
  return SendStatus(code, R"({"status":"FAILED","message":)" + JsonString(message) + "}",
                    std::string(fields) + "Content-Type: application/json\r\n");
}

// @param fields  Further lines; without any, the body is text.
bool FaultServer::Exchange::SendStatus(unsigned long long code, std::string_view body,
                                       std::string_view fields) {
  return connection_.Send(
      "HTTP/1.1 " + std::to_string(code) + (code == 200 ? " OK" : " No") + "\r\n" +
      std::string(fields.empty() ? "Content-Type: text/plain\r\n" : fields) +
      "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body));
}

// @param length  Of the whole text.
bool FaultServer::Exchange::SendPaced(std::string_view bytes, const FaultSpec& fault,
                                      unsigned long long length) {
  if (fault.Kind() != FaultKind::Trickle) return connection_.Send(bytes);
  const auto piece = static_cast<std::size_t>(std::max(1ULL, length / kTrickles));
  for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), piece))) {
    if (!connection_.Send(bytes.substr(0, piece)) ||
        !connection_.WaitForEnd(static_cast<int>(fault.Value()))) {
      return false;
    }
  }
  return true;
}

bool FaultServer::Exchange::Die() {
  if (options_.die) options_.die();
  server_->stop_.Set();
  return false;
}

FaultServer::FaultServer(FaultServerOptions options, std::shared_ptr<LabMemory> memory)
    : options_(std::move(options)),
      memory_(std::move(memory)),
      listener_(options_.address, options_.port, kBacklog) {
  thread_ = std::thread([this] { Accept(); });
}

FaultServer::~FaultServer() {
  Kill();
}

void FaultServer::Kill() {
  stop_.Set();
  if (thread_.joinable()) thread_.join();
  std::unique_lock<std::mutex> lock(mutex_);
  oneEnded_.wait(lock, [this] { return living_ == 0; });
}

void FaultServer::Accept() {
  for (int fd = -1; (fd = listener_.Accept(stop_)) >= 0;) {
    connections_.fetch_add(1);
    const std::lock_guard<std::mutex> guard(mutex_);
    if (living_ >= options_.maxConnections) {
      ::close(fd);
      continue;
    }
    try {
      std::thread([this, fd] { Serve(fd); }).detach();
      ++living_;
    } catch (const std::system_error&) {
      ::close(fd);
    }
  }
  listener_.Close();
}

void FaultServer::Serve(int fd) {
  Exchange(this, fd).Run();
  const std::lock_guard<std::mutex> guard(mutex_);
  --living_;
  oneEnded_.notify_all();
}
