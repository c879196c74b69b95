#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "agent/InterfaceState.h"
#include "framework/types/IntfId.h"
#include "platform/horix/EventLoop.h"

struct mnl_socket;
struct nlmsghdr;

namespace Agent {

/// Follows the kernel's interfaces through rtnetlink(7): those that come, go and are renamed, their
/// carrier, and whether a bridge lets its port forward. An interface is found by its name. Should
/// the kernel have had to drop messages, it is asked for everything again. The loop outlives it.
class KernelInterfaces {
 public:
  /// An interface, and what it is like now.
  using Changed = std::function<void(Wirex::IntfId const&, InterfaceState const&)>;

  /// Tells of the interfaces that there are before it returns. Throws std::system_error.
  KernelInterfaces(Horix::EventLoop& loop, Changed changed);
  ~KernelInterfaces();

 private:
  struct Link {
    std::string name;
    InterfaceState state;
    std::uint32_t generation = 0;
  };
  struct Closer {
    void operator()(mnl_socket* socket) const noexcept;
  };
  class Input;

  void handleReady();

  void askForAll();
  void requestDump();
  void awaitDump();
  /// Returns false when nothing is left.
  bool receive();
  void handle(nlmsghdr const& header);
  void handleLink(nlmsghdr const& header);
  void handleDumped();
  void linkIs(std::uint32_t index, Link link);
  void linkDel(std::uint32_t index);
  void giveUpName(std::string const& name, std::uint32_t index);

  std::unique_ptr<mnl_socket, Closer> socket_;
  Changed changed_;
  std::map<std::uint32_t, Link> links_;
  std::map<std::string, std::uint32_t> named_;  // of several that had a name, the last one
  std::uint32_t generation_ = 0;                // of the latest dump, whose sequence number it is
  bool dumping_ = false;
  bool dumpAgain_ = false;  // once the dump that goes on is at its end
  alignas(std::max_align_t) std::array<std::byte, 65536> buffer_;
  std::unique_ptr<Input> input_;
};

}  // namespace Agent
