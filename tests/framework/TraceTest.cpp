#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "framework/kel/Trace.h"

KEL_TRACE_MODULE("Test::Trace", "TraceTest")

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// Counts how often it is written into a message.
struct Written {
  int times = 0;
};
std::ostream& operator<<(std::ostream& out, Written& written) {
  return out << "written " << ++written.times;
}

/// A message as the sink was given it.
struct Received {
  std::string handle, object, text;
  int level;
  std::string sourceFile;
  int line;
  std::string function;
};

class TraceTest : public testing::Test {
 protected:
  TraceTest() {
    Kel::traceSinkIs([this](Kel::TraceMessage const& message) {
      std::ostringstream handle;
      handle << message.handle;
      received_.push_back({handle.str(), message.object, std::string(message.text), message.level,
                           message.sourceFile, message.line, message.function});
    });
  }
  ~TraceTest() override {
    Kel::traceSinkIs({});
    Kel::TraceHandle::coverageStreamIs(nullptr);
    kelTraceHandle.enabledIs(false);
    for (int level = 0; level < Kel::TraceHandle::levels; ++level)
      kelTraceHandle.levelEnabledIs(level, false);
  }

  static void enable(int level) {
    kelTraceHandle.enabledIs(true);
    kelTraceHandle.levelEnabledIs(level, true);
  }

  static constexpr int lineOfHandleVlan = __LINE__ + 1;
  void handleVlan() { KEL_TRACE(9, "void handleVlan(" << written_ << ")"); }

  std::vector<Received> received_;
  Written written_;
};

TEST_F(TraceTest, EverythingIsOffAtFirst) {
  Kel::TraceHandle const handle("Test::Fresh");
  EXPECT_FALSE(handle.enabled());
  for (int level = 0; level < Kel::TraceHandle::levels; ++level)
    EXPECT_FALSE(handle.levelEnabled(level));
  EXPECT_EQ(handle.hits(), 0u);
  EXPECT_EQ(Kel::TraceHandle::coverageStream(), nullptr);
}

TEST_F(TraceTest, ThereAreAtLeastTheLevelsZeroToNine) {
  EXPECT_GT(Kel::TraceHandle::levels, 9);
}

TEST_F(TraceTest, SameNameIsTheSameHandle) {
  EXPECT_EQ(&Kel::traceHandle("Test::Trace"), &kelTraceHandle);
  EXPECT_EQ(kelTraceHandle.name(), "Test::Trace");
  EXPECT_NE(&Kel::traceHandle("Test::Other"), &kelTraceHandle);
}

TEST_F(TraceTest, AllHandlesAreListedByName) {
  Kel::traceHandle("Test::Another");
  std::vector<std::string> names;
  for (Kel::TraceHandle const* const handle : Kel::traceHandles())
    names.emplace_back(handle->name().stringValue().view());
  EXPECT_THAT(names, testing::IsSupersetOf({"Test::Another", "Test::Trace"}));
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
}

TEST_F(TraceTest, HitCountsOnceWhileDisabledAndTwiceWhileEnabled) {
  auto const before = kelTraceHandle.hits();
  handleVlan();
  EXPECT_EQ(kelTraceHandle.hits(), before + 1);
  kelTraceHandle.enabledIs(true);
  handleVlan();
  EXPECT_EQ(kelTraceHandle.hits(), before + 3);
}

TEST_F(TraceTest, HitOfACoveredStatementCountsByTheMasterFlagAlone) {
  std::ostringstream coverage;
  Kel::TraceHandle::coverageStreamIs(&coverage);
  auto const before = kelTraceHandle.hits();
  handleVlan();
  EXPECT_EQ(kelTraceHandle.hits(), before + 1);
}

TEST_F(TraceTest, DisabledStatementDoesNotBuildItsMessage) {
  handleVlan();
  EXPECT_EQ(written_.times, 0);
  EXPECT_THAT(received_, IsEmpty());
}

TEST_F(TraceTest, MasterFlagAloneBuildsNothing) {
  kelTraceHandle.enabledIs(true);
  handleVlan();
  EXPECT_EQ(written_.times, 0);
  EXPECT_THAT(received_, IsEmpty());
}

TEST_F(TraceTest, LevelFlagAloneBuildsNothing) {
  kelTraceHandle.levelEnabledIs(9, true);
  handleVlan();
  EXPECT_EQ(written_.times, 0);
  EXPECT_THAT(received_, IsEmpty());
}

TEST_F(TraceTest, OtherLevelsFlagBuildsNothing) {
  enable(8);
  handleVlan();
  EXPECT_EQ(written_.times, 0);
  EXPECT_THAT(received_, IsEmpty());
}

