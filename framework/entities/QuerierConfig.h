#pragma once

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/kel/Text.h"
#include "framework/types/IgmpVersion.h"

namespace Gmp::Igmp {

/// The protocol side of a querier's configuration.
class KEL_EXPORT QuerierConfig : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<QuerierConfig const> {
   public:
    virtual void onQuerierVersion() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  ::Igmp::IgmpVersion querierVersion() const { return querierVersion_.get(); }
  void querierVersionIs(::Igmp::IgmpVersion version) { querierVersion_.is(*this, version); }

 private:
  Kel::Value<::Igmp::IgmpVersion, &NotifieeConst::onQuerierVersion> querierVersion_{
      ::Igmp::IgmpVersion::v3};
};

}  // namespace Gmp::Igmp

namespace Igmp {

/// The querier configuration of one VLAN, named by the VLAN's number in decimal.
class KEL_EXPORT QuerierConfig : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<QuerierConfig const> {
   public:
    virtual void onGmpQuerierConfig() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using ProtocolConfig = Gmp::Igmp::QuerierConfig;

  QuerierConfig(Kel::Name name, Kel::Ptr<ProtocolConfig const> gmpQuerierConfig)
      : name_(std::move(name)), gmpQuerierConfig_(std::move(gmpQuerierConfig)) {}

  Kel::Name const& name() const { return name_; }

  /// May be null.
  Kel::Ptr<ProtocolConfig const> const& gmpQuerierConfig() const { return gmpQuerierConfig_.get(); }
  void gmpQuerierConfigIs(Kel::Ptr<ProtocolConfig const> const& config) {
    gmpQuerierConfig_.is(*this, config);
  }

  /// For find-or-create: the existing querier must have this protocol configuration.
  void requireConstructedWith(Kel::Ptr<ProtocolConfig const> const& config) const {
    Kel::requireEqual("gmpQuerierConfig", config, gmpQuerierConfig());
  }

 private:
  Kel::Name name_;
  Kel::NullablePointer<ProtocolConfig const, &NotifieeConst::onGmpQuerierConfig> gmpQuerierConfig_;
};

/// The querier configurations, by name.
class KEL_EXPORT QuerierConfigDir : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<QuerierConfigDir const> {
   public:
    virtual void onQuerierConfig(Kel::Name const& /*name*/) {}
    virtual void onQuerierConfigkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using ProtocolConfig = Gmp::Igmp::QuerierConfig;
  using QuerierConfigs = Kel::Members<Kel::Name, QuerierConfig, &NotifieeConst::onQuerierConfig>;

  QuerierConfigs const& querierConfig() const { return querierConfig_; }
  Kel::Ptr<QuerierConfig const> querierConfig(Kel::Name const& name) const {
    return querierConfig_.get(name);
  }
  Kel::Ptr<QuerierConfig> querierConfig(Kel::Name const& name) { return querierConfig_.get(name); }
  Kel::Ptr<QuerierConfig> newQuerierConfig(Kel::Name const& name,
                                           Kel::Ptr<ProtocolConfig const> const& config) const {
    return Kel::make<QuerierConfig>(name, config);
  }
  /// A querier configuration is born complete: its arrival alone may start a VLAN's proxying,
  /// which asserts that it is.
  Kel::Ptr<QuerierConfig> querierConfigIs(Kel::Name const& name,
                                          Kel::Ptr<ProtocolConfig const> const& config) {
    return querierConfig_.is(*this, name, config);
  }
  void querierConfigDel(Kel::Name const& name) { querierConfig_.del(*this, name); }
  void querierConfigDelAll() { querierConfig_.delAll(*this); }
  void querierConfigNotify(Kel::Name const& name) { querierConfig_.notify(*this, name); }
  void querierConfigNotify() { notify<&NotifieeConst::onQuerierConfigkelImmediate>(); }

 private:
  QuerierConfigs querierConfig_;
};

}  // namespace Igmp
