#pragma once

#include "agent/config/TcpAddress.h"
#include "agent/control/Descriptor.h"
#include "agent/control/ListeningSocket.h"

namespace Agent {

/// A listening TCP socket. Its address need not be there yet.
class TcpSocket final : public ListeningSocket {
 public:
  /// Throws std::runtime_error.
  /// @param name what messages call the address.
  TcpSocket(TcpAddress const& address, std::string name);

  int descriptor() const override { return descriptor_.value(); }
  std::string const& path() const override { return name_; }
  void giveTo(uid_t /*user*/, gid_t /*group*/) const override {}

 private:
  std::string name_;
  Descriptor descriptor_;
};

}  // namespace Agent
