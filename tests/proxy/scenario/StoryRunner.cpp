#include "tests/proxy/scenario/StoryRunner.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <functional>

#include "framework/kel/Activity.h"
#include "tests/platform/snooping/MembershipTesting.h"
#include "tests/proxy/scenario/Words.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {

StoryRunner::Events const StoryRunner::events{
    {"start", &StoryRunner::startProxy},
    {"stop", &StoryRunner::stopProxy},
    {"topology", &StoryRunner::changeTopology},
    {"port", &StoryRunner::changePort},
    {"kernel", &StoryRunner::addKernelIntf},
    {"desired", &StoryRunner::addDesire},
    {"proxy", &StoryRunner::changeProxying},
    {"querier", &StoryRunner::changeQuerier},
    {"private", &StoryRunner::addPrivateVlan},
    {"bridging", &StoryRunner::addBridging},
    {"renotify", &StoryRunner::renotify},
    {"report", &StoryRunner::report},
    {"leave", &StoryRunner::leave},
    {"wait", &StoryRunner::wait},
};

StoryRunner::Events const StoryRunner::removals{
    {"kernel", &StoryRunner::removeKernelIntf},   {"desired", &StoryRunner::removeDesire},
    {"proxy", &StoryRunner::removeContext},       {"querier", &StoryRunner::removeQuerier},
    {"private", &StoryRunner::removePrivateVlan}, {"bridging", &StoryRunner::removeBridging},
};

std::vector<Failure> StoryRunner::run(Story const& story) {
  StoryRunner runner;
  try {
    runner.tell(story);
  } catch (std::string const& expected) {
    runner.failures_.push_back({runner.line_, "expected " + expected});
  } catch (Failure const& failure) {
    runner.failures_.push_back(failure);
  }
  return std::move(runner.failures_);
}

void StoryRunner::tell(Story const& story) {
  int eventLine = 0;
  auto const refuseException = [&] {
    if (thrown_) throw Failure{eventLine, "expected no exception, found \"" + *thrown_ + '"'};
  };
  for (Statement const& statement : story.statements) {
    line_ = statement.line;
    Words words(statement.words);
    if (words.take("expect")) {
      if (words.take("throws")) {
        expectThrown(words);
      } else {
        refuseException();
        expect(words);
      }
      words.requireEnd();
      continue;
    }
    refuseException();
    eventLine = line_;
    Events const& known = words.take("no") ? removals : events;
    std::string const& verb = words.text("something that happens");
    auto const event = known.find(verb);
    if (event == known.end()) throw "something that happens instead of " + verb;
    happens(event->second, words);
  }
  refuseException();
}

void StoryRunner::happens(Event event, Words& words) {
  beforeEvent_ = snapshot();
  trace_.clear();
  tracesExpected_ = 0;
  try {
    (this->*event)(words);
    Kel::runActivities();
    batch_.publish();
  } catch (Kel::Exception const& exception) {
    thrown_ = exception.what();
  }
  words.requireEnd();
}

StoryRunner::Snapshot StoryRunner::snapshot() const {
  Snapshot snapshot{picture(), {}};
  auto const add = [&](auto const& members) {
    for (auto const& key : members.keys()) snapshot.objects.push_back(members.find(key));
  };
  add(hosts->igmpHost());
  if (!proxy) return snapshot;
  add(proxy->adapterConfig());
  add(proxy->adapterSm());
  add(proxy->vlanSm());
  for (auto const [vlan, machine] : proxy->vlanSm()) {
    add(machine->portSm());
    add(machine->proxyTopoPort());
  }
  return snapshot;
}

// ---- what happens

void StoryRunner::startProxy(Words& /*words*/) {
  if (proxy) throw std::string("a proxy that does not run");
  start();
}

void StoryRunner::stopProxy(Words& /*words*/) {
  stop();
}

void StoryRunner::changeTopology(Words& words) {
  auto const vlan = topo(words.vlan());
  do {
    std::string const& port = words.text("a port");
    if (port.front() == '-')
      vlan->portDel(IntfId(port.c_str() + 1));
    else
      vlan->portIs(IntfId(port.c_str()));
  } while (!words.atEnd());
}

void StoryRunner::changePort(Words& words) {
  auto const vlan = topo(words.vlan());
  IntfId const name(words.text("a port").c_str());
  auto changed = vlan->port(name);
  if (!changed) throw std::string("a member port of the VLAN");
  bool const isReplaced = words.take("replaced");
  if (isReplaced) changed = vlan->newPort(name);
  while (!words.atEnd()) {
    if (words.take("blocked")) {
      changed->blockedIs(words.yesOrNo());
    } else {
      words.require("direction");
      changed->allowedTrafficDirectionIs(words.direction());
    }
  }
  if (isReplaced) vlan->portIs(changed);
}

