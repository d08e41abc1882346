#include "tests/support/ScriptedServer.h"

#include <cstdio>

ScriptedServer::ScriptedServer(Script script, int backlog, unsigned short port, const char* host)
    : script_(std::move(script)), listener_(host, port, backlog), thread_([this] { Run(); }) {}

ScriptedServer::~ScriptedServer() {
  stop_.Set();
  thread_.join();
}

void ScriptedServer::Run() {
  for (int fd = -1; (fd = listener_.Accept(stop_)) >= 0;) {
    connections_.fetch_add(1);
    ServerConnection connection(fd, stop_);
    script_(connection);
  }
}

std::string ChunkedReply(const std::string& text, std::size_t chunkSize) {
  std::string reply = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (std::size_t begin = 0; begin < text.size(); begin += chunkSize) {
    const std::string chunk = text.substr(begin, chunkSize);
    char size[32];
    std::snprintf(size, sizeof size, "%zX\r\n", chunk.size());
    reply += size + chunk + "\r\n";
  }
  return reply + "0\r\n\r\n";
}
