#include "bench/kel/Listener.h"

namespace Bench {

namespace {

class Watcher final : public Lamp::NotifieeConst {
 public:
  Watcher(Kel::Ptr<Lamp const> const& lamp, Kel::Ptr<Kel::ActivityConfig> const& activity)
      : NotifieeConst(activity ? Delivery::byActivity : Delivery::immediate), activity_(activity) {
    watch(lamp);
  }

  Kel::ActivityConfig* kelFwkActivity() const override { return activity_.get(); }
  void onBrightness() override {
    if (notificationActive()) seen_ += notifier()->brightness();
  }

 private:
  Kel::Ptr<Kel::ActivityConfig> activity_;
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
