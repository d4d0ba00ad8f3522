// pThread: life of a worker, its flags, priority, name and stack.
#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "tests/driver/ThreadProbe.h"
#include "tests/support/PluginTest.h"

namespace test {
namespace {

using namespace std::chrono_literals;
constexpr auto kLimit = 10s;

class Threads : public PluginTest {};

void RunUntilShutdown(ThreadProbe& thread) {
    while (!thread.Shutdown) {
        std::this_thread::yield();
    }
}

/// Something that a thread says once.
template <typename Value>
class Said {
  public:
    void Say(Value value) { m_Promise.set_value(std::move(value)); }
    Value Hear() {
        EXPECT_EQ(m_Future.wait_for(kLimit), std::future_status::ready);
        return m_Future.get();
    }

  private:
    std::promise<Value> m_Promise;
    std::future<Value> m_Future = m_Promise.get_future();
};

TEST_F(Threads, ConstructionSetsFieldsAsGiven) {
    ThreadProbe joinable([](ThreadProbe&) {}, false, -1);
    EXPECT_FALSE(joinable.Shutdown);
    EXPECT_FALSE(joinable.Running);
    EXPECT_FALSE(joinable.Detached);
    EXPECT_EQ(joinable.StackSize, -1);
    EXPECT_EQ(joinable.thread_id, pthread_t{0});
    ThreadProbe detached([](ThreadProbe&) {}, true, 65536);
    EXPECT_TRUE(detached.Detached);
    EXPECT_EQ(detached.StackSize, 65536);
}

TEST_F(Threads, StartRunsTheBodyOnAnotherThreadAndStopJoinsIt) {
    std::atomic<bool> ended{false};
    Said<std::thread::id> runner;
    ThreadProbe thread([&](ThreadProbe& self) {
        runner.Say(std::this_thread::get_id());
        RunUntilShutdown(self);
        ended = true;
    });
    thread.Start(nullptr);
    EXPECT_TRUE(thread.Running);
    EXPECT_FALSE(thread.Shutdown);
    EXPECT_NE(runner.Hear(), std::this_thread::get_id());
    EXPECT_NE(thread.thread_id, pthread_t{0});
    thread.Stop();
    EXPECT_TRUE(ended);
    EXPECT_TRUE(thread.Shutdown);
    EXPECT_FALSE(thread.Running);
}

TEST_F(Threads, StartAfterStopResetsBothFlagsAndRunsAgain) {
    std::atomic<int> runs{0};
    ThreadProbe thread([&](ThreadProbe& self) {
        ++runs;
        RunUntilShutdown(self);
    });
    for (int i = 1; i <= 3; ++i) {
        thread.Start(nullptr);
        EXPECT_FALSE(thread.Shutdown);
        EXPECT_TRUE(thread.Running);
        thread.Stop();
    }
    EXPECT_EQ(runs, 3);
}

TEST_F(Threads, StartOfARunningThreadCreatesNoSecondOne) {
    std::atomic<int> runs{0};
    ThreadProbe thread([&](ThreadProbe& self) {
        ++runs;
        RunUntilShutdown(self);
    });
    thread.Start(nullptr);
    const pthread_t first = thread.thread_id;
    thread.Start(nullptr);
    EXPECT_TRUE(pthread_equal(first, thread.thread_id));
    EXPECT_EQ(system_calls().setpriority_calls, 1);
    thread.Stop();
    EXPECT_EQ(runs, 1);
}

TEST_F(Threads, StartAfterRunReturnedByItselfRunsAgain) {
    std::atomic<int> runs{0};
    Said<bool> said[2];
    ThreadProbe thread([&](ThreadProbe&) { said[runs++].Say(true); });
    thread.Start(nullptr);
    said[0].Hear();
    // A start that comes before the thread has quite ended is ignored, so ask until it is taken.
    const auto end = std::chrono::steady_clock::now() + kLimit;
    while (runs < 2 && std::chrono::steady_clock::now() < end) {
        thread.Start(nullptr);
        std::this_thread::yield();
    }
    EXPECT_TRUE(said[1].Hear());
    thread.Stop();
    EXPECT_GE(runs, 2);
}

TEST_F(Threads, RunningIsNotClearedWhenRunReturnsByItself) {
    Said<bool> said;
    ThreadProbe thread([&](ThreadProbe&) { said.Say(true); });
    thread.Start(nullptr);
    said.Hear();
    EXPECT_TRUE(thread.Running);
    thread.Stop();
    EXPECT_FALSE(thread.Running);
}

TEST_F(Threads, StopOfAThreadThatWasNeverStartedReturns) {
    ThreadProbe thread([](ThreadProbe&) {});
    thread.Stop();
    EXPECT_TRUE(thread.Shutdown);
    EXPECT_FALSE(thread.Running);
}

TEST_F(Threads, StopTwiceJoinsOnce) {
    ThreadProbe thread(RunUntilShutdown);
    thread.Start(nullptr);
    thread.Stop();
    thread.Stop();
    EXPECT_FALSE(thread.Running);
}

TEST_F(Threads, ASecondStopWaitsLikeTheFirst) {
    std::promise<void> release;
    auto released = release.get_future().share();
    Said<bool> asked;
    std::atomic<bool> ended{false};
    ThreadProbe thread([&](ThreadProbe& self) {
        RunUntilShutdown(self);
        asked.Say(true);
        released.wait();
        ended = true;
    });
    thread.Start(nullptr);
    const auto stop = [&] {
        thread.Stop();
        return ended.load();
    };
    auto first = std::async(std::launch::async, stop);
    asked.Hear();
    auto second = std::async(std::launch::async, stop);
    EXPECT_EQ(second.wait_for(20ms), std::future_status::timeout);
    release.set_value();
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(second.get());
}

TEST_F(Threads, AnExceptionEndsTheThreadAndNothingElse) {
    Said<bool> said;
    ThreadProbe thread([&](ThreadProbe&) {
        said.Say(true);
        throw std::bad_alloc();
    });
    thread.Start(nullptr);
    EXPECT_TRUE(said.Hear());
    thread.Stop();
    EXPECT_EQ(log().texts(1), (std::vector<std::string>{"A thread ended with an exception.\r\n"}));
}

TEST_F(Threads, FailedCreationLeavesRunningSetAndStopDoesNotJoin) {
    system_calls().pthread_create = EAGAIN;
    std::atomic<int> runs{0};
    ThreadProbe thread([&](ThreadProbe&) { ++runs; });
    thread.Start("name");
    EXPECT_TRUE(thread.Running);
    EXPECT_EQ(thread.thread_id, pthread_t{0});
    thread.Stop();
    EXPECT_FALSE(thread.Running);
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(log().texts().empty());
}

TEST_F(Threads, StartWorksAgainAfterAFailedCreation) {
    Said<bool> said;
    ThreadProbe thread([&](ThreadProbe&) { said.Say(true); });
    system_calls().pthread_create = EAGAIN;
    thread.Start(nullptr);
    system_calls().pthread_create = 0;
    thread.Start(nullptr);
    EXPECT_TRUE(said.Hear());
    thread.Stop();
}

TEST_F(Threads, StartRaisesThePriorityOfItsCaller) {
    ThreadProbe thread(RunUntilShutdown);
    thread.Start(nullptr);
    EXPECT_EQ(system_calls().setpriority_calls, 1);
    EXPECT_EQ(system_calls().last_priority, -19);
    EXPECT_EQ(system_calls().last_priority_which, PRIO_PROCESS);
    EXPECT_EQ(system_calls().last_priority_who, syscall(SYS_gettid));
    EXPECT_EQ(system_calls().setpriority_calls_at_create, 1);  // the new thread inherits it
    thread.Stop();
    EXPECT_EQ(system_calls().setpriority_calls, 1);
}

TEST_F(Threads, RefusedPriorityDoesNotKeepTheThreadFromStarting) {
    system_calls().setpriority = EACCES;
    Said<bool> said;
    ThreadProbe thread([&](ThreadProbe&) { said.Say(true); });
    thread.Start(nullptr);
    EXPECT_TRUE(said.Hear());
    thread.Stop();
    EXPECT_TRUE(log().texts().empty());
}

TEST_F(Threads, RaiseThreadPriorityTellsWhetherItWorked) {
    EXPECT_TRUE(RaiseThreadPriority());
    system_calls().setpriority = EPERM;
    EXPECT_FALSE(RaiseThreadPriority());
    EXPECT_EQ(errno, EPERM);
}

TEST_F(Threads, DestructionOfARunningThreadStopsItFirst) {
    std::atomic<bool> ended{false};
    {
        ThreadProbe thread([&](ThreadProbe& self) {
            RunUntilShutdown(self);
            ended = true;
        });
        thread.Start(nullptr);
    }
    EXPECT_TRUE(ended);
}

/// Leaves the stop to the base class.
class Unstopped : public pThread {
  public:
    explicit Unstopped(std::atomic<bool>& ended) : pThread(false, -1), m_Ended(ended) {}
    void Run() override {
        std::atomic<bool>& ended = m_Ended;
        m_Said.Say(true);
        ended = true;
    }
    Said<bool>& Started() { return m_Said; }

