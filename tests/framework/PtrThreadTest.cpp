#include <array>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "framework/kel/Ptr.h"
#include "framework/kel/Text.h"
#include "tests/framework/ThreadSafePointers.h"

namespace {

constexpr std::size_t threadCount = 4;
constexpr int rounds = 20000;

/// With the switch on, handles and texts may be copied and dropped from any thread.
class PtrThreadTest : public testing::Test {
 protected:
  /// Runs the work on every thread at once, and waits for all of them.
  static void onEveryThread(std::function<void(std::size_t thread)> const& work) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < threadCount; ++thread) {
      threads.emplace_back([&go, &work, thread] {
        while (!go) std::this_thread::yield();
        work(thread);
      });
    }
    go = true;
    for (std::thread& thread : threads) thread.join();
  }

  ThreadSafePointers const on_{true};
};

/// Each thread writes into its own place; the destructor, on whichever thread, reads them all.
class Tally : public Kel::PtrInterface {
 public:
  explicit Tally(std::atomic<int>& total) : total_(total) {}
  ~Tally() override {
    for (int const share : shares) total_ += share;
  }

  std::array<int, threadCount> shares{};

 private:
  std::atomic<int>& total_;
};

TEST_F(PtrThreadTest, CountIsExactAfterCopiesOnAllThreads) {
  std::atomic<int> total{0};
  auto const tally = Kel::make<Tally>(total);
  onEveryThread([&tally](std::size_t) {
    for (int round = 0; round < rounds; ++round) {
      std::array<Kel::Ptr<Tally>, 2> copies{tally, tally};
      Kel::Ptr<Tally const> const input = copies[0];
      copies[1] = std::move(copies[0]);
    }
  });
  EXPECT_EQ(tally->references(), 1u);
}

TEST_F(PtrThreadTest, LastThreadDestroysWhatAllHaveWritten) {
  std::atomic<int> total{0};
  for (int round = 0; round < 200; ++round) {
    auto tally = Kel::make<Tally>(total);
    std::array<Kel::Ptr<Tally>, threadCount> handles;
    handles.fill(tally);
    tally = nullptr;
    onEveryThread([&handles](std::size_t thread) {
      handles[thread]->shares[thread] = 1;
      handles[thread] = nullptr;
    });
  }
  EXPECT_EQ(total, 200 * static_cast<int>(threadCount));
}

TEST_F(PtrThreadTest, TextsAreSharedByAllThreads) {
  Kel::String8 const text("Vlan10eth0");
  std::array<Kel::Name, threadCount> names;
  onEveryThread([&](std::size_t thread) {
    for (int round = 0; round < rounds; ++round) {
      names[thread] = Kel::Name(text);
    }
  });
  for (Kel::Name const& name : names) EXPECT_EQ(name, "Vlan10eth0");
}

TEST_F(PtrThreadTest, TextDiesOnTheThreadThatDropsItLast) {
  for (int round = 0; round < 200; ++round) {
    Kel::String8 text("a text of which every thread has a copy");
    std::array<Kel::String8, threadCount> copies;
    copies.fill(text);
    text = Kel::String8();
    std::atomic<std::uint32_t> bytes{0};
    onEveryThread([&](std::size_t thread) {
      Kel::String8 const mine = std::move(copies[thread]);
      copies[thread] = Kel::String8();
      bytes += mine.size();
    });
    EXPECT_EQ(bytes, 39u * threadCount);
  }
}

}  // namespace
