#include "bench/kel/Listener.h"

namespace Bench {

namespace {

class Watcher final : public Kel::ActivityReactor<Lamp::NotifieeConst> {
 public:
  Watcher(Kel::Ptr<Lamp const> const& lamp, Kel::Ptr<Kel::ActivityConfig> const& activity)
      : ActivityReactor(activity) {
    watch(lamp);
  }

  void onBrightness() override {
    if (notificationActive()) seen_ += notifier()->brightness();
  }

 private:
  long seen_ = 0;
};

class Adder final : public Listener {
 public:
  void changed(int brightness) override { seen_ += brightness; }

 private:
  long seen_ = 0;
};

}  // namespace

Kel::Ptr<Lamp::NotifieeConst> makeWatcher(Kel::Ptr<Lamp const> const& lamp,
                                          Kel::Ptr<Kel::ActivityConfig> const& activity) {
  return Kel::make<Watcher>(lamp, activity);
}

std::unique_ptr<Listener> makeAdder() {
  return std::make_unique<Adder>();
}

}  // namespace Bench