  private:
    std::atomic<bool>& m_Ended;
    Said<bool> m_Said;
};

TEST_F(Threads, BaseDestructorJoinsAsALastResort) {
    std::atomic<bool> ended{false};
    Unstopped thread(ended);
    thread.Start(nullptr);
    thread.Started().Hear();
    static_cast<pThread&>(thread).Stop();
    EXPECT_TRUE(ended);
    auto* second = new Unstopped(ended);
    second->Start(nullptr);
    second->Started().Hear();
    while (!ended) {
        std::this_thread::yield();
    }
    delete second;  // joined, or the sanitizers report a leaked thread
}

/// Leaves the stop to the base class and never ends by itself.
class PollsUntilShutdown : public pThread {
  public:
    explicit PollsUntilShutdown(Said<bool>& said) : pThread(false, -1), m_Said(said) {}
    void Run() override {
        m_Said.Say(true);
        while (!Shutdown) {
            std::this_thread::yield();
        }
    }

  private:
    Said<bool>& m_Said;
};

TEST_F(Threads, BaseDestructorAsksBeforeItJoins) {
    Said<bool> said;
    auto gone = std::async(std::launch::async, [&] {
        PollsUntilShutdown thread(said);
        thread.Start(nullptr);
        said.Hear();
    });
    EXPECT_EQ(gone.wait_for(kLimit), std::future_status::ready);
}

TEST_F(Threads, AStoppedThreadHasNoIdAndStartsOnce) {
    std::atomic<int> runs{0};
    ThreadProbe thread([&](ThreadProbe& self) {
        ++runs;
        RunUntilShutdown(self);
    });
    thread.Start(nullptr);
    thread.Stop();
    EXPECT_EQ(thread.thread_id, pthread_t{0});
    thread.Start(nullptr);
    thread.Start(nullptr);  // a stale sign of its end would wait for the running one for ever
    thread.Stop();
    EXPECT_EQ(runs, 2);
}

TEST_F(Threads, AnObjectMayBeDestroyedInsideItsOwnRun) {
    Said<bool> said;
    auto* thread = new ThreadProbe([&](ThreadProbe& self) {
        Said<bool>& out = said;  // the closure goes with the object
        delete &self;
        out.Say(true);
    });
    thread->Start("self-deleting");
    EXPECT_TRUE(said.Hear());
}

TEST_F(Threads, ADetachedObjectMayBeDestroyedInsideItsOwnRun) {
    Said<bool> said;
    auto* thread = new ThreadProbe(
        [&](ThreadProbe& self) {
            Said<bool>& out = said;  // the closure goes with the object
            delete &self;
            out.Say(true);
        },
        true);
    thread->Start("self-deleting");
    EXPECT_TRUE(said.Hear());
    EXPECT_EQ(system_calls().detached_threads.exchange(0), 1);
}

TEST_F(Threads, StopFromInsideRunLeavesTheWaitToTheOwner) {
    Said<bool> said;
    std::promise<void> release;
    auto released = release.get_future().share();
    std::atomic<bool> ended{false};
    ThreadProbe thread([&](ThreadProbe& self) {
        self.Stop();
        said.Say(self.Shutdown && !self.Running);
        released.wait();
        ended = true;
    });
    thread.Start(nullptr);
    EXPECT_TRUE(said.Hear());
    auto stop = std::async(std::launch::async, [&] {
        thread.Stop();
        return ended.load();
    });
    release.set_value();
    EXPECT_TRUE(stop.get());
}

TEST_F(Threads, EntryReturnsTheObject) {
    bool ran = false;
    bool running = false;
    ThreadProbe thread([&](ThreadProbe& self) {
        ran = true;
        running = self.Running;
    });
    EXPECT_EQ(ThreadProbe::thread_func(static_cast<pThread*>(&thread)),
              static_cast<pThread*>(&thread));
    EXPECT_TRUE(ran);
    EXPECT_TRUE(running);
}

std::string NameInside(const char* name) {
    Said<std::string> said;
    ThreadProbe thread([&](ThreadProbe&) {
        char text[32] = {};
        pthread_getname_np(pthread_self(), text, sizeof text);
        said.Say(text);
    });
    thread.Start(name);
    const std::string result = said.Hear();
    thread.Stop();
    return result;
}

TEST_F(Threads, NameIsShownCutToFifteenCharacters) {
    EXPECT_EQ(NameInside("capture"), "capture");
    EXPECT_EQ(NameInside("fifteen-letters"), "fifteen-letters");
    EXPECT_EQ(NameInside("sixteen-letters!"), "sixteen-letters");
}

TEST_F(Threads, NullNameKeepsTheProcessName) {
    char mine[32] = {};
    pthread_getname_np(pthread_self(), mine, sizeof mine);
    EXPECT_EQ(NameInside(nullptr), mine);
}

#ifndef __SANITIZE_THREAD__  // which enlarges stacks
size_t StackInside(int stackSize) {
    Said<size_t> said;
    ThreadProbe thread(
        [&](ThreadProbe&) {
            pthread_attr_t attribute;
            pthread_getattr_np(pthread_self(), &attribute);
            size_t size = 0;
            pthread_attr_getstacksize(&attribute, &size);
            pthread_attr_destroy(&attribute);
            said.Say(size);
        },
        false, stackSize);
    thread.Start(nullptr);
    const size_t result = said.Hear();
    thread.Stop();
    return result;
}

TEST_F(Threads, PositiveStackSizeIsUsedAndOthersMeanTheDefault) {
    pthread_attr_t attribute;
    pthread_attr_init(&attribute);
    size_t usual = 0;
    pthread_attr_getstacksize(&attribute, &usual);
    pthread_attr_destroy(&attribute);
    constexpr int kMegabyte = 1 << 20;
    ASSERT_NE(usual, size_t{kMegabyte});
    EXPECT_EQ(StackInside(kMegabyte), size_t{kMegabyte});
    EXPECT_EQ(StackInside(0), usual);
    EXPECT_EQ(StackInside(-1), usual);
    // Too small for the C library: the attribute refuses it, the default stays.
    EXPECT_EQ(StackInside(1), usual);
}
#endif

struct Cancellation {
    int detachState;
    int state;
    int type;
};

Cancellation CancellationInside(bool detached) {
    auto said = std::make_shared<Said<Cancellation>>();
    auto gone = std::make_shared<Said<bool>>();
    struct Tell {
        std::shared_ptr<Said<bool>> gone;
        ~Tell() { gone->Say(true); }
    };
    auto body = [said, gone](ThreadProbe& self) {
        Cancellation seen{};
        pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &seen.type);
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &seen.state);
        pthread_attr_t attribute;
        pthread_getattr_np(pthread_self(), &attribute);
        pthread_attr_getdetachstate(&attribute, &seen.detachState);
        pthread_attr_destroy(&attribute);
        Tell tell{gone};  // also when the thread is cancelled
        said->Say(seen);
        while (!self.Detached && !self.Shutdown) {
            std::this_thread::yield();
        }
        while (self.Detached) {
            pause();  // only a cancellation ends it
        }
    };
    ThreadProbe thread(body, detached);
    thread.Start(nullptr);
    const Cancellation seen = said->Hear();
    thread.Stop();
    EXPECT_FALSE(thread.Running);
    gone->Hear();
    return seen;
}

