#include "tests/proxy/random/ProxyPicture.h"

#include <ostream>
#include <sstream>

namespace Bridging::IgmpSnooping::Proxy::Random {

namespace {

std::ostream& print(std::ostream& out, int number) {
  return out << number;
}
std::ostream& print(std::ostream& out, bool value) {
  return out << (value ? "yes" : "no");
}
std::ostream& print(std::ostream& out, HostKey const& key) {
  return out << "port " << key.port << " in VLAN " << key.vlan;
}
std::ostream& print(std::ostream& out, Device const& device) {
  return out << '"' << device.name << "\" number " << device.index;
}

template <class Key>
std::ostream& print(std::ostream& out, std::set<Key> const& keys) {
  char const* separator = "";
  for (Key const& key : keys) {
    print(out << separator, key);
    separator = ", ";
  }
  return out;
}

template <class Key, class Value>
std::ostream& print(std::ostream& out, std::map<Key, Value> const& values) {
  char const* separator = "";
  for (auto const& [key, value] : values) {
    print(print(out << separator, key) << " -> ", value);
    separator = ", ";
  }
  return out;
}

std::ostream& print(std::ostream& out, MachinePicture const& machine) {
  out << "querier object " << machine.querier << ", topology object " << machine.topology;
  if (!machine.config) {
    out << ", no adapter configuration";
  } else {
    out << ", adapter configuration of VLAN " << machine.config->vlan
        << (machine.config->isCurrent ? "" : " that was") << " with host keys {";
    print(out, machine.config->hostKeys) << '}';
  }
  print(out << ", port objects watched {", machine.watched);
  return print(out << "}, ports served {", machine.served) << '}';
}

std::ostream& print(std::ostream& out, Model::HostPicture const& records) {
  for (auto const& [group, record] : records) {
    out << ", group " << group << (record.type == 2 ? " excludes" : " includes") << " {";
    char const* separator = "";
    if (!record.sources) out << "no list";
    if (record.sources)
      for (auto const& [source, value] : *record.sources) {
        out << separator << 's' << source << " = " << value;
        separator = ", ";
      }
    out << '}';
  }
  return out;
}

std::ostream& print(std::ostream& out, HostPicture const& host) {
  out << (host.isConfigured ? "" : "wrongly ") << "configured " << host.configVersions << "x, "
      << (host.sends ? "" : "no ") << "packet access, version " << host.version << ", device \""
      << host.deviceName << "\", " << (host.blocked ? "" : "not ") << "blocked, direction "
      << host.direction;
  return print(out, host.records);
}

/// Compares what both have under one name.
class Comparison {
 public:
  std::string text() const { return text_.str(); }

  template <class T>
  void compare(std::string const& name, T const& proxy, T const& model) {
    if (proxy == model) return;
    print(text_ << name << "\n  proxy: ", proxy);
    print(text_ << "\n  model: ", model) << '\n';
  }

  template <class Key, class Part>
  void compareEach(char const* prefix, std::map<Key, Part> const& proxy,
                   std::map<Key, Part> const& model) {
    for (auto const& [key, part] : proxy) {
      auto const other = model.find(key);
      if (other == model.end())
        print(named(prefix, key) << "\n  proxy: ", part) << "\n  model: has none\n";
      else if (!(part == other->second))
        print(print(named(prefix, key) << "\n  proxy: ", part) << "\n  model: ", other->second)
            << '\n';
    }
    for (auto const& [key, part] : model)
      if (!proxy.contains(key))
        print(named(prefix, key) << "\n  proxy: has none\n  model: ", part) << '\n';
  }

 private:
  template <class Key>
  std::ostream& named(char const* prefix, Key const& key) {
    return print(text_ << prefix, key);
  }

  std::ostringstream text_;
};

}  // namespace

std::string difference(ProxyPicture const& proxy, ProxyPicture const& model) {
  if (proxy == model) return {};
  Comparison comparison;
  comparison.compare("entries watched", proxy.contexts, model.contexts);
  comparison.compareEach("machine of VLAN ", proxy.machines, model.machines);
  comparison.compareEach("adapter configuration of VLAN ", proxy.adapterConfigs,
                         model.adapterConfigs);
  comparison.compare("adapters", proxy.adapters, model.adapters);
  comparison.compareEach("host of ", proxy.hosts, model.hosts);
  comparison.compareEach("VLANs with a host on port ", proxy.vlansOfPorts, model.vlansOfPorts);
  comparison.compare("packet access", proxy.packetAccess, model.packetAccess);
  comparison.compare("devices wanted", proxy.wantedDevices, model.wantedDevices);
  comparison.compareEach("open device of port ", proxy.openDevices, model.openDevices);
  comparison.compare("multiplexers", proxy.multiplexers, model.multiplexers);
  comparison.compareEach("default VLAN of port ", proxy.defaultVlans, model.defaultVlans);
  comparison.compare("tagged on egress", proxy.taggedOnEgress, model.taggedOnEgress);
  return comparison.text();
}

}  // namespace Bridging::IgmpSnooping::Proxy::Random
