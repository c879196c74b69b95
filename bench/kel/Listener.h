#pragma once

#include "framework/kel/Activity.h"
#include "framework/kel/Attribute.h"
#include "framework/kel/Reactors.h"

/// Who listens in the notification benchmarks. They are defined in a file of their own, so that no
/// compiler knows, where it compiles the calls, who will be called.
namespace Bench {

class Lamp : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Lamp const> {
   public:
    virtual void onBrightness() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  int brightness() const { return brightness_.get(); }
  void brightnessIs(int brightness) { brightness_.is(*this, brightness); }

 private:
  Kel::Value<int, &NotifieeConst::onBrightness> brightness_;
};

/// A reactor that adds up what it sees; immediate without an activity.
Kel::Ptr<Lamp::NotifieeConst> makeWatcher(Kel::Ptr<Lamp const> const& lamp,
                                          Kel::Ptr<Kel::ActivityConfig> const& activity);

struct Listener {
  virtual ~Listener() = default;
  virtual void changed(int brightness) = 0;

  Listener* next = nullptr;
  Listener* nextPending = nullptr;
  bool pending = false;
};

/// A listener that adds up what it hears.
std::unique_ptr<Listener> makeAdder();

}  // namespace Bench
