#include <cstdint>
#include <string>

#include "agent/state/StateCodec.h"
#include "agent/state/StateKeeper.h"
#include "agent/state/StateResumption.h"
#include "fuzz/FuzzSwitch.h"

/// A state file: raw bytes, or entries under a right seal, which no mutation would find. What a
/// switch takes up of it, it can keep again.
namespace {

using namespace std::chrono_literals;
using Fuzz::require;

constexpr std::string_view configuration = R"(
[defaults]
send-query = true
max-interface-groups = 4
[[interface]]
name = "swp[1-3]"
[[vlan]]
id = 10
querier = { igmp-version = 3 }
interfaces = ["swp[1-3]"]
[[vlan]]
id = 20
querier = { igmp-version = 2 }
tagged-interfaces = ["swp[1-2]"]
)";

std::size_t entriesIn(std::string_view bytes) {
  Agent::StateReader reader(bytes);
  std::size_t entries = 0;
  while (reader.next()) ++entries;
  require(!reader.failed(), "what was kept can be read");
  return entries;
}

void takeUp(std::string_view file) {
  static Agent::Configuration const read = Fuzz::configurationIn(configuration);
  Fuzz::FuzzSwitch test(read, Fuzz::Interfaces::unknown);
  Agent::Moment const now = Agent::Moment::now(test.loop.now());
  Agent::Resumed const resumed = Agent::resume(test.agent, Agent::unseal(file), now);
  test.interfacesWork();
  test.loop.advanceTo(test.loop.now() + 1s);
  std::string const kept = Agent::sealedState(test.agent);
  std::size_t const entries = entriesIn(Agent::unseal(kept).entries);
  require(entries <= resumed.memberships + resumed.routers + 2 * read.vlans.size(),
          "no more is kept than was taken up");
  test.loop.advanceTo(test.loop.now() + 1h);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  Fuzz::FuzzInput input(bytes, size);
  bool const sealed = input.below(4) != 0;
  std::string_view const rest = input.text(size);
  try {
    if (sealed)
      takeUp(Agent::seal(Agent::Moment::now({}), rest));
    else
      takeUp(rest);
  } catch (Agent::UnusableState const&) {
    // Refused: that is what the operator is told.
  }
  return 0;
}
