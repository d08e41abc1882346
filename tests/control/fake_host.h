/// A service host with its control port.
#ifndef SCA_TESTS_CONTROL_FAKE_HOST_H
#define SCA_TESTS_CONTROL_FAKE_HOST_H

#include <gtest/gtest.h>

#include <memory>

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

#endif  // SCA_TESTS_CONTROL_FAKE_HOST_H
