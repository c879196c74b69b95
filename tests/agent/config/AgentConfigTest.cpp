#include "agent/text/Wording.h"
#include "tests/agent/config/ConfigurationTesting.h"

namespace Agent {
namespace {

using testing::ElementsAre;

TEST(AgentConfig, MetricsAreServedOnNoAddressUnlessOneIsGiven) {
  EXPECT_EQ(configurationIn("[agent]").metricsAddress, "");
  for (char const* const address : {"127.0.0.1:9643", "[::1]:9643", "0.0.0.0:1", "[::]:65535"})
    EXPECT_EQ(
        configurationIn(message("[agent]\nmetrics-address = \"", address, '"')).metricsAddress,
        address);
}

TEST(AgentConfig, AddressesWithoutPortAndNamesAreRefused) {
  EXPECT_THAT(errorsIn("[agent]\nmetrics-address = \"localhost:9643\""),
              ElementsAre("test.toml:2:19: metrics-address \"localhost:9643\" is no address with a "
                          "port; give one in quotes, as in \"127.0.0.1:9643\" or \"[::1]:9643\""));
  for (char const* const wrong :
       {"9643", ":9643", "127.0.0.1", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536", "::1:9643",
        "[::1]", "[127.0.0.1]:9643", "127.0.0.1:9643 ", "[]:9643", "["})
    EXPECT_EQ(errorsIn(message("[agent]\nmetrics-address = \"", wrong, '"')).size(), 1u) << wrong;
}

}  // namespace
}  // namespace Agent