void StoryRunner::addKernelIntf(Words& words) {
  std::string const& port = words.text("an interface");
  words.require("as");
  kernelHas(port.c_str(), words.text("a device").c_str());
}

void StoryRunner::removeKernelIntf(Words& words) {
  kernelLoses(words.text("an interface").c_str());
}

void StoryRunner::addDesire(Words& words) {
  desires(words.text("an interface").c_str());
}

void StoryRunner::removeDesire(Words& words) {
  desiresNot(words.text("an interface").c_str());
}

void StoryRunner::changeProxying(Words& words) {
  std::uint16_t const vlan = words.vlan();
  bool const on = words.take("on");
  if (!on) words.require("off");
  proxies(vlan, on);
}

void StoryRunner::removeContext(Words& words) {
  forgets(words.vlan());
}

void StoryRunner::changeQuerier(Words& words) {
  std::string const& name = words.text("a querier's name");
  auto const present = queriers->querierConfig(Kel::Name(name.c_str()));
  if (words.take("unconfigured")) {
    if (!present) throw std::string("a querier that is there");
    present->gmpQuerierConfigIs(nullptr);
    return;
  }
  auto& protocol = protocols_[name];
  if (words.take("replaced") || !present) protocol = Kel::make<ProtocolConfig>();
  words.require("version");
  protocol->querierVersionIs(words.version());
  if (present) return present->gmpQuerierConfigIs(protocol);
  std::uint16_t vlan = 0;
  std::from_chars(name.data(), name.data() + name.size(), vlan);
  if (vlan >= VlanId::min && vlan <= VlanId::max) topo(vlan);
  queriers->querierConfigIs(Kel::Name(name.c_str()), protocol);
}

void StoryRunner::removeQuerier(Words& words) {
  queriers->querierConfigDel(Kel::Name(words.text("a querier's name").c_str()));
}

void StoryRunner::addPrivateVlan(Words& words) {
  std::uint16_t const secondary = words.vlan();
  VlanType type = VlanType::isolated;
  if (words.take("community"))
    type = VlanType::community;
  else
    words.require("isolated");
  topo(secondary);
  privateVlans->secondaryVlanIs(VlanId(secondary), {type, VlanId(words.vlan())});
}

void StoryRunner::removePrivateVlan(Words& words) {
  isolatesNot(words.vlan());
}

void StoryRunner::addBridging(Words& words) {
  auto const vlan = bridging->vlanConfigIs(VlanId(words.vlan()));
  auto const intf = vlan->intfConfigIs(IntfId(words.text("an interface").c_str()));
  bool const tagged = words.take("tagged");
  if (!tagged) words.require("untagged");
  intf->taggedIs(tagged);
}

void StoryRunner::removeBridging(Words& words) {
  auto const vlan = bridging->vlanConfigIs(VlanId(words.vlan()));
  vlan->intfConfigDel(IntfId(words.text("an interface").c_str()));
}

void StoryRunner::renotify(Words& words) {
  if (words.take("topology")) {
    topo(words.vlan())->portNotify();
  } else {
    words.require("kernel");
    kernel->intfStatusAndDeviceNameNotify();
  }
}

VlanLearning& StoryRunner::learning(std::uint16_t vlan) {
  auto const role = privateVlans->secondaryVlan(VlanId(vlan));
  if (role != VlanTypeAndPrimaryVlan()) vlan = role.primaryVlan().value();
  auto& learning = learning_[vlan];
  topo(vlan);
  if (!learning)
    learning = std::make_unique<VlanLearning>(status->contextStatus(VlanId(vlan)), SnoopingPolicy(),
                                              timerWheel, batch_);
  return *learning;
}

void StoryRunner::report(Words& words) {
  VlanLearning& vlan = learning(words.vlan());
  IntfId const port(words.text("a port").c_str());
  words.require("from");
  IpAddr const reporter = words.address("a reporter");
  bool const includes = words.take("include");
  if (!includes) words.require("exclude");
  IpAddr const group = words.address("a group");
  std::vector<IpAddr> sources;
  while (!words.atEnd()) sources.push_back(words.address("a source"));
  SnoopingTest::ParsedRecord const record(includes ? IgmpTest::isIn(group, sources)
                                                   : IgmpTest::isEx(group, sources));
  auto cause = (*record).problem();
  if (!cause) cause = vlan.record(port, reporter, *record);
  if (cause) throw "a report that is learned from, not one ignored for " + textOf(*cause);
}

