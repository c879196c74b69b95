#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "tests/proxy/scenario/StoryRunner.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

/// A story in its file.
class Scenario : public ::testing::Test {
 public:
  explicit Scenario(std::filesystem::path path) : path_(std::move(path)) {}

  void TestBody() override {
    std::ifstream file(path_);
    std::string const text{std::istreambuf_iterator<char>(file), {}};
    try {
      Story const story = Story::fromText(text);
      SCOPED_TRACE(story.title);
      for (Failure const& failure : StoryRunner::run(story)) tell(failure);
    } catch (Failure const& failure) {
      tell(failure);
    }
  }

 private:
  void tell(Failure const& failure) const {
    ADD_FAILURE_AT(path_.c_str(), failure.line) << failure.text;
  }

  std::filesystem::path path_;
};

/// Registers a test for each story, by name.
int registerStories() {
  std::set<std::filesystem::path> paths;
  for (auto const& entry : std::filesystem::directory_iterator(STORIES))
    if (entry.path().extension() == ".story") paths.insert(entry.path());
  for (auto const& path : paths)
    ::testing::RegisterTest("Scenario", path.stem().c_str(), nullptr, nullptr, path.c_str(), 1,
                            [path]() -> Scenario* { return new Scenario(path); });
  return static_cast<int>(paths.size());
}

int const registered = registerStories();

TEST(Scenarios, AreFound) {
  EXPECT_GT(registered, 0) << STORIES;
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
