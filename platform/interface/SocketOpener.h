#pragma once

#include <functional>
#include <memory>
#include <variant>

#include "framework/entities/DeviceIntfStatus.h"
#include "platform/interface/PacketSocket.h"

namespace Interface {

/// Opens and closes packet sockets. Each takes the kernel some tens of milliseconds, in which it
/// waits until no processor can be using what it changes.
class KEL_EXPORT SocketOpener {
 public:
  /// A socket, or the call that failed and how.
  using Result = std::variant<std::unique_ptr<PacketSocket>, FailedCall>;
  using Opened = std::function<void(Result)>;

  /// A request to open a socket. Destroying it cancels the callback. The opener outlives it.
  class KEL_EXPORT Request {
   public:
    Request(Request const&) = delete;
    Request& operator=(Request const&) = delete;
    virtual ~Request();

   protected:
    Request() = default;
  };

  SocketOpener(SocketOpener const&) = delete;
  SocketOpener& operator=(SocketOpener const&) = delete;
  virtual ~SocketOpener();

  /// `opened` may be called before this returns.
  virtual std::unique_ptr<Request> open(IntfStatusAndDeviceName const& device,
                                        EthDevSettings const& settings, Opened opened) = 0;
  /// Nothing more comes out of the socket. Null is ignored.
  virtual void close(std::unique_ptr<PacketSocket> socket) = 0;

 protected:
  SocketOpener() = default;
};

/// Opens the socket at once and returns when that is done. For programs with few devices.
class KEL_EXPORT DirectSocketOpener final : public SocketOpener {
 public:
  /// @param system outlives it.
  explicit DirectSocketOpener(SystemCalls& system) : system_(system) {}

  std::unique_ptr<Request> open(IntfStatusAndDeviceName const& device,
                                EthDevSettings const& settings, Opened opened) override;
  void close(std::unique_ptr<PacketSocket> socket) override;

 private:
  SystemCalls& system_;
};

}  // namespace Interface
