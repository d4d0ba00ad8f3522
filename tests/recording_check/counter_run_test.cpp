#include "tests/recording_check/counter_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace recording_check::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

CounterRun run_of(std::initializer_list<std::optional<uint32_t>> counters) {
    CounterRun run;
    for (const auto& counter : counters) {
        run.add(counter);
    }
    return run;
}

TEST(CounterRun, ConsecutiveFromAnyNumber) {
    const CounterRun run = run_of({7, 8, 9});
    EXPECT_THAT(run.faults(), IsEmpty());
    EXPECT_EQ(run.pictures(), 3u);
    EXPECT_EQ(run.first(), 7u);
    EXPECT_EQ(run.last(), 9u);
}

TEST(CounterRun, EmptyRunHasNeitherFirstNorLast) {
    const CounterRun run;
    EXPECT_EQ(run.first(), std::nullopt);
    EXPECT_EQ(run.last(), std::nullopt);
}

TEST(CounterRun, MissingPictureIsNamed) {
    EXPECT_THAT(run_of({1, 2, 4, 5}).faults(), ElementsAre("picture 3: counter 4 after 2"));
}

TEST(CounterRun, RepeatedPictureIsNamed) {
    EXPECT_THAT(run_of({1, 1}).faults(), ElementsAre("picture 2: counter 1 after 1"));
}

TEST(CounterRun, UnreadablePictureIsNamedAndSoIsTheGapItLeaves) {
    // One cannot know that nothing else is missing there.
    EXPECT_THAT(run_of({1, std::nullopt, 3}).faults(),
                ElementsAre("picture 2: no readable counter", "picture 3: counter 3 after 1"));
}

TEST(CounterRun, WrapSkipsZero) {
    EXPECT_THAT(run_of({UINT32_MAX, 1}).faults(), IsEmpty());
    EXPECT_THAT(run_of({UINT32_MAX, 0}).faults(), ElementsAre("picture 2: counter 0 after "
                                                              "4294967295"));
}

TEST(CounterRun, GrowingOrderAllowsGapsOnly) {
    CounterRun run(CounterRun::Order::kGrowing);
    for (const uint32_t counter : {3u, 10u, 10u, 9u, 11u}) {
        run.add(counter);
    }
    EXPECT_THAT(run.faults(),
                ElementsAre("picture 3: counter 10 after 10", "picture 4: counter 9 after 10"));
}

TEST(CounterRun, ListOfFaultsIsBounded) {
    CounterRun run;
    for (int i = 0; i < 1000; ++i) {
        run.add(std::nullopt);
    }
    EXPECT_EQ(run.faults().size(), CounterRun::kMaxFaults);
}

}  // namespace
}  // namespace recording_check::test