TEST_F(Threads, JoinableThreadsKeepDeferredCancellation) {
    const Cancellation seen = CancellationInside(false);
    EXPECT_EQ(seen.detachState, PTHREAD_CREATE_JOINABLE);
    EXPECT_EQ(seen.type, PTHREAD_CANCEL_DEFERRED);
}

#ifndef __SANITIZE_THREAD__  // which does not follow cancelled threads
TEST_F(Threads, DetachedThreadsAreCancellableAtAnyPointAndStopCancelsThem) {
    const Cancellation seen = CancellationInside(true);
    EXPECT_EQ(seen.detachState, PTHREAD_CREATE_DETACHED);
    EXPECT_EQ(seen.state, PTHREAD_CANCEL_ENABLE);
    EXPECT_EQ(seen.type, PTHREAD_CANCEL_ASYNCHRONOUS);
    EXPECT_EQ(system_calls().detached_threads.exchange(0), 1);
}
#endif

TEST_F(Threads, SleepSplitsMillisecondsIntoSecondsAndNanoseconds) {
    ThreadProbe thread([](ThreadProbe&) {});
    for (const unsigned ms : {0u, 1u, 999u, 1000u, 12345u}) {
        thread.Sleep(ms);
        const auto sleeps = clock().sleeps();
        ASSERT_FALSE(sleeps.empty());
        EXPECT_EQ(sleeps.back().duration, std::chrono::milliseconds(ms));
        EXPECT_EQ(sleeps.back().function, SleepCall::Function::kNanosleep);
    }
    EXPECT_EQ(clock().sleeps().size(), 5u);
}

TEST_F(Threads, FatalHookPrintsNothing) {
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    __FATAL("pthread_create() failed (%s)\n", "text");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace test
