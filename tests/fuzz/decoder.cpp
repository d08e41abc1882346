// Arbitrary replies in arbitrary pieces for one decoder (SCA_FUZZ_VARIANT), into a data buffer of
// an arbitrary size, with and without room for what follows the text. Half of the inputs begin
// behind a good header, to get at the decoder. What follows a reply that is taken meets a second
// document on the same connection.

#include <fuzzer/FuzzedDataProvider.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Report.h"
#include "tests/support/ScriptedSocket.h"

namespace {

constexpr char kGoodHeader[] = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";

// A file to upload, which is none of what is tested here.
std::string UploadedFile() {
  const int fd = ::memfd_create("upload", MFD_CLOEXEC);
  if (::write(fd, "text", 4) != 4) std::abort();
  return "/proc/self/fd/" + std::to_string(fd);
}

int Check(const char* text, unsigned long length, unsigned long offset, void* context) {
  auto* delivered = static_cast<unsigned long*>(context);
  if (length == 0 || text[length] != '\0' || offset != *delivered) std::abort();
  *delivered += length;
  return 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string file = UploadedFile();
  SCA_SetReportSink([](void*, unsigned long, const char*, int, const char*) {}, nullptr);
  FuzzedDataProvider provider(data, size);

  SCA_TikaConfigOrv settings;
  SCA_TikaClient client(&settings, "127.0.0.1", 1);
  client.SetBufferSize(provider.ConsumeIntegralInRange<unsigned long>(4, 12288));
  client.SetDebugLevel(provider.ConsumeIntegralInRange<unsigned long>(0, 2));
  SocketScript script;
  if (provider.ConsumeBool()) script.pieces.emplace_back(kGoodHeader);
  const std::size_t joined = provider.ConsumeIntegralInRange<std::size_t>(0, 64);
  if (!script.pieces.empty()) script.pieces.back() += provider.ConsumeBytesAsString(joined);
  while (provider.remaining_bytes() > 0) {
    script.pieces.push_back(provider.ConsumeRandomLengthString(700));
  }
  const ScriptedSockets sockets(&script);

  unsigned long error = 0;
  if (client.InitDataBuffer() == 0 || client.Connect(1, &error) == 0) std::abort();
  unsigned long long before = 0;
  for (int result = 1, document = 0; result != 0 && document < 2; ++document) {
    unsigned long delivered = 0;
    unsigned long textLength = 0;
    result = client.GetFileText(SCA_FUZZ_VARIANT, file.c_str(), nullptr, &Check, &delivered,
                                nullptr, &textLength, &error);
    if (client.GetRecvData() - before != delivered) std::abort();
    if (result != 0 ? textLength != delivered : error == 0) std::abort();
    before = client.GetRecvData();
    script.arrived = script.pieces.size() / 2;
  }
  return 0;
}
