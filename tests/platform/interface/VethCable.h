#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "tests/platform/interface/PamTesting.h"

namespace InterfaceTest {

/// A network namespace of this process's own. The calling thread can step into it.
class NetworkNamespace {
 public:
  /// Throws std::system_error if the process may not make one.
  NetworkNamespace();
  NetworkNamespace(NetworkNamespace const&) = delete;
  NetworkNamespace& operator=(NetworkNamespace const&) = delete;
  ~NetworkNamespace();

  /// The thread is inside as long as this lives.
  class Inside {
   public:
    explicit Inside(NetworkNamespace const& space);
    Inside(Inside const&) = delete;
    Inside& operator=(Inside const&) = delete;
    ~Inside();

   private:
    int former_;
  };

  /// As ip(8) takes it.
  std::string path() const;

 private:
  int descriptor_;
};

/// A cable between two namespaces: what goes into one end comes out of the other.
class VethCable {
 public:
  /// Why there can be none here; nothing if there can.
  static std::optional<std::string> impossible();

  VethCable();

  NetworkNamespace const& nearSpace() const { return near_; }
  NetworkNamespace const& farSpace() const { return far_; }

  static char const* nearName() { return "near0"; }
  static char const* farName() { return "far0"; }
  unsigned nearIndex() const;

  /// Makes the cable, which the constructor has done already, and takes it away.
  /// @param nearIndex the kernel's number of the near end, if it is to have a certain one.
  void plug(std::optional<unsigned> nearIndex = std::nullopt);
  void unplug();

  /// Takes one end down or up.
  void nearIsUp(bool up);
  void mtuIs(unsigned mtu);

 private:
  void awaitLink();

  NetworkNamespace near_;
  NetworkNamespace far_;
};

/// Runs ip(8) with these arguments in a namespace. Throws std::runtime_error if it fails.
void ip(NetworkNamespace const& space, std::string const& arguments);

/// A bare packet socket on the far end of a cable.
class FarEnd {
 public:
  explicit FarEnd(VethCable const& cable);
  FarEnd(FarEnd const&) = delete;
  FarEnd& operator=(FarEnd const&) = delete;
  ~FarEnd();

  void send(Frame const& frame) const;
  /// The next frame that comes, with its tag; nothing if none does within a second.
  std::optional<Frame> receive() const;

 private:
  int descriptor_;
};

}  // namespace InterfaceTest
