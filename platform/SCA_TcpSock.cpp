#include "platform/SCA_TcpSock.h"

#include <cstdio>
#include <cstring>

#include "platform/SCA_Report.h"

int SCA_FormatHostPort(const char* host, unsigned short port, char* text, unsigned long size) {
  const bool isIpv6 = std::strchr(host, ':') != nullptr;
  const int length = std::snprintf(text, size, isIpv6 ? "[%s]:%u" : "%s:%u", host, unsigned{port});
  return length >= 0 && static_cast<unsigned long>(length) < size ? 1 : 0;
}

int SCA_VirtualTcpSock::SendFile(SCA_File* /*file*/, unsigned long /*length*/, unsigned long* sent,
                                 unsigned long* /*error*/) {
  *sent = 0;
  return 1;
}

SCA_TcpSock::SCA_TcpSock() : socket_(SCA_CreateTcpSock(-1)) {
  if (socket_ == nullptr) {
    SCA_GetReportFunction("SCA_TcpSock", __LINE__)(SCA_LevelError, "Cannot create TCP socket");
    return;
  }
  SetValid(1);
}

int SCA_TcpSock::Connect(const char* host, unsigned short port, unsigned long timeoutMs,
                         unsigned long* error) {
  return socket_->Connect(host, port, timeoutMs, error);
}

int SCA_TcpSock::WaitForData(unsigned long timeoutMs, unsigned long* error) {
  return socket_->WaitForData(timeoutMs, error);
}

int SCA_TcpSock::Receive(char* buffer, unsigned long length, unsigned long* received,
                         unsigned long* error) {
  return socket_->Receive(buffer, length, received, error);
}

int SCA_TcpSock::Send(const char* buffer, unsigned long length, unsigned long* sent,
                      unsigned long* error) {
  return socket_->Send(buffer, length, sent, error);
}

int SCA_TcpSock::SendFile(SCA_File* file, unsigned long length, unsigned long* sent,
                          unsigned long* error) {
  return socket_->SendFile(file, length, sent, error);
}

int SCA_TcpSock::SetOption(int option, int value) {
  return socket_->SetOption(option, value);
}

void SCA_TcpSock::SetCancelEvent(SCA_Event* cancel) {
  socket_->SetCancelEvent(cancel);
}

void SCA_TcpSock::SetIdleTimeout(unsigned long timeoutMs) {
  socket_->SetIdleTimeout(timeoutMs);
}

void SCA_TcpSock::Shutdown() {
  socket_->Shutdown();
}
