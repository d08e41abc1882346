/// A service host with its control port.
#ifndef SCA_TESTS_CONTROL_FAKE_HOST_H
#define SCA_TESTS_CONTROL_FAKE_HOST_H

#include <gtest/gtest.h>

#include <memory>

#include "control/SCA_TikaServiceClient.h"
#include "control/SCA_TikaServiceServer.h"
#include "platform/SCA_Error.h"
#include "tests/control/fake_service.h"

template <class Service = FakeService>
struct FakeHost {
  /// @param fill  What fills the objects of the service; set before a connection can ask for one.
  explicit FakeHost(unsigned long mode = 0, std::function<void(SCA_ConfigObj*)> fill = nullptr)
      : factory(&service, mode) {
    service.fill = std::move(fill);
    Open();
  }

  void Open(unsigned short port = 0) {
    unsigned long error = 0;
    server = std::make_unique<SCA_TikaServiceServer>(&factory, port, &error);
    EXPECT_EQ(server->IsValid(), 1) << SCA_ErrorText(error);
  }
  unsigned short Port() const { return server->GetPort(); }

  Service service;
  FakeFactory factory;
  std::unique_ptr<SCA_TikaServiceServer> server;
};

/// A client of a control port, or of the socket at a path.
class TestClient : public SCA_TikaServiceClient {
 public:
  explicit TestClient(unsigned short port, const std::string& host = "127.0.0.1") {
    Connect(host.c_str(), port, 5000, &connectError);
  }
  /// @return Why it could not connect or was not told the status, or 0.
  unsigned long Ask() {
    unsigned long status = 0;
    if (connectError != 0) return connectError;
    return GetStatus(&status) != 0 ? 0 : GetLastStatusCode();
  }

  unsigned long connectError = 0;
};

#endif  // SCA_TESTS_CONTROL_FAKE_HOST_H
