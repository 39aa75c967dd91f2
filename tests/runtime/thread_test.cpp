#include "ku/thread.h"

#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "support/alloc_control.h"
#include "support/capture.h"
#include "support/child_process.h"

namespace {

using ku_test::CaptureStderr;
using ku_test::run_in_child;

// Sets the process-wide default thread stack size for the life of the object.
class DefaultStack {
public:
    explicit DefaultStack(size_t size)
    {
        pthread_getattr_default_np(&saved_);
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setstacksize(&attr, size);
        applied_ = pthread_setattr_default_np(&attr) == 0;
        pthread_attr_destroy(&attr);
    }
    ~DefaultStack()
    {
        pthread_setattr_default_np(&saved_);
        pthread_attr_destroy(&saved_);
    }
    bool applied() const { return applied_; }

private:
    pthread_attr_t saved_;
    bool applied_ = false;
};

struct ThreadFacts {
    size_t stack = 0;
    int detach_state = -1;
};

void *read_own_attributes(void *out)
{
    auto *facts = static_cast<ThreadFacts *>(out);
    pthread_attr_t attr;
    if (pthread_getattr_np(pthread_self(), &attr) == 0) {
        pthread_attr_getstacksize(&attr, &facts->stack);
        pthread_attr_getdetachstate(&attr, &facts->detach_state);
        pthread_attr_destroy(&attr);
    }
    return nullptr;
}

ThreadFacts facts_of_new_thread()
{
    ThreadFacts facts;
    const pthread_t thread = ku_thread_create(read_own_attributes, &facts);
    EXPECT_NE(thread, 0u);
    if (thread != 0) {
        EXPECT_EQ(ku_thread_join(thread), 0);
    }
    return facts;
}

// A default stack below 0x40000 is raised to it (0x20000: page rounding
// alone cannot get there), a larger one is kept; the thread is joinable.
TEST(ThreadCreate, StackIsAtLeast0x40000AndThreadIsJoinable)
{
    for (const auto &[default_stack, at_least] : {std::pair<size_t, size_t>{0x20000, 0x40000},
                                                  std::pair<size_t, size_t>{8u << 20, 8u << 20}}) {
        DefaultStack stack(default_stack);
        ASSERT_TRUE(stack.applied());
        const ThreadFacts facts = facts_of_new_thread();
        EXPECT_GE(facts.stack, at_least) << default_stack;
        EXPECT_EQ(facts.detach_state, PTHREAD_CREATE_JOINABLE);
    }
}

TEST(ThreadCreate, RefusedCreationGivesZeroAndOneErrorLine)
{
    // No address space holds this stack: 64 TiB where size_t has 64 bits,
    // 3.75 GiB where it has 32 (a MIPS32 process has 2 GiB of user space).
    DefaultStack huge(sizeof(size_t) == 8 ? static_cast<size_t>(1ULL << 46)
                                          : static_cast<size_t>(0xF0000000u));
    ASSERT_TRUE(huge.applied());
    std::atomic<bool> ran{false};
    CaptureStderr capture;
    const pthread_t thread = ku_thread_create(
        [](void *flag) -> void * {
            static_cast<std::atomic<bool> *>(flag)->store(true);
            return nullptr;
        },
        &ran);
    const std::string text = capture.finish();
    EXPECT_EQ(thread, 0u);
    EXPECT_FALSE(ran.load());
    EXPECT_NE(text.find("ERR:  pthread_create failed\n"), std::string::npos) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
}

TEST(ThreadJoin, WaitsForTheThreadAndDropsItsResult)
{
    std::atomic<int> done{0};
    const pthread_t thread = ku_thread_create(
        [](void *counter) -> void * {
            usleep(50000);
            static_cast<std::atomic<int> *>(counter)->store(1);
            return counter;
        },
        &done);
    ASSERT_NE(thread, 0u);
    EXPECT_EQ(ku_thread_join(thread), 0);
    EXPECT_EQ(done.load(), 1);
}

TEST(ThreadDetach, ZeroDetachesTheCallingThread)
{
    struct Shared {
        std::atomic<int> result{-1};
        std::atomic<int> state{-1};
    } shared;
    const pthread_t thread = ku_thread_create(
        [](void *out) -> void * {
            auto *facts = static_cast<Shared *>(out);
            const int result = ku_thread_detach(0);
            pthread_attr_t attr;
            int state = -1;
            if (pthread_getattr_np(pthread_self(), &attr) == 0) {
                pthread_attr_getdetachstate(&attr, &state);
                pthread_attr_destroy(&attr);
            }
            facts->state.store(state);
            facts->result.store(result);
            return nullptr;
        },
        &shared);
    ASSERT_NE(thread, 0u);
    while (shared.result.load() == -1) {
        usleep(1000);
    }
    EXPECT_EQ(shared.result.load(), 0);
    EXPECT_EQ(shared.state.load(), PTHREAD_CREATE_DETACHED);
}

TEST(ThreadDetach, HandleDetachesThatThread)
{
    // Static: the detached thread may still look at it after the test ends.
    static std::atomic<bool> release{false};
    const pthread_t thread = ku_thread_create(
        [](void *) -> void * {
            while (!release.load()) {
                usleep(1000);
            }
            return nullptr;
        },
        nullptr);
    ASSERT_NE(thread, 0u);
    EXPECT_EQ(ku_thread_detach(thread), 0);
    pthread_attr_t attr;
    int state = -1;
    ASSERT_EQ(pthread_getattr_np(thread, &attr), 0);
    pthread_attr_getdetachstate(&attr, &state);
    pthread_attr_destroy(&attr);
    release.store(true);
    EXPECT_EQ(state, PTHREAD_CREATE_DETACHED);
}

int current_policy()
{
    int policy = -1;
    sched_param param{};
    pthread_getschedparam(pthread_self(), &policy, &param);
    return policy;
}

TEST(ThreadPriority, WithoutRealTimeRightsGivesZeroAndKeepsPolicy)
{
    EXPECT_EQ(run_in_child([]() -> std::string {
        const rlimit none{0, 0};
        if (setrlimit(RLIMIT_RTPRIO, &none) != 0) {
            return "cannot drop RLIMIT_RTPRIO";
        }
        if (geteuid() == 0 && setuid(65534) != 0) {
            return "cannot drop root";
        }
        const int before = current_policy();
        const int result = ku_set_thread_priority(10);
        if (result != 0) {
            return "result " + std::to_string(result);
        }
        if (before == SCHED_FIFO || current_policy() != before) {
            return "policy changed to " + std::to_string(current_policy());
        }
        return "";
    }),
              "");
}

TEST(ThreadPriority, PriorityOutsideTheRangeIsPassedOnAndStillGivesZero)
{
    EXPECT_EQ(run_in_child([]() -> std::string {
        const int before = current_policy();
        const int result = ku_set_thread_priority(1000);
        if (result != 0) {
            return "result " + std::to_string(result);
        }
        return current_policy() == before ? "" : "policy changed";
    }),
              "");
}

TEST(ThreadPriority, WithRightsMovesCallingThreadToFifo)
{
    const std::string outcome = run_in_child([]() -> std::string {
        sched_param probe{};
        probe.sched_priority = 1;
        if (sched_setscheduler(0, SCHED_FIFO, &probe) != 0) {
            return "no rights";
        }
        sched_param normal{};
        sched_setscheduler(0, SCHED_OTHER, &normal);
        const int result = ku_set_thread_priority(7);
        int policy = -1;
        sched_param param{};
        pthread_getschedparam(pthread_self(), &policy, &param);
        if (result != 0 || policy != SCHED_FIFO || param.sched_priority != 7) {
            return "result " + std::to_string(result) + ", policy " + std::to_string(policy) +
                   ", priority " + std::to_string(param.sched_priority);
        }
        return "";
    });
    if (outcome == "no rights") {
        GTEST_SKIP() << "this process may not use SCHED_FIFO";
    }
    EXPECT_EQ(outcome, "");
}

TEST(RecursiveLock, HolderMayEnterAgainAndOthersWaitForTheLastLeave)
{
    pthread_mutex_t *lock = kulock_init();
    ASSERT_NE(lock, nullptr);
    ASSERT_EQ(kulock_enter(lock), 0);
    // A plain mutex would refuse its own holder here.
    ASSERT_EQ(pthread_mutex_trylock(lock), 0);
    ASSERT_EQ(kulock_enter(lock), 0);
    ASSERT_EQ(kulock_leave(lock), 0);
    ASSERT_EQ(kulock_leave(lock), 0);

    std::atomic<bool> entered{false};
    int other_try = 0;
    std::thread other([&] {
        other_try = pthread_mutex_trylock(lock);
        kulock_enter(lock);
        entered.store(true);
        kulock_leave(lock);
    });
    usleep(100000);
    EXPECT_FALSE(entered.load()) << "entered while the first thread still held the lock";
    EXPECT_EQ(kulock_leave(lock), 0);
    other.join();
    EXPECT_EQ(other_try, EBUSY);
    EXPECT_TRUE(entered.load());
    kulock_deinit(lock);
}

TEST(RecursiveLock, FailedAllocationGivesNullAndNullIsIgnored)
{
    kulock_deinit(nullptr);
    KU_REQUIRE_ALLOC_CONTROL();
    ku_test::AllocControl alloc;
    alloc.fail(ku_test::kAnyAlloc);
    EXPECT_EQ(kulock_init(), nullptr);
}

}  // namespace
