#include <gtest/gtest.h>

#include "tests/support/Program.h"
#include "tests/support/Timing.h"

namespace {

TEST(Examples, HostAndProductTalkToOneAnother) {
  Program host("example_host", {});
  ASSERT_TRUE(Eventually([&] { return host.Output().find('\n') != std::string::npos; }));
  const std::string port = host.Output().substr(0, host.Output().find('\n'));
  Program product("example_product", {port});
  EXPECT_EQ(product.Wait(), 0) << product.Error();
  EXPECT_EQ(product.Output(),
            "the host is in state 11\n"
            "server 0: tika-server.jar on port 9980\n"
            "this host tells no version\n");
  EXPECT_EQ(host.Wait(), 0) << host.Error();
  Program lost("example_product", {port});
  EXPECT_EQ(lost.Wait(), 1);
  EXPECT_EQ(lost.Error(), "product: cannot connect: Connection refused\n");
}

}  // namespace
