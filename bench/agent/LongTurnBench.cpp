#include <algorithm>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>

#include <benchmark/benchmark.h>

#include "agent/state/StateKeeper.h"
#include "agent/text/Wording.h"
#include "bench/agent/LoadedAgent.h"

/// How long the loop is held by what happens once in a while and concerns much. Each run is one
/// such event; "longest" is the processor time of the longest turn of the loop, in milliseconds.
namespace {

using Agent::message;
using Bench::LoadedAgent;

constexpr unsigned groups = 50'000;

std::string vlan(unsigned id, std::string const& more = "") {
  return message("[[vlan]]\nid = ", id, "\nquerier = { igmp-version = 3 }\n", more);
}

/// One VLAN of four ports without limits; what is learned stays until it is taken away.
std::string fourPorts() {
  return "[[interface]]\nname = \"swp[1-4]\"\n" +
         vlan(10,
              "interfaces = [\"swp[1-4]\"]\nstatic-bridge-mrouter-interface = [\"swp4\"]\n"
              "max-groups = 0\nmax-interface-groups = 0\nmax-interface-memberships = 0\n"
              "max-group-sources = 0\nmax-interface-sources = 0\nquery-interval = 3600\n");
}

void require(bool holds, char const* what) {
  if (!holds) throw std::logic_error(what);
}

/// Runs an event on an agent, and gives how long its turns were.
template <class Prepare, class Event>
void measure(benchmark::State& state, std::string const& configuration, Prepare prepare,
             Event event) {
  double longest = 0;
  for (auto _ : state) {
    LoadedAgent agent(configuration);
    prepare(agent);
    agent.settle();
    agent.beginMeasuring();
    event(agent);
    longest =
        std::max(longest, std::chrono::duration<double, std::milli>(agent.longestTurn()).count());
    state.SetIterationTime(std::chrono::duration<double>(agent.total()).count());
  }
  state.counters["longest"] = longest;
}

/// 100,000 memberships on the first port, two in each group.
void fill(LoadedAgent& agent) {
  agent.fill(0, 2, groups);
  require(agent.memberships() == std::size_t{2} * groups, "the agent has not learned everything");
}

template <class Event>
void measureFull(benchmark::State& state, Event event) {
  measure(state, fourPorts(), fill, event);
}

void portDown(benchmark::State& state) {
  measureFull(state, [](LoadedAgent& agent) {
    Wirex::IntfId const port("swp1");
    Agent::InterfaceState down = agent.theSwitch().interfaceState(port);
    down.carrier = false;
    agent.turnAfter([&] { agent.theSwitch().interfaceStateIs(port, down); });
    require(agent.memberships() == 0, "memberships of a dead port are left");
  });
}

void portGone(benchmark::State& state) {
  measureFull(state, [](LoadedAgent& agent) {
    agent.turnAfter([&] { agent.theSwitch().interfaceStateIs(Wirex::IntfId("swp1"), {}); });
    require(agent.memberships() == 0, "memberships of a port that is gone are left");
  });
}

void expiryAtOnce(benchmark::State& state) {
  measureFull(state, [](LoadedAgent& agent) {
    agent.turnAfter([&] { agent.clock().putForward(std::chrono::hours(10)); });
    require(agent.memberships() == 0, "memberships have not expired");
  });
}

void removalOfAFullVlan(benchmark::State& state) {
  measureFull(state, [](LoadedAgent& agent) {
    agent.turnAfter([&] { agent.configure("[[interface]]\nname = \"swp[1-4]\"\n"); });
  });
}

void removalOf1000Vlans(benchmark::State& state) {
  std::string const one =
      "[[interface]]\nname = \"swp[1-4]\"\n" + vlan(1, "tagged-interfaces = [\"swp[1-4]\"]\n");
  std::string all = one;
  for (unsigned id = 2; id <= 1001; ++id) all += vlan(id, "tagged-interfaces = [\"swp[1-4]\"]\n");
  auto const nothing = [](LoadedAgent&) {};
  measure(state, all, nothing,
          [&](LoadedAgent& agent) { agent.turnAfter([&] { agent.configure(one); }); });
}

void ask(benchmark::State& state, std::string const& request) {
  measureFull(state, [&](LoadedAgent& agent) {
    require(agent.ask(request) > 0, "there is no answer");
    agent.settle();
  });
}

/// 1,000 VLANs on 48 ports.
void askOfManyVlans(benchmark::State& state, std::string const& request) {
  std::string const all =
      message("[[interface]]\nname = \"swp[1-48]\"\n[[vlan]]\nid = \"1-1000\"\n",
              "querier = { igmp-version = 3 }\ntagged-interfaces = [\"swp[1-48]\"]\n");
  auto const nothing = [](LoadedAgent&) {};
  measure(state, all, nothing, [&](LoadedAgent& agent) {
    require(agent.ask(request) > 0, "there is no answer");
    agent.settle();
  });
}

void firstAndLastMonitor(benchmark::State& state) {
  measureFull(state, [](LoadedAgent& agent) {
    agent.ask(R"({"command":"monitor"})", 1);
    agent.settle();
  });
}

/// 16,000 reporters want one group.
void explainACrowdedGroup(benchmark::State& state) {
  auto const crowd = [](LoadedAgent& agent) { agent.fill(0, 16'000, 1); };
  measure(state, fourPorts(), crowd, [](LoadedAgent& agent) {
    agent.ask(
        R"({"command":"explain","vlan":10,"interface":"swp4","group":"239.1.0.0","text":true})");
  });
}

/// Keeps the state in a file, as before a restart in place; the disk is waited for beside the loop.
void saveState(benchmark::State& state) {
  std::filesystem::path const file = std::filesystem::temp_directory_path() / "bench_turns.state";
  measureFull(state, [&](LoadedAgent& agent) {
    Agent::StateKeeper keeper(file, agent.theSwitch(), agent.timerWheel());
    bool saved = false;
    keeper.save([&] { saved = true; });
    while (!saved) agent.turnAfter([] {});
  });
  std::filesystem::remove(file);
}

/// What a restart in place does last, when nothing is read any more.
void handOver(benchmark::State& state) {
  measureFull(state, [](LoadedAgent& agent) {
    agent.turnAfter([&] { require(!sealedState(agent.theSwitch()).empty(), "nothing is known"); });
  });
}

/// What the new program does first. The former one ends before: devices are a thread's.
void takeOver(benchmark::State& state) {
  std::string sealed;
  {
    LoadedAgent former(fourPorts());
    fill(former);
    sealed = sealedState(former.theSwitch());
  }
  auto const nothing = [](LoadedAgent&) {};
  measure(state, fourPorts(), nothing, [&](LoadedAgent& agent) {
    agent.turnAfter([&] { resumeOrWarn(agent.theSwitch(), "what was handed over", sealed); });
    require(agent.memberships() == std::size_t{2} * groups, "not everything is taken over");
  });
}

void once(benchmark::internal::Benchmark* event) {
  event->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(portDown)->Apply(once);
BENCHMARK(portGone)->Apply(once);
BENCHMARK(expiryAtOnce)->Apply(once);
BENCHMARK(removalOfAFullVlan)->Apply(once);
BENCHMARK(removalOf1000Vlans)->Apply(once);
BENCHMARK_CAPTURE(ask, clearGroups, R"({"command":"clear","what":"groups"})")->Apply(once);
BENCHMARK_CAPTURE(ask, showVlans, R"({"command":"show","what":"vlans"})")->Apply(once);
BENCHMARK_CAPTURE(ask, showInterfacesOfAGroup,
                  R"({"command":"show","what":"interfaces","group":"239.1.1.1"})")
    ->Apply(once);
BENCHMARK_CAPTURE(ask, showGroups, R"({"command":"show","what":"groups"})")->Apply(once);
BENCHMARK_CAPTURE(ask, showHosts, R"({"command":"show","what":"hosts"})")->Apply(once);
BENCHMARK_CAPTURE(ask, showStatistics, R"({"command":"show","what":"statistics"})")->Apply(once);
BENCHMARK_CAPTURE(ask, metrics, R"({"command":"metrics"})")->Apply(once);
BENCHMARK_CAPTURE(askOfManyVlans, showVlans, R"({"command":"show","what":"vlans"})")->Apply(once);
BENCHMARK_CAPTURE(askOfManyVlans, showInterfaces, R"({"command":"show","what":"interfaces"})")
    ->Apply(once);
BENCHMARK_CAPTURE(askOfManyVlans, showStatistics, R"({"command":"show","what":"statistics"})")
    ->Apply(once);
BENCHMARK_CAPTURE(askOfManyVlans, metrics, R"({"command":"metrics"})")->Apply(once);
BENCHMARK(firstAndLastMonitor)->Apply(once);
BENCHMARK(explainACrowdedGroup)->Apply(once);
BENCHMARK(saveState)->Apply(once);
BENCHMARK(handOver)->Apply(once);
BENCHMARK(takeOver)->Apply(once);

}  // namespace
