#include "ku/thread.h"

#include <gmock/gmock.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <future>
#include <thread>

#include "support/alloc_control.h"
#include "support/capture.h"

// A smaller default stack is raised to 0x40000 (0x20000: page rounding alone
// cannot get there), a larger one is kept. The default ends at the usual 8 MiB.
// Detach of 0 detaches the calling thread, so that a second one is refused.
TEST(Thread, HasAStackOfAtLeast0x40000JoinsOrDetachesItselfAndMovesToFifo)
{
    for (const size_t default_stack : {0x20000u, 8u << 20}) {
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setstacksize(&attr, default_stack);
        ASSERT_EQ(pthread_setattr_default_np(&attr), 0);
        size_t stack = 0;
        const auto read_own_stack = [](void *out) -> void * {
            pthread_attr_t own;
            pthread_getattr_np(pthread_self(), &own);
            pthread_attr_getstacksize(&own, static_cast<size_t *>(out));
            pthread_attr_destroy(&own);
            return nullptr;
        };
        EXPECT_EQ(ku_thread_join(ku_thread_create(read_own_stack, &stack)), 0);
        EXPECT_GE(stack, std::max<size_t>(default_stack, 0x40000));
    }
    static std::atomic<int> first{-1}, second{-1};
    const auto detach_self_twice = [](void *) -> void * {
        first = ku_thread_detach(0);
        second = ku_thread_detach(0);
        return nullptr;
    };
    ASSERT_NE(ku_thread_create(detach_self_twice, nullptr), 0u);
    while (second == -1)
        usleep(1000);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, EINVAL);
    // The priority's result is that of reading the parameters back, so a refused
    // change (priority 1000, or SCHED_FIFO without the right) still gives 0.
    std::thread([] {
        int policy = -1;
        sched_param param{1};
        const bool may_use_fifo = pthread_setschedparam(pthread_self(), SCHED_FIFO, &param) == 0;
        param.sched_priority = 0;
        pthread_setschedparam(pthread_self(), SCHED_OTHER, &param);
        EXPECT_EQ(ku_set_thread_priority(1000), 0);
        EXPECT_EQ(ku_set_thread_priority(7), 0);
        pthread_getschedparam(pthread_self(), &policy, &param);
        EXPECT_EQ(policy == SCHED_FIFO && param.sched_priority == 7, may_use_fifo);
    }).join();
}

TEST(Lock, HolderMayEnterAgainOthersWaitForTheLastLeaveAndResourcesMayRunOut)
{
    pthread_mutex_t *lock = kulock_init();
    const auto other_may_enter = [lock] {
        return std::async(std::launch::async, [lock] {
            return pthread_mutex_trylock(lock) == 0 && kulock_leave(lock) == 0;
        }).get();
    };
    EXPECT_EQ(kulock_enter(lock), 0);
    EXPECT_EQ(pthread_mutex_trylock(lock), 0);  // a plain mutex refuses its holder
    EXPECT_EQ(kulock_leave(lock), 0);
    EXPECT_FALSE(other_may_enter());
    EXPECT_EQ(kulock_leave(lock), 0);
    EXPECT_TRUE(other_may_enter());
    kulock_deinit(lock);
    kulock_deinit(nullptr);
    // Out of resources: 0 or null, and one error line for the thread.
    KU_REQUIRE_ALLOC_CONTROL();
    ku_test::CaptureStderr capture;
    ku_test::AllocControl alloc;
    alloc.fail(ku_test::kThread);
    EXPECT_EQ(ku_thread_create([](void *) -> void * { return nullptr; }, nullptr), 0u);
    EXPECT_THAT(capture.finish(), testing::MatchesRegex("[^\n]*ERR:  pthread_create failed\n"));
    alloc.fail(ku_test::kAnyAlloc);
    EXPECT_EQ(kulock_init(), nullptr);
}