TEST_F(TraceTest, EnabledStatementHandsItsMessageOverOnce) {
  enable(9);
  handleVlan();
  EXPECT_EQ(written_.times, 1);
  ASSERT_EQ(received_.size(), 1u);
  EXPECT_EQ(received_[0].line, lineOfHandleVlan);
}

TEST_F(TraceTest, MessageNamesHandleObjectLevelSourceFileAndFunction) {
  enable(9);
  handleVlan();
  EXPECT_THAT(
      received_,
      ElementsAre(AllOf(
          Field(&Received::handle, "Test::Trace"), Field(&Received::object, "<unknown>"),
          Field(&Received::text, "void handleVlan(written 1)"), Field(&Received::level, 9),
          Field(&Received::sourceFile, "TraceTest"), Field(&Received::function, "handleVlan"))));
}

TEST_F(TraceTest, EachLevelHasAFlagOfItsOwn) {
  kelTraceHandle.enabledIs(true);
  for (int enabled = 0; enabled < Kel::TraceHandle::levels; ++enabled) {
    received_.clear();
    kelTraceHandle.levelEnabledIs(enabled, true);
    for (int level = 0; level < Kel::TraceHandle::levels; ++level) KEL_TRACE(level, "at " << level);
    kelTraceHandle.levelEnabledIs(enabled, false);
    EXPECT_THAT(received_, ElementsAre(Field(&Received::level, enabled)));
  }
}

TEST_F(TraceTest, StatementIsOneStatement) {
  enable(1);
  if (received_.empty())
    KEL_TRACE(1, "then");
  else
    KEL_TRACE(1, "else");
  EXPECT_THAT(received_, ElementsAre(Field(&Received::text, "then")));
}

TEST_F(TraceTest, CoverageStreamCollectsDisabledStatements) {
  std::ostringstream coverage;
  Kel::TraceHandle::coverageStreamIs(&coverage);
  handleVlan();
  EXPECT_EQ(written_.times, 1);
  EXPECT_THAT(received_, IsEmpty());
  EXPECT_THAT(coverage.str(), AllOf(HasSubstr("TraceTest:"), HasSubstr("handleVlan"),
                                    EndsWith("void handleVlan(written 1)\n")));
}

TEST_F(TraceTest, CoverageStreamCollectsEnabledStatementsToo) {
  std::ostringstream coverage;
  Kel::TraceHandle::coverageStreamIs(&coverage);
  enable(9);
  handleVlan();
  EXPECT_EQ(written_.times, 1);
  EXPECT_EQ(received_.size(), 1u);
  EXPECT_THAT(coverage.str(), HasSubstr("void handleVlan(written 1)"));
}

TEST_F(TraceTest, CoverageStreamCollectsFromEveryHandle) {
  std::ostringstream coverage;
  Kel::TraceHandle::coverageStreamIs(&coverage);
  EXPECT_TRUE(Kel::traceHandle("Test::Other").wanted(0));
}

TEST_F(TraceTest, WithoutASinkMessagesAreLinesOnStandardError) {
  Kel::traceSinkIs({});
  enable(9);
  std::ostringstream standardError;
  std::streambuf* const former = std::clog.rdbuf(standardError.rdbuf());
  handleVlan();
  std::clog.rdbuf(former);
  EXPECT_THAT(received_, IsEmpty());
  EXPECT_THAT(standardError.str(), AllOf(StartsWith("Test::Trace 9 TraceTest:"),
                                         EndsWith(" handleVlan: void handleVlan(written 1)\n")));
}

TEST_F(TraceTest, HelperKeepsAMessageWhoseLevelIsDisabledFromTheSink) {
  std::ostringstream message("a message");
  Kel::traceHelper(kelTraceHandle, "object", message, 3, false, "Module", 12, "function");
  EXPECT_THAT(received_, IsEmpty());
  Kel::traceHelper(kelTraceHandle, "object", message, 3, true, "Module", 12, "function");
  EXPECT_THAT(
      received_,
      ElementsAre(AllOf(Field(&Received::object, "object"), Field(&Received::text, "a message"),
                        Field(&Received::level, 3), Field(&Received::sourceFile, "Module"),
                        Field(&Received::line, 12), Field(&Received::function, "function"))));
}

TEST_F(TraceTest, LevelsThatThereAreNotAreRefusedAndNeverEnabled) {
  for (int const level : {-1, 16, 31, 32, 33, 64}) {
    EXPECT_THROW(kelTraceHandle.levelEnabledIs(level, true), Kel::RangeException) << level;
    EXPECT_FALSE(kelTraceHandle.levelEnabled(level)) << level;
    EXPECT_FALSE(kelTraceHandle.wanted(level)) << level;
  }
  EXPECT_FALSE(kelTraceHandle.levelEnabled(0));
}

}  // namespace