void StoryRunner::leave(Words& words) {
  VlanLearning& vlan = learning(words.vlan());
  IntfId const port(words.text("a port").c_str());
  words.require("from");
  IpAddr const reporter = words.address("a reporter");
  SnoopingTest::ParsedRecord const record(IgmpTest::toIn(words.address("a group")));
  vlan.record(port, reporter, *record);
}

void StoryRunner::wait(Words& words) {
  timerWheel->advanceTo(clock->now() + std::chrono::seconds(words.number("seconds")));
}

// ---- what is expected

void StoryRunner::fail(std::string const& expected, std::string const& found) {
  failures_.push_back({line_, "expected " + expected + ", found " + found});
}

void StoryRunner::expect(Words& words) {
  if (words.take("vlans")) return expectList("vlans", words, proxiedVlans());
  if (words.take("adapters")) {
    if (proxy && adapters() != keysOf(proxy->adapterSm()))
      fail("a machine for each adapter", "another set");
    return expectList("adapters", words, adapters());
  }
  if (words.take("vlan")) return expectVlanAdapter(words);
  if (words.take("ports")) return expectList("ports", words, servedPorts(words.vlan()));
  if (words.take("watched")) return expectList("watched", words, watchedPorts(words.vlan()));
  if (words.take("keys")) return expectList("keys", words, hostKeys(words.vlan()));
  if (words.take("hosts")) return expectList("hosts", words, hostNames());
  if (words.take("host")) return expectHost(words);
  if (words.take("records")) return expectRecords(words);
  if (words.take("mapping"))
    return expectList("mapping", words, vlansOfPort(words.text("a port").c_str()));
  if (words.take("devices")) return expectList("devices", words, devicesOpen());
  if (words.take("egress")) return expectEgress(words);
  if (words.take("untagged")) return expectUntagged(words);
  if (words.take("trace")) return expectTrace(words);
  if (words.take("no")) return words.require("trace"), expectNoTrace(words);
  if (words.take("nothing")) return words.require("changed"), expectNothingChanged();
  throw "something that can be expected instead of " + words.text("something that can be expected");
}

void StoryRunner::expectList(std::string const& what, Words& words, Lines const& found) {
  Lines sorted = found;
  std::sort(sorted.begin(), sorted.end());
  Lines const expected = words.list();
  auto const say = [&](Lines const& list) {
    return what + ' ' + (list.empty() ? "none" : joined(list));
  };
  if (expected != sorted) fail(say(expected), say(sorted));
}

void StoryRunner::expectVlanAdapter(Words& words) {
  auto const machine = vlanSm(words.vlan());
  words.require("adapter");
  std::string const& expected = words.text("a VLAN, or none");
  if (!machine) return fail("adapter " + expected, "a VLAN that is not proxied");
  auto const adapter = machine->adapterConfig();
  std::string const found = adapter ? textOf(adapter->vlanId()) : "none";
  if (expected != found) return fail("adapter " + expected, "adapter " + found);
  if (adapter && adapterConfig(adapter->vlanId().value()) != adapter)
    fail("adapter " + expected, "a former adapter " + found);
}

void StoryRunner::expectHost(Words& words) {
  using Host = Igmp::IgmpHost;
  auto const yesNo = [](bool yes) { return std::string(yes ? "yes" : "no"); };
  static std::map<std::string_view, std::function<std::string(Host const&)>> const attributes{
      {"vlan", [](Host const& host) { return textOf(host.vlanId()); }},
      {"port", [](Host const& host) { return textOf(host.intfId()); }},
      {"version", [](Host const& host) { return textOf(host.igmpVersion()); }},
      {"device", [](Host const& host) { return textOf(host.deviceName()); }},
      {"blocked", [=](Host const& host) { return yesNo(host.blocked()); }},
      {"direction", [](Host const& host) { return textOf(host.direction()); }},
      {"pam", [=](Host const& host) { return yesNo(static_cast<bool>(host.pam())); }},
      {"enabled", [=](Host const& host) { return yesNo(host.enabled()); }},
      {"external", [=](Host const& host) { return yesNo(host.externalPam()); }},
      {"mux", [=](Host const& host) { return yesNo(host.useMux()); }},
      {"tagged", [=](Host const& host) { return yesNo(host.tagged()); }},
      {"configured",
       [](Host const& host) {
         return host.configVersion() == host.intfConfigVersion()
                    ? textOf(host.configVersion())
                    : textOf(host.configVersion()) + '/' + textOf(host.intfConfigVersion());
       }},
  };
  std::string const& name = words.text("a host");
  auto const host = hosts->igmpHost(Kel::Name(name.c_str()));
  if (!host) fail("host " + name, "none of that name");
  do {
    std::string const& what = words.text("what the host has");
    auto const attribute = attributes.find(what);
    if (attribute == attributes.end()) throw "what the host has instead of " + what;
    std::string const& expected = words.text("what it is");
    if (!host) continue;
    std::string const found = attribute->second(*host);
    if (found != expected) fail(what + ' ' + expected, what + ' ' + found);
  } while (!words.atEnd());
}

