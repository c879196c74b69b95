#include <vector>

#include <benchmark/benchmark.h>

#include "bench/kel/Listener.h"

/// What a notification costs, beside the least that could serve: an intrusive list of listeners
/// with a virtual call each.
namespace {

using Bench::Lamp;
using Bench::Listener;
using Bench::makeAdder;
using Bench::makeWatcher;

struct PlainLamp {
  void brightnessIs(int value) {
    if (brightness == value) return;
    brightness = value;
    for (Listener* listener = listeners; listener; listener = listener->next)
      listener->changed(brightness);
  }
  int brightness = 0;
  Listener* listeners = nullptr;
};

void immediateNotification(benchmark::State& state) {
  auto const lamp = Kel::make<Lamp>();
  std::vector<Kel::Ptr<Lamp::NotifieeConst>> watchers;
  for (int i = 0; i < state.range(0); ++i) watchers.push_back(makeWatcher(lamp, nullptr));
  int brightness = 0;
  for (auto _ : state) {
    lamp->brightnessIs(++brightness);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void immediateYardstick(benchmark::State& state) {
  PlainLamp lamp;
  std::vector<std::unique_ptr<Listener>> adders;
  for (int i = 0; i < state.range(0); ++i) {
    adders.push_back(makeAdder());
    adders.back()->next = std::exchange(lamp.listeners, adders.back().get());
  }
  int brightness = 0;
  for (auto _ : state) {
    lamp.brightnessIs(++brightness);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void activityNotification(benchmark::State& state) {
  auto const activity = Kel::make<Kel::ActivityConfig>();
  std::vector<Kel::Ptr<Lamp>> lamps;
  std::vector<Kel::Ptr<Lamp::NotifieeConst>> watchers;
  for (int i = 0; i < state.range(0); ++i) {
    lamps.push_back(Kel::make<Lamp>());
    watchers.push_back(makeWatcher(lamps.back(), activity));
  }
  int brightness = 0;
  for (auto _ : state) {
    ++brightness;
    for (auto const& lamp : lamps) lamp->brightnessIs(brightness);
    Kel::runActivities();
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// The listeners of a changed lamp are put on a list, each once, which is then walked.
void activityYardstick(benchmark::State& state) {
  std::vector<std::unique_ptr<Listener>> adders;
  std::vector<PlainLamp> lamps(static_cast<std::size_t>(state.range(0)));
  for (auto& lamp : lamps) {
    adders.push_back(makeAdder());
    lamp.listeners = adders.back().get();
  }
  int brightness = 0;
  for (auto _ : state) {
    ++brightness;
    Listener* first = nullptr;
    Listener** last = &first;
    for (auto& lamp : lamps) {
      if (lamp.brightness == brightness) continue;
      lamp.brightness = brightness;
      for (Listener* listener = lamp.listeners; listener; listener = listener->next) {
        if (std::exchange(listener->pending, true)) continue;
        listener->nextPending = nullptr;
        *last = listener;
        last = &listener->nextPending;
      }
    }
    while (first) {
      Listener* const listener = std::exchange(first, first->nextPending);
      listener->pending = false;
      listener->changed(brightness);
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// All reactors of an entity leave it, first come, first gone.
void reactorsLeave(benchmark::State& state) {
  auto const lamp = Kel::make<Lamp>();
  std::vector<Kel::Ptr<Lamp::NotifieeConst>> watchers;
  for (int i = 0; i < state.range(0); ++i) watchers.push_back(makeWatcher(lamp, nullptr));
  for (auto _ : state) {
    for (auto const& watcher : watchers) watcher->hasNotificationActiveIs(false);
    for (auto const& watcher : watchers) watcher->hasNotificationActiveIs(true);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(immediateNotification)->Arg(1)->Arg(4);
BENCHMARK(immediateYardstick)->Arg(1)->Arg(4);
BENCHMARK(activityNotification)->Arg(1)->Arg(64)->Arg(1024);
BENCHMARK(activityYardstick)->Arg(1)->Arg(64)->Arg(1024);
BENCHMARK(reactorsLeave)->Arg(4)->Arg(64)->Arg(4096);

}  // namespace
