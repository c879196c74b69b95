#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/interface/EthDevPam.h"

namespace Bench {

/// The two ends of a cable in a network namespace that this process enters for good.
class VethPair {
 public:
  /// The process's one. Empty if it cannot have one, which why() explains.
  static VethPair const& instance();

  std::string const& why() const { return why_; }
  unsigned nearIndex() const { return nearIndex_; }
  unsigned farIndex() const { return farIndex_; }

  static char const* nearName() { return "near0"; }

 private:
  VethPair();

  std::string why_;
  unsigned nearIndex_ = 0;
  unsigned farIndex_ = 0;
};

/// What all receivers in a comparison have the kernel do.
Interface::EthDevSettings receiveSettings();

/// An open packet socket that has the filter, without protocol: it receives nothing yet. Throws
/// std::system_error, as all of this does.
int newSocket();
void bindSocket(int socket, unsigned index, std::uint16_t protocol);
int checked(int result, char const* call);

using Frame = std::vector<std::uint8_t>;

/// A frame that passes the filter.
Frame frameOf(std::size_t size);

/// Sends frames into the far end.
class Sender {
 public:
  static constexpr std::size_t atOnce = 64;

  Sender();
  Sender(Sender const&) = delete;
  Sender& operator=(Sender const&) = delete;
  ~Sender();

  /// Sends a frame `count` times, with as few system calls as sendmmsg(2) allows.
  void send(Frame& frame, std::size_t count) const;

 private:
  int socket_;
};

}  // namespace Bench
