#include "bench/Peers.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <httplib.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Error.h"

namespace {

constexpr char kHost[] = "127.0.0.1";
constexpr std::size_t kCollectSize = 1 << 20;
constexpr std::size_t kPageSize = 4096;
constexpr unsigned long kConnectTimeoutMs = 1000;

// A file that is being sent.
class Source {
 public:
  explicit Source(const std::string& name) : fd_(::open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
    struct stat status {};
    if (fd_ < 0 || ::fstat(fd_, &status) != 0) throw std::runtime_error("cannot open " + name);
    size_ = static_cast<std::size_t>(status.st_size);
  }
  ~Source() { ::close(fd_); }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  std::size_t Size() const { return size_; }
  std::size_t Read(char* buffer, std::size_t length) {
    const ssize_t count = ::read(fd_, buffer, length);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
  }

 private:
  const int fd_;
  std::size_t size_ = 0;
};

// What a user's callback does who wants the text in large blocks.
class Collector {
 public:
  void Begin() { total_ = used_ = 0; }
  void Add(const char* data, std::size_t length) {
    total_ += length;
    while (length > 0) {
      const std::size_t count = std::min(length, buffer_.size() - used_);
      std::memcpy(buffer_.data() + used_, data, count);
      data += count;
      length -= count;
      used_ = (used_ + count) % buffer_.size();
    }
  }
  unsigned long long Total() const { return total_; }

 private:
  std::vector<char> buffer_ = std::vector<char>(kCollectSize);
  std::size_t used_ = 0;
  unsigned long long total_ = 0;
};

class LibraryPeer final : public Peer {
 public:
  LibraryPeer(const PeerTarget& target, unsigned long variant)
      : variant_(variant), client_(&settings_, kHost, target.port) {
    if (client_.InitDataBuffer() == 0) throw std::runtime_error("no data buffer");
  }

  unsigned long long Exchange(const std::string& fileName) override {
    unsigned long long counted = 0;
    unsigned long length = 0;
    unsigned long error = 0;
    if ((client_.IsConnected() != 0 || client_.Connect(kConnectTimeoutMs, &error) != 0) &&
        client_.GetFileText(variant_, fileName.c_str(), nullptr, &Count, &counted, &cancel_,
                            &length, &error) != 0) {
      return counted;
    }
    std::fprintf(stderr, "variant %lu: %s\n", variant_, SCA_ErrorText(error));
    Disconnect();
    return 0;
  }

  void Disconnect() override { client_.Disconnect(); }

 private:
  static int Count(const char* /*text*/, unsigned long length, unsigned long /*offset*/,
                   void* context) {
    *static_cast<unsigned long long*>(context) += length;
    return 1;
  }
  const unsigned long variant_;
  SCA_TikaConfigOrv settings_;
  SCA_Event cancel_{1, 0};
  SCA_TikaClient client_;
};

class CurlPeer final : public Peer {
 public:
  // @param bufferSize  Of requests and replies; 0 for those that it has by itself.
  CurlPeer(const PeerTarget& target, long bufferSize)
      : bufferSize_(bufferSize),
        url_("http://" + std::string(kHost) + ":" + std::to_string(target.port) + "/tika"),
        // Without waiting for a "100 Continue", as the others.
        headers_(::curl_slist_append(::curl_slist_append(nullptr, "Accept: text/plain"), "Expect:"),
                 &::curl_slist_free_all) {
    CurlPeer::Disconnect();
  }

  void Disconnect() override {
    curl_.reset(::curl_easy_init());
    if (curl_ == nullptr || headers_ == nullptr) throw std::runtime_error("libcurl");
    ::curl_easy_setopt(curl_.get(), CURLOPT_URL, url_.c_str());
    ::curl_easy_setopt(curl_.get(), CURLOPT_PROXY, "");
    ::curl_easy_setopt(curl_.get(), CURLOPT_HTTPHEADER, headers_.get());
    ::curl_easy_setopt(curl_.get(), CURLOPT_UPLOAD, 1L);
    if (bufferSize_ > 0) {
      ::curl_easy_setopt(curl_.get(), CURLOPT_BUFFERSIZE, bufferSize_);
      ::curl_easy_setopt(curl_.get(), CURLOPT_UPLOAD_BUFFERSIZE, bufferSize_);
    }
    ::curl_easy_setopt(curl_.get(), CURLOPT_READFUNCTION, &Read);
    ::curl_easy_setopt(curl_.get(), CURLOPT_WRITEFUNCTION, &Write);
    ::curl_easy_setopt(curl_.get(), CURLOPT_WRITEDATA, &collector_);
  }

  unsigned long long Exchange(const std::string& fileName) override {
    Source source(fileName);
    collector_.Begin();
    ::curl_easy_setopt(curl_.get(), CURLOPT_READDATA, &source);
    ::curl_easy_setopt(curl_.get(), CURLOPT_INFILESIZE_LARGE,
                       static_cast<curl_off_t>(source.Size()));
    return ::curl_easy_perform(curl_.get()) == CURLE_OK ? collector_.Total() : 0;
  }

