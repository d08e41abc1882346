/// Runs extractions against a scripted socket and collects all there is to see of them.
#ifndef SCA_TESTS_CLIENT_CLIENT_HARNESS_H
#define SCA_TESTS_CLIENT_CLIENT_HARNESS_H

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/SCA_TikaClient.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/ScriptedSocket.h"
#include "tests/support/TempDir.h"

/// Opens the client's protected steps to tests.
class OpenClient : public SCA_TikaClient {
 public:
  using SCA_TikaClient::PutRequest;
  using SCA_TikaClient::SCA_TikaClient;
  using SCA_TikaClient::SendFile;
};

/// What the caller of an extraction saw.
struct Extracted {
  int result = -1;
  unsigned long error = 0;
  unsigned long textLength = 0;
  std::string text;                                             ///< all blocks, joined
  std::vector<std::pair<unsigned long, unsigned long>> blocks;  ///< offset and length
  bool isTiled = true;  ///< blocks ended in a zero, were not empty and came without gaps
};

/// One client, connected to a scripted socket or to a real server.
class ClientHarness {
 public:
  explicit ClientHarness(std::vector<std::string> pieces = {}, unsigned long bufferSize = 4096);

  ClientHarness(unsigned short port, unsigned long timeoutMs);

  /// Extracts `file`, by default one of 10 bytes; the script begins anew with each connection.
  Extracted Extract(unsigned long variant, const std::string& file = {});

  Extracted ExtractWith(const SCA_TikaRequestOptions& options, const std::string& file = {});

  SocketScript script;
  std::optional<ScriptedSockets> sockets;
  ReportCapture reports;
  SCA_TikaConfigOrv settings;
  OpenClient client{&settings, "127.0.0.1", 8000};
  SCA_Event cancel{1, 0};
  /// Asked for each block; 0 stops.
  std::function<int(unsigned long offset)> onBlock;

 private:
  void Connect(unsigned long bufferSize);
  static int Collect(const char* text, unsigned long length, unsigned long offset, void* context);

  Extracted* current_ = nullptr;
};

constexpr unsigned long kVariants[] = {1, 2, 3};

/// A file of 10 bytes that all tests of a program share.
const std::string& SmallFile();

constexpr char kChunkedHeader[] = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";

#endif  // SCA_TESTS_CLIENT_CLIENT_HARNESS_H
