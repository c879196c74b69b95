#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

#include "bench/live/Load.h"
#include "bench/live/PacketPort.h"
#include "bench/live/Relay.h"

/// Puts load on the ports of whatever snoops IGMP at the other end of the cables, and times it.
/// Prints JSON.
namespace {

double microseconds(std::chrono::nanoseconds time) {
  return std::chrono::duration<double, std::micro>(time).count();
}

void printLatency(Bench::LatencyResult const& result) {
  auto const& all = result.latencies;
  std::cout << "{\"samples\": " << all.size() << ", \"lost\": " << result.lost;
  if (!all.empty())
    std::cout << ", \"median\": " << microseconds(all[all.size() / 2])
              << ", \"p99\": " << microseconds(all[all.size() * 99 / 100])
              << ", \"most\": " << microseconds(all.back());
  std::cout << "}\n";
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"IGMP load on network interfaces"};
  app.require_subcommand(1);

  Bench::LoadOptions load;
  auto* const loads = app.add_subcommand("load", "reports of many listeners");
  loads->add_option("interfaces", load.interfaces, "one per port")->required();
  loads->add_option("--reporters", load.listeners.reporters, "of each port")->capture_default_str();
  loads->add_option("--groups", load.listeners.groups, "of each port")->capture_default_str();
  loads->add_option("--records", load.listeners.records, "of a report")->capture_default_str();
  loads->add_option("--sources", load.listeners.sources, "of a record")->capture_default_str();
  loads->add_flag("--changes", load.changes, "leaves and joins instead of known state");
  loads->add_option("--rate", load.rate, "frames a second; 0: all that can be")
      ->capture_default_str();
  loads->add_option("--seconds", load.seconds)->capture_default_str();
  loads->add_option("--frames", load.frames, "so many instead of seconds");

  Bench::LatencyOptions latency;
  auto* const latencies = app.add_subcommand("latency", "from a report in to the one out");
  latencies->add_option("from", latency.from, "a listener's interface")->required();
  latencies->add_option("to", latency.to, "the router's")->required();
  latencies->add_option("--samples", latency.samples)->capture_default_str();

  std::string router;
  auto* const query = app.add_subcommand("query", "one general query");
  query->add_option("interface", router, "the router's")->required();

  std::string in;
  std::string out;
  auto* const relays = app.add_subcommand("relay", "what comes in on one interface out of another");
  relays->add_option("from", in, "a port towards a listener")->required();
  relays->add_option("to", out, "the port towards the router")->required();

  CLI11_PARSE(app, argc, argv);
  try {
    if (loads->parsed()) {
      auto const result = Bench::load(load);
      std::cout << "{\"sent\": " << result.sent << ", \"seconds\": " << result.seconds << "}\n";
    } else if (latencies->parsed()) {
      printLatency(Bench::latency(latency));
    } else if (relays->parsed()) {
      Bench::relay(in, out);
    } else {
      Bench::Frame const frame = Bench::generalQuery();
      Bench::PacketPort(router, false).send({&frame, 1});
    }
  } catch (std::exception const& error) {
    std::cerr << "igmp_load: " << error.what() << '\n';
    return 1;
  }
}