 private:
  static std::size_t Read(char* buffer, std::size_t size, std::size_t count, void* source) {
    return static_cast<Source*>(source)->Read(buffer, size * count);
  }
  static std::size_t Write(char* data, std::size_t size, std::size_t count, void* collector) {
    static_cast<Collector*>(collector)->Add(data, size * count);
    return size * count;
  }

  const long bufferSize_;
  const std::string url_;
  Collector collector_;
  const std::unique_ptr<curl_slist, decltype(&::curl_slist_free_all)> headers_;
  std::unique_ptr<CURL, decltype(&::curl_easy_cleanup)> curl_{nullptr, &::curl_easy_cleanup};
};

class HttplibPeer final : public Peer {
 public:
  explicit HttplibPeer(const PeerTarget& target) : client_(kHost, target.port) {
    client_.set_keep_alive(true);
    client_.set_tcp_nodelay(true);
  }

  unsigned long long Exchange(const std::string& fileName) override {
    Source source(fileName);
    collector_.Begin();
    httplib::Request request;
    request.method = "PUT";
    request.path = "/tika";
    request.set_header("Accept", "text/plain");
    request.set_header("Content-Length", std::to_string(source.Size()));
    request.content_length_ = source.Size();
    request.content_provider_ = [&](std::size_t, std::size_t length, httplib::DataSink& sink) {
      const std::size_t count = source.Read(block_.data(), std::min(length, block_.size()));
      return count > 0 && sink.write(block_.data(), count);
    };
    request.content_receiver = [&](const char* data, std::size_t length, std::uint64_t,
                                   std::uint64_t) {
      collector_.Add(data, length);
      return true;
    };
    httplib::Response response;
    httplib::Error error = httplib::Error::Success;
    return client_.send(request, response, error) && response.status == 200 ? collector_.Total()
                                                                            : 0;
  }

  void Disconnect() override { client_.stop(); }

 private:
  httplib::Client client_;
  std::vector<char> block_ = std::vector<char>(kTunedSize);
  Collector collector_;
};

class BarePeer final : public Peer {
 public:
  explicit BarePeer(const PeerTarget& target) : target_(target) {}
  ~BarePeer() override { BarePeer::Disconnect(); }

  void Disconnect() override {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  unsigned long long Exchange(const std::string& fileName) override {
    if (fd_ < 0) Connect();
    const unsigned long long text = Send(fileName) && Receive() ? target_.textSize : 0;
    if (text == 0) Disconnect();
    return text;
  }

 private:
  void Connect() {
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(target_.port);
    const int on = 1;
    if (::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) {
      throw std::runtime_error("bare loop: cannot connect");
    }
  }

  bool Send(const std::string& fileName) {
    Source source(fileName);
    auto held = static_cast<std::size_t>(
        std::snprintf(block_, sizeof block_,
                      "PUT /tika HTTP/1.1\r\nHost: %s:%d\r\nAccept: text/plain\r\n"
                      "Content-Length: %zu\r\n\r\n",
                      kHost, target_.port, source.Size()));
    for (std::size_t left = source.Size(); left > 0 || held > 0; held = 0) {
      const std::size_t count = source.Read(block_ + held, std::min(left, sizeof block_ - held));
      if ((count == 0 && left > 0) || !SendBlock(held + count)) return false;
      left -= count;
    }
    return true;
  }

  bool SendBlock(std::size_t length) {
    for (std::size_t done = 0; done < length;) {
      const ssize_t count = ::send(fd_, block_ + done, length - done, MSG_NOSIGNAL);
      if (count <= 0) return false;
      done += static_cast<std::size_t>(count);
    }
    return true;
  }

  bool Receive() {
    for (unsigned long long left = target_.wireSize; left > 0;) {
      const ssize_t count =
          ::recv(fd_, block_, std::min<unsigned long long>(left, kBareReceiveSize), 0);
      if (count <= 0) return false;
      left -= static_cast<unsigned long long>(count);
    }
    return true;
  }

  const PeerTarget target_;
  int fd_ = -1;
  alignas(kPageSize) char block_[kBareSendSize];
};

}  // namespace

std::unique_ptr<Peer> MakePeer(const std::string& name, const PeerTarget& target) {
  if (name == kBareName) return std::make_unique<BarePeer>(target);
  if (name == kOtherNames[0]) return std::make_unique<CurlPeer>(target, 0);
  if (name == kOtherNames[1]) return std::make_unique<CurlPeer>(target, kTunedSize);
  if (name == kOtherNames[2]) return std::make_unique<HttplibPeer>(target);
  for (unsigned long variant = 1; variant <= 3; ++variant) {
    if (name == kOurNames[variant - 1]) return std::make_unique<LibraryPeer>(target, variant);
  }
  throw std::invalid_argument("no peer " + name);
}

std::string PeerVersions() {
  return std::string("libcurl ") + ::curl_version_info(CURLVERSION_NOW)->version +
         ", cpp-httplib " + CPPHTTPLIB_VERSION;
}
