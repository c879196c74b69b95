#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/snooping/VlanLearning.h"
#include "tests/TraceCapture.h"
#include "tests/proxy/ProxiedSwitch.h"
#include "tests/proxy/scenario/Story.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {

class Words;

/// Lets one story happen on a switch.
class StoryRunner : private ProxiedSwitch {
 public:
  /// What the story expected and did not find, in its order. The run ends at the first statement
  /// that makes no sense, and at the first exception that the story does not expect.
  static std::vector<Failure> run(Story const& story);

 private:
  using Event = void (StoryRunner::*)(Words&);
  using Events = std::map<std::string_view, Event>;

  /// All that the proxy keeps: how it reads, and which objects stand for it.
  struct Snapshot {
    Lines picture;
    std::vector<void const*> objects;
  };

  void tell(Story const& story);
  void happens(Event event, Words& words);
  Snapshot snapshot() const;
  VlanLearning& learning(std::uint16_t vlan);

  void startProxy(Words& words);
  void stopProxy(Words& words);
  void changeTopology(Words& words);
  void changePort(Words& words);
  void addKernelIntf(Words& words);
  void removeKernelIntf(Words& words);
  void addDesire(Words& words);
  void removeDesire(Words& words);
  void changeProxying(Words& words);
  void removeContext(Words& words);
  void changeQuerier(Words& words);
  void removeQuerier(Words& words);
  void addPrivateVlan(Words& words);
  void removePrivateVlan(Words& words);
  void addBridging(Words& words);
  void removeBridging(Words& words);
  void renotify(Words& words);
  void report(Words& words);
  void leave(Words& words);
  void wait(Words& words);

  void expect(Words& words);
  void expectList(std::string const& what, Words& words, Lines const& found);
  void expectVlanAdapter(Words& words);
  void expectHost(Words& words);
  void expectRecords(Words& words);
  void expectEgress(Words& words);
  void expectUntagged(Words& words);
  void expectTrace(Words& words);
  void expectNoTrace(Words& words);
  void expectNothingChanged();
  void expectThrown(Words& words);
  void fail(std::string const& expected, std::string const& found);

  static Events const events;
  static Events const removals;

  std::vector<Failure> failures_;
  int line_ = 0;
  std::optional<std::string> thrown_;  // by the last event, until the story says so
  Snapshot beforeEvent_;
  TraceCapture trace_ = TraceCapture::ofEveryLevel(controlTraces);
  std::size_t tracesExpected_ = 0;
  std::map<std::string, Kel::Ptr<ProtocolConfig>> protocols_;  // as the queriers last had them
  ReportBatch batch_;
  std::map<std::uint16_t, std::unique_ptr<VlanLearning>> learning_;
};

}  // namespace Bridging::IgmpSnooping::Proxy::Testing
