#pragma once

#include <cstddef>
#include <sys/socket.h>

#include "framework/kel/Export.h"

namespace Interface {

/// The system calls of a packet socket, each as in its manual page, errno included. Tests put
/// something in their place that fails as they please.
class KEL_EXPORT SystemCalls {
 public:
  SystemCalls(SystemCalls const&) = delete;
  SystemCalls& operator=(SystemCalls const&) = delete;
  virtual ~SystemCalls();

  /// Those of the kernel.
  static SystemCalls& ofKernel() noexcept;

  /// if_nametoindex(3)
  virtual unsigned if_nametoindex(char const* name) = 0;
  /// socket(2)
  virtual int socket(int domain, int type, int protocol) = 0;
  /// setsockopt(2)
  virtual int setsockopt(int socket, int level, int option, void const* value, socklen_t size) = 0;
  /// getsockopt(2)
  virtual int getsockopt(int socket, int level, int option, void* value, socklen_t* size) = 0;
  /// bind(2)
  virtual int bind(int socket, sockaddr const* address, socklen_t size) = 0;
  /// getsockname(2)
  virtual int getsockname(int socket, sockaddr* address, socklen_t* size) = 0;
  /// recvmsg(2)
  virtual ssize_t recvmsg(int socket, msghdr* message, int flags) = 0;
  /// sendmmsg(2)
  virtual int sendmmsg(int socket, mmsghdr* messages, unsigned count, int flags) = 0;
  /// mmap(2)
  virtual void* mmap(void* address, std::size_t size, int protection, int flags, int descriptor,
                     off_t offset) = 0;
  /// munmap(2)
  virtual int munmap(void* address, std::size_t size) = 0;
  /// close(2)
  virtual int close(int descriptor) = 0;

 protected:
  SystemCalls() = default;
};

}  // namespace Interface
