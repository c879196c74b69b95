#include "platform/interface/SystemCalls.h"

#include <net/if.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Interface {

namespace {

class KernelSystemCalls final : public SystemCalls {
 public:
  unsigned if_nametoindex(char const* name) override { return ::if_nametoindex(name); }
  int socket(int domain, int type, int protocol) override {
    return ::socket(domain, type, protocol);
  }
  int setsockopt(int socket, int level, int option, void const* value, socklen_t size) override {
    return ::setsockopt(socket, level, option, value, size);
  }
  int getsockopt(int socket, int level, int option, void* value, socklen_t* size) override {
    return ::getsockopt(socket, level, option, value, size);
  }
  int bind(int socket, sockaddr const* address, socklen_t size) override {
    return ::bind(socket, address, size);
  }
  int getsockname(int socket, sockaddr* address, socklen_t* size) override {
    return ::getsockname(socket, address, size);
  }
  ssize_t recvmsg(int socket, msghdr* message, int flags) override {
    return ::recvmsg(socket, message, flags);
  }
  int sendmmsg(int socket, mmsghdr* messages, unsigned count, int flags) override {
    return ::sendmmsg(socket, messages, count, flags);
  }
  void* mmap(void* address, std::size_t size, int protection, int flags, int descriptor,
             off_t offset) override {
    return ::mmap(address, size, protection, flags, descriptor, offset);
  }
  int munmap(void* address, std::size_t size) override { return ::munmap(address, size); }
  int close(int descriptor) override { return ::close(descriptor); }
};

}  // namespace

SystemCalls::~SystemCalls() = default;

SystemCalls& SystemCalls::ofKernel() noexcept {
  static KernelSystemCalls calls;
  return calls;
}

}  // namespace Interface
