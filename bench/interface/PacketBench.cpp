#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/interface/BareReceivers.h"
#include "bench/interface/DevicePath.h"
#include "bench/interface/VethPair.h"

/// What a frame costs on its way between the kernel and a VLAN's packet access, beside the least
/// that it could cost: a loop over a bare packet socket on the same veth pair, with the same
/// filter. Needs root.
namespace {

using namespace Bench;
using Clock = std::chrono::steady_clock;

bool possible(benchmark::State& state) {
  std::string const& why = VethPair::instance().why();
  if (!why.empty()) state.SkipWithError(why.c_str());
  return why.empty();
}

double threadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// Frames that wait in the kernel when the receiver looks: the receiver's processor time of each,
/// without waking up for it.
template <class Receiver>
void receiveWaiting(benchmark::State& state) {
  if (!possible(state)) return;
  constexpr std::size_t waiting = 256;
  Receiver receiver;
  Sender const sender;
  Frame frame = frameOf(static_cast<std::size_t>(state.range(0)));
  std::size_t received = 0;
  for (auto _ : state) {
    sender.send(frame, waiting);
    std::size_t const expected = received + waiting;
    double const before = threadSeconds();
    while (received < expected)
      receiver.turn([&](Wirex::Bytes bytes) {
        benchmark::DoNotOptimize(Wirex::bigEndian16(bytes.data() + Wirex::etherTypeOffset));
        ++received;
      });
    state.SetIterationTime(threadSeconds() - before);
  }
  state.counters["cpu/frame"] = benchmark::Counter(
      static_cast<double>(waiting),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// Frames as fast as another thread can send them: what the kernel had to drop is not counted.
template <class Receiver>
void receiveFlood(benchmark::State& state) {
  if (!possible(state)) return;
  Receiver receiver;
  std::atomic<bool> stopped = false;
  std::thread flood([&] {
    Sender const sender;
    Frame frame = frameOf(static_cast<std::size_t>(state.range(0)));
    while (!stopped) sender.send(frame, Sender::atOnce);
  });
  std::size_t received = 0;
  double const cpuBefore = threadSeconds();
  auto const before = Clock::now();
  for (auto _ : state)
    receiver.turn([&](Wirex::Bytes bytes) {
      benchmark::DoNotOptimize(Wirex::bigEndian16(bytes.data() + Wirex::etherTypeOffset));
      ++received;
    });
  std::chrono::duration<double> const elapsed = Clock::now() - before;
  double const cpu = threadSeconds() - cpuBefore;
  stopped = true;
  flood.join();
  auto const frames = static_cast<double>(received);
  state.counters["cpu/frame"] = cpu / frames;
  state.counters["frames/s"] = frames / elapsed.count();
  state.counters["frames/turn"] = frames / static_cast<double>(state.iterations());
}

/// From the sending of a lone frame to its being read, the receiver asleep meanwhile.
template <class Receiver>
void idleLatency(benchmark::State& state) {
  if (!possible(state)) return;
  Receiver receiver;
  std::atomic<bool> stopped = false;
  std::thread lone([&] {
    Sender const sender;
    Frame frame = frameOf(64);
    while (!stopped) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      auto const now = Clock::now();
      std::memcpy(&frame[Wirex::ethernetHeaderSize], &now, sizeof now);
      sender.send(frame, 1);
    }
  });
  std::vector<double> latencies;
  for (auto _ : state)
    receiver.turn([&](Wirex::Bytes bytes) {
      Clock::time_point sent;
      std::memcpy(&sent, &bytes[Wirex::ethernetHeaderSize], sizeof sent);
      latencies.push_back(std::chrono::duration<double>(Clock::now() - sent).count());
    });
  stopped = true;
  lone.join();
  std::sort(latencies.begin(), latencies.end());
  state.counters["median"] = latencies[latencies.size() / 2];
  state.counters["p99"] = latencies[latencies.size() * 99 / 100];
}

/// Packets of one batch out of the near end.
void sendThroughVlan(benchmark::State& state) {
  if (!possible(state)) return;
  DevicePath path;
  Frame const frame = frameOf(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    for (std::size_t i = 0; i < Sender::atOnce; ++i)
      path.vlanPam().outputPktIs(Wirex::Pkt::PktIs(frame));
    path.endBatch();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Sender::atOnce));
}

/// The same through a bare socket.
/// @param alsoReceives whether it is bound to receive and watched, as a device's socket is: then
/// the kernel looks for who listens to what is sent, and tells the watch of each packet that left.
void sendBare(benchmark::State& state, bool alsoReceives) {
  if (!possible(state)) return;
  Frame frame = frameOf(static_cast<std::size_t>(state.range(0)));
  int const socket = newSocket();
  bindSocket(socket, VethPair::instance().nearIndex(),
             alsoReceives ? receiveSettings().protocol : std::uint16_t{0});
  int const epoll = checked(epoll_create1(0), "epoll_create1");
  epoll_event event{};
  event.events = EPOLLIN;
  if (alsoReceives) checked(epoll_ctl(epoll, EPOLL_CTL_ADD, socket, &event), "epoll_ctl");
  iovec content{frame.data(), frame.size()};
  std::array<mmsghdr, Sender::atOnce> messages{};
  for (mmsghdr& message : messages) {
    message.msg_hdr.msg_iov = &content;
    message.msg_hdr.msg_iovlen = 1;
  }
  for (auto _ : state)
    benchmark::DoNotOptimize(sendmmsg(socket, messages.data(), messages.size(), 0));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Sender::atOnce));
  close(socket);
  close(epoll);
}

void waiting(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("bytes")->Arg(64)->Arg(1500)->UseManualTime()->Iterations(3000);
}
BENCHMARK_TEMPLATE(receiveWaiting, DevicePath)->Apply(waiting);
BENCHMARK_TEMPLATE(receiveWaiting, RecvmmsgReceiver)->Apply(waiting);
BENCHMARK_TEMPLATE(receiveWaiting, RingV2Receiver)->Apply(waiting);
BENCHMARK_TEMPLATE(receiveWaiting, RingV3Receiver)->Apply(waiting);

void flood(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("bytes")->Arg(64)->Arg(1500)->UseRealTime()->MinTime(2);
}
BENCHMARK_TEMPLATE(receiveFlood, DevicePath)->Apply(flood);
BENCHMARK_TEMPLATE(receiveFlood, RecvmmsgReceiver)->Apply(flood);
BENCHMARK_TEMPLATE(receiveFlood, RingV2Receiver)->Apply(flood);
BENCHMARK_TEMPLATE(receiveFlood, RingV3Receiver)->Apply(flood);

void lone(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseRealTime()->Iterations(2000);
}
BENCHMARK_TEMPLATE(idleLatency, DevicePath)->Apply(lone);
BENCHMARK_TEMPLATE(idleLatency, RecvmmsgReceiver)->Apply(lone);
BENCHMARK_TEMPLATE(idleLatency, RingV2Receiver)->Apply(lone);
BENCHMARK_TEMPLATE(idleLatency, RingV3Receiver)->Apply(lone);

BENCHMARK(sendThroughVlan)->ArgName("bytes")->Arg(64)->Arg(1500);
BENCHMARK_CAPTURE(sendBare, alone, false)->ArgName("bytes")->Arg(64)->Arg(1500);
BENCHMARK_CAPTURE(sendBare, receiving, true)->ArgName("bytes")->Arg(64)->Arg(1500);

}  // namespace
