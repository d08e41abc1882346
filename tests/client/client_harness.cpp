#include "tests/client/client_harness.h"

#include <gtest/gtest.h>

const std::string& SmallFile() {
  static const TempDir dir;
  static const std::string path = dir.Write("small.doc", "0123456789");
  return path;
}

ClientHarness::ClientHarness(std::vector<std::string> pieces, unsigned long bufferSize) {
  sockets.emplace(&script);
  script.pieces = std::move(pieces);
  Connect(bufferSize);
}

ClientHarness::ClientHarness(unsigned short port, unsigned long timeoutMs) {
  client.SetPortNumber(port);
  settings.SetNetworkTimeout(timeoutMs);
  Connect(client.GetBufferSize());
}

void ClientHarness::Connect(unsigned long bufferSize) {
  unsigned long error = 0;
  client.SetBufferSize(bufferSize);
  EXPECT_EQ(client.InitDataBuffer(), 1);
  EXPECT_EQ(client.Connect(5000, &error), 1) << error;
}

Extracted ClientHarness::Extract(unsigned long variant, const std::string& file) {
  Extracted extracted;
  current_ = &extracted;
  const std::string& name = file.empty() ? SmallFile() : file;
  extracted.result = client.GetFileText(variant, name.c_str(), nullptr, &ClientHarness::Collect,
                                        this, &cancel, &extracted.textLength, &extracted.error);
  return extracted;
}

Extracted ClientHarness::ExtractWith(const SCA_TikaRequestOptions& options,
                                     const std::string& file) {
  Extracted extracted;
  current_ = &extracted;
  const std::string& name = file.empty() ? SmallFile() : file;
  extracted.result = client.GetFileText(name.c_str(), options, &ClientHarness::Collect, this,
                                        &cancel, &extracted.textLength, &extracted.error);
  return extracted;
}

int ClientHarness::Collect(const char* text, unsigned long length, unsigned long offset,
                           void* context) {
  auto* self = static_cast<ClientHarness*>(context);
  Extracted& extracted = *self->current_;
  extracted.isTiled =
      extracted.isTiled && length > 0 && text[length] == '\0' && offset == extracted.text.size();
  extracted.text.append(text, length);
  extracted.blocks.emplace_back(offset, length);
  return self->onBlock ? self->onBlock(offset) : 1;
}
