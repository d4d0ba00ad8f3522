// Virtual time itself, and a good camera's whole life in it.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>

#include "tests/simulation/camera.h"
#include "tests/simulation/host.h"
#include "tests/support/TvFiles.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

TEST(World, AnHourOfSleepIsAnHourOfVirtualTimeOnly) {
    const World world;
    const auto at = World::now();
    sleep(3600);
    usleep(500);
    EXPECT_EQ(World::now() - at, 1h + 500us);
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    EXPECT_EQ(now.tv_sec, 3600);
    EXPECT_EQ(std::chrono::steady_clock::now().time_since_epoch(), 1h + 500us);
}

TEST(World, TheWallClockStepsByItself) {
    const World world;
    timeval before, after;
    gettimeofday(&before, nullptr);
    World::step_wall_clock(-10s);
    pass(1s);
    gettimeofday(&after, nullptr);
    EXPECT_EQ(after.tv_sec - before.tv_sec, -9);
    EXPECT_EQ(World::now(), 1s + 2us);
}

TEST(World, ThreadsWakeInTheOrderOfTheirTime) {
    const World world;
    std::string order;
    Task late([&] { pass(2s), order += "late "; });
    Task early([&] { pass(1s), order += "early "; });
    late.join();
    early.join();
    EXPECT_EQ(order, "early late ");
    EXPECT_EQ(World::now(), 2s);
    EXPECT_EQ(World::threads(), 1u);
}

TEST(World, AWaiterGetsTheMutexFromALoopThatLocksAgainAtOnce) {
    const World world;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    int rounds = 0;
    bool over = false;
    Task loop([&] {
        while (!over) {
            pthread_mutex_lock(&mutex);
            usleep(1000);
            ++rounds;
            pthread_mutex_unlock(&mutex);
        }
    });
    usleep(500);
    pthread_mutex_lock(&mutex);
    over = true;
    pthread_mutex_unlock(&mutex);
    loop.join();
    EXPECT_EQ(rounds, 1);
}

TEST(World, AConditionWakesOrTimesOut) {
    const World world;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    const timespec deadline = {1, 0};
    pthread_mutex_lock(&mutex);
    EXPECT_EQ(pthread_cond_timedwait(&condition, &mutex, &deadline), ETIMEDOUT);
    EXPECT_EQ(World::now(), 1s);
    Task other([&] {
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
        pthread_cond_signal(&condition);
    });
    EXPECT_EQ(pthread_cond_wait(&condition, &mutex), 0);
    pthread_mutex_unlock(&mutex);
    other.join();
}

TEST(WorldDeathTest, ADeadlockIsNoticed) {
    const auto wait_for_good = [] {
        const World world;
        pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
        pthread_mutex_lock(&mutex);
        pthread_mutex_lock(&mutex);
    };
    EXPECT_DEATH(wait_for_good(), "all threads wait for good");
}

class Unplugged : public ::testing::Test {
  protected:
    void SetUp() override {
        test::RemoveTvFiles();
        test::WriteFile("/mtd_exe/.info", "T-XXX12");
        test::WriteFile("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin", test::ImageOf(100000));
    }
};
class ALife : public Unplugged, public ::testing::WithParamInterface<uint16_t> {};
INSTANTIATE_TEST_SUITE_P(Camera, ALife, ::testing::Values(kBootCode, kRunTime),
                         [](const auto& product) {
                             return product.param == kBootCode ? "WithoutFirmware" : "Running";
                         });

TEST_P(ALife, LeavesNothingBehind) {
    Camera camera(GetParam());
    const World world;
    const Bus bus(&camera);
    Bus::publish_listing();
    Reader pictures(CAM_STREAM_H264_MAIN), sound(CAM_STREAM_PCM);
    Host host;
    EXPECT_TRUE(host.init());
    EXPECT_EQ(camera.firmware().size(), GetParam() == kBootCode ? 100000u : 0u);
    host->RegisterObserver(&pictures);
    host->RegisterObserver(&sound);
    EXPECT_TRUE(host->StartRecording());
    pass(10s);
    EXPECT_NEAR(static_cast<double>(pictures.records()), 300, 2);
    EXPECT_NEAR(static_cast<double>(sound.records()), 10 * 64000.0 / 960, 2);
    EXPECT_TRUE(host->StopRecording());
    host.destroy();
    EXPECT_EQ(World::threads(), 1u);
    const Bus::Leavings left = Bus::leavings();
    EXPECT_EQ(left.contexts + left.handles + left.transfers + left.in_flight, 0u);
}

TEST_F(Unplugged, ALifeEndsWhenTheCableIsPulled) {
    Camera camera;
    const World world;
    const Bus bus(&camera);
    Bus::publish_listing();
    Host host;
    ASSERT_TRUE(host.init());
    ASSERT_TRUE(host->StartRecording());
    pass(1s);
    Bus::unplug();
    EXPECT_TRUE(Host::await_answer(10s));
    EXPECT_FALSE(Host::answers().back());
    EXPECT_EQ(host->GetState(), CAM_STATE_DISCONNECTED);
    host.destroy();
    EXPECT_EQ(World::threads(), 1u);
}

}  // namespace
}  // namespace sim