void StoryRunner::expectRecords(Words& words) {
  std::string const& name = words.text("a host");
  auto const host = hosts->igmpHost(Kel::Name(name.c_str()));
  Lines expected;
  if (!words.take("none")) {
    std::string record;
    do {
      std::string word = words.text("a record");
      bool const isLast = word.back() == ',';
      if (isLast) word.pop_back();
      record += (record.empty() ? "" : " ") + word;
      if (isLast || words.atEnd()) expected.push_back(std::exchange(record, ""));
    } while (!words.atEnd());
  }
  std::sort(expected.begin(), expected.end());
  if (!host) return fail("host " + name, "none of that name");
  Lines const found = recordsOf(*host);
  if (expected == found) return;
  auto const say = [](Lines const& records) {
    std::string text;
    for (auto const& record : records) text += (text.empty() ? "" : ", ") + record;
    return text.empty() ? std::string("no records") : text;
  };
  fail(say(expected), say(found));
}

void StoryRunner::expectEgress(Words& words) {
  VlanId const vlan(words.vlan());
  IntfId const port(words.text("a port").c_str());
  bool const expected = words.take("tagged");
  if (!expected) words.require("untagged");
  if (!proxy) throw std::string("a proxy that runs");
  auto const say = [](bool isTagged) { return isTagged ? "tagged" : "untagged"; };
  bool const found = proxy->pamManager()->tagOnEgress(vlan, port);
  if (expected != found) fail(say(expected), say(found));
}

void StoryRunner::expectUntagged(Words& words) {
  IntfId const port(words.text("a port").c_str());
  std::string const& expected = words.text("a VLAN, or none");
  if (!proxy) throw std::string("a proxy that runs");
  auto const vlan = proxy->pamManager()->defaultVlan(port);
  std::string const found = vlan ? textOf(*vlan) : "none";
  if (expected != found) fail("VLAN " + expected, "VLAN " + found);
}

void StoryRunner::expectTrace(Words& words) {
  std::string const level = std::to_string(words.number("a level"));
  std::string const expected = level + ' ' + words.text("a text");
  Lines const found = trace_.texts();
  auto const begin = found.begin() + static_cast<std::ptrdiff_t>(tracesExpected_);
  auto const line = std::find(begin, found.end(), expected);
  if (line != found.end()) {
    tracesExpected_ = static_cast<std::size_t>(line - found.begin()) + 1;
    return;
  }
  std::string rest;
  for (auto other = begin; other != found.end(); ++other) rest += "\n    " + *other;
  fail("trace " + expected, rest.empty() ? "no further traces" : "traces" + rest);
}

void StoryRunner::expectNoTrace(Words& words) {
  std::string const refused = words.atEnd() ? "" : words.text("a text");
  for (auto const& line : trace_.texts())
    if (line.find(refused) != std::string::npos)
      return fail(refused.empty() ? "no trace" : "no trace with \"" + refused + '"', line);
}

void StoryRunner::expectNothingChanged() {
  Snapshot const now = snapshot();
  if (now.picture == beforeEvent_.picture) {
    if (now.objects != beforeEvent_.objects) fail("nothing changed", "other objects in place");
    return;
  }
  std::string changes;
  auto const tellMissing = [&](Lines const& from, Lines const& to, char const* sign) {
    for (auto const& line : from)
      if (std::find(to.begin(), to.end(), line) == to.end()) changes += sign + line;
  };
  tellMissing(beforeEvent_.picture, now.picture, "\n  - ");
  tellMissing(now.picture, beforeEvent_.picture, "\n  + ");
  fail("nothing changed", changes);
}

void StoryRunner::expectThrown(Words& words) {
  std::string const& expected = words.text("a text");
  std::string const found = thrown_ ? '"' + *thrown_ + '"' : "no exception";
  if (thrown_ != expected) fail("exception \"" + expected + '"', found);
  thrown_.reset();
}

}  // namespace Bridging::IgmpSnooping::Proxy::Testing
