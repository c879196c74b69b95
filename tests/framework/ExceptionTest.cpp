#include <stdexcept>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "framework/types/VlanId.h"

namespace {

using testing::ThrowsMessage;

TEST(ExceptionTest, NullParameterTextEndsInADoubleQuote) {
  EXPECT_THAT(
      [] { Kel::refuseNull("Bridging::IgmpSnooping::Proxy::ProxySm", "context"); },
      ThrowsMessage<Kel::RangeException>(
          R"(null _context parameter to mutator for Bridging::IgmpSnooping::Proxy::ProxySm::context not allowed")"));
  EXPECT_THAT(
      [] { Kel::refuseNull("Bridging::IgmpSnooping::Proxy::ProxyVlanSm", "proxyTopoPort"); },
      ThrowsMessage<Kel::RangeException>(
          R"(null _proxyTopoPort parameter to mutator for Bridging::IgmpSnooping::Proxy::ProxyVlanSm::proxyTopoPort not allowed")"));
}

TEST(ExceptionTest, NullMemberIsANullValidPtr) {
  EXPECT_THAT([] { Kel::refuseNullMember(); }, ThrowsMessage<Kel::RangeException>("null ValidPtr"));
}

TEST(ExceptionTest, ReinstantiationNamesParameterAndBothValues) {
  EXPECT_THAT([] { Kel::refuseReinstantiation("vlanId", "11", "10"); },
              ThrowsMessage<Kel::NameInUseException>(
                  "Reinstantiating the pointer interface where constructor parameter attribute "
                  "_vlanId has a different value of 11 than the current value of 10 not allowed"));
}

TEST(ExceptionTest, VlanNumberOutsideItsRangeIsNamed) {
  EXPECT_THAT([] { Bridging::VlanId(4095); },
              ThrowsMessage<Kel::RangeException>("VlanId::value < 1 or > 4094 not allowed"));
}

TEST(ExceptionTest, EventLoopCanCatchThemAllAsOne) {
  EXPECT_TRUE((std::is_base_of_v<Kel::Exception, Kel::RangeException>));
  EXPECT_TRUE((std::is_base_of_v<Kel::Exception, Kel::NameInUseException>));
  EXPECT_TRUE((std::is_base_of_v<std::runtime_error, Kel::Exception>));
  EXPECT_FALSE((std::is_base_of_v<Kel::RangeException, Kel::NameInUseException>));
}

}  // namespace
