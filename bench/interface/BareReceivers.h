#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <linux/if_packet.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "bench/interface/VethPair.h"
#include "platform/wirex/Ethernet.h"

/// The least that a program can do to receive frames from a packet socket, in each of the ways
/// that the kernel offers: it waits for the socket, and calls a function with each frame.
namespace Bench {

class BareReceiver {
 public:
  BareReceiver(BareReceiver const&) = delete;
  BareReceiver& operator=(BareReceiver const&) = delete;

 protected:
  BareReceiver() {
    epoll_event event{};
    event.events = EPOLLIN;
    checked(epoll_ctl(epoll_, EPOLL_CTL_ADD, socket_, &event), "epoll_ctl");
  }
  ~BareReceiver() {
    close(socket_);
    close(epoll_);
  }

  void wait() const {
    constexpr int milliseconds = 100;
    epoll_event event{};
    epoll_wait(epoll_, &event, 1, milliseconds);
  }

  template <class Option>
  void set(int option, Option const& value) const {
    checked(setsockopt(socket_, SOL_PACKET, option, &value, sizeof value), "setsockopt");
  }

  int socket() const { return socket_; }
  void bind() const {
    bindSocket(socket_, VethPair::instance().nearIndex(), receiveSettings().protocol);
  }

 private:
  int socket_ = newSocket();
  int epoll_ = checked(epoll_create1(0), "epoll_create1");
};

/// Copies a batch of frames out of the socket's queue with each system call.
class RecvmmsgReceiver final : public BareReceiver {
 public:
  RecvmmsgReceiver() {
    int const size = 1 << 20;
    checked(setsockopt(socket(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size), "setsockopt");
    set(PACKET_AUXDATA, int{1});
    bind();
  }

  template <class Action>
  void turn(Action action) {
    wait();
    for (std::size_t i = 0; i < atOnce; ++i) {
      contents_[i] = {&buffer_[i * bufferSize], bufferSize};
      messages_[i].msg_hdr = {};
      messages_[i].msg_hdr.msg_iov = &contents_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
      messages_[i].msg_hdr.msg_control = &control_[i];
      messages_[i].msg_hdr.msg_controllen = sizeof control_[i];
    }
    int const count = recvmmsg(socket(), messages_.data(), atOnce, 0, nullptr);
    for (std::size_t i = 0; static_cast<int>(i) < count; ++i)
      action(Wirex::Bytes(&buffer_[i * bufferSize], messages_[i].msg_len));
  }

 private:
  static constexpr std::size_t atOnce = 64;
  static constexpr std::size_t bufferSize = 2048;
  struct Control {
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(tpacket_auxdata))> bytes;
  };

  std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(atOnce * bufferSize);
  std::array<Control, atOnce> control_{};
  std::array<iovec, atOnce> contents_{};
  std::array<mmsghdr, atOnce> messages_{};
};

/// A megabyte that is shared with the kernel.
template <class Request, int version>
class RingReceiver : public BareReceiver {
 protected:
  static constexpr std::size_t slotSize = 2048;
  static constexpr std::size_t blockSize = 32 * slotSize;
  static constexpr std::size_t blocks = 16;
  static constexpr std::size_t size = blocks * blockSize;

  explicit RingReceiver(Request request) {
    set(PACKET_VERSION, version);
    request.tp_block_size = blockSize;
    request.tp_block_nr = blocks;
    request.tp_frame_size = slotSize;
    request.tp_frame_nr = size / slotSize;
    set(PACKET_RX_RING, request);
    void* const mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, socket(), 0);
    checked(mapped == MAP_FAILED ? -1 : 0, "mmap");
    ring_ = static_cast<std::uint8_t*>(mapped);
    bind();
  }
  ~RingReceiver() { munmap(ring_, size); }

  std::uint8_t* at(std::size_t offset) const { return ring_ + offset; }

 private:
  std::uint8_t* ring_;
};

/// The kernel hands over each frame as it comes.
class RingV2Receiver final : public RingReceiver<tpacket_req, TPACKET_V2> {
 public:
  RingV2Receiver() : RingReceiver({}) {}

  template <class Action>
  void turn(Action action) {
    wait();
    for (;;) {
      std::uint8_t* const slot = at(next_);
      auto& header = *reinterpret_cast<tpacket2_hdr*>(slot);
      std::atomic_ref const status(header.tp_status);
      if ((status.load(std::memory_order_acquire) & TP_STATUS_USER) == 0) return;
      action(Wirex::Bytes(slot + header.tp_mac, header.tp_snaplen));
      status.store(TP_STATUS_KERNEL, std::memory_order_release);
      next_ = (next_ + slotSize) % size;
    }
  }

 private:
  std::size_t next_ = 0;
};

/// The kernel hands over blocks of frames, when they are full or their time is up.
class RingV3Receiver final : public RingReceiver<tpacket_req3, TPACKET_V3> {
 public:
  RingV3Receiver() : RingReceiver(request()) {}

  template <class Action>
  void turn(Action action) {
    wait();
    for (;;) {
      std::uint8_t* const block = at(next_);
      auto& header = reinterpret_cast<tpacket_block_desc*>(block)->hdr.bh1;
      std::atomic_ref const status(header.block_status);
      if ((status.load(std::memory_order_acquire) & TP_STATUS_USER) == 0) return;
      std::uint8_t const* frame = block + header.offset_to_first_pkt;
      for (std::uint32_t i = 0; i < header.num_pkts; ++i) {
        auto const& frameHeader = *reinterpret_cast<tpacket3_hdr const*>(frame);
        action(Wirex::Bytes(frame + frameHeader.tp_mac, frameHeader.tp_snaplen));
        frame += frameHeader.tp_next_offset;
      }
      status.store(TP_STATUS_KERNEL, std::memory_order_release);
      next_ = (next_ + blockSize) % size;
    }
  }

 private:
  static tpacket_req3 request() {
    tpacket_req3 request{};
    request.tp_retire_blk_tov = 1;  // milliseconds; the kernel rounds up to its tick
    return request;
  }

  std::size_t next_ = 0;
};

}  // namespace Bench
