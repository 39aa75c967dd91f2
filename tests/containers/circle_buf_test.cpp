// Ring positions and wrap rules observed through a caller-supplied state
// record, all-or-nothing refusals, allocation failure, and threads sharing
// one handle with the byte stream checked end to end.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ku/circle_buf.h"
#include "support/alloc_control.h"

using ku_test::AllocControl;
using ku_test::kMalloc;

namespace {

// A ring over memory the test owns, so every counter can be checked.
class Ring {
public:
    explicit Ring(int32_t capacity) : storage(static_cast<size_t>(capacity), '.')
    {
        state = {0, 0, 0, capacity, 0xfeedu};
        cb = circle_buf_init_from_mem(&state, storage.data());
    }
    ~Ring() { circle_buf_free(cb); }

    int32_t write(const std::string &text)
    {
        return circle_buf_write(cb, text.data(), static_cast<int32_t>(text.size()));
    }
    std::string read(int32_t length)
    {
        std::string out(static_cast<size_t>(length), '?');
        const int32_t got = circle_buf_read(cb, out.data(), length);
        return got == length ? out : "<refused " + std::to_string(got) + ">";
    }
    std::string peek(int32_t length)
    {
        std::string out(static_cast<size_t>(length), '?');
        const int32_t got = circle_buf_peek(cb, out.data(), length);
        return got == length ? out : "<refused " + std::to_string(got) + ">";
    }

    ku_circle_buf_state state;
    std::string storage;
    ku_circle_buf *cb;
};

// Byte i of the test stream: not periodic at any ring size used here.
unsigned char stream_byte(uint64_t i)
{
    return static_cast<unsigned char>((i * 2654435761u) >> 13);
}

}  // namespace

static_assert(sizeof(ku_circle_buf_state) == 20 && offsetof(ku_circle_buf_state, readable) == 0 &&
              offsetof(ku_circle_buf_state, read_pos) == 4 && offsetof(ku_circle_buf_state, write_pos) == 8 &&
              offsetof(ku_circle_buf_state, capacity) == 12 && offsetof(ku_circle_buf_state, reserved) == 16);

// Scripts over a ring of 8: each step is a call, what it gives, and the
// counters after it. One script per wrap edge.
TEST(CircleBuf, ScriptsKeepCountersAndBytesInStreamOrder)
{
    struct Step {
        char op;           // w(rite) r(ead) p(eek) s(kip)
        std::string arg;   // bytes to write; for r/p/s the length as a number
        std::string want;  // r/p: the bytes or "<refused 0>"; w/s: the count
        int32_t readable, read_pos, write_pos;
    };
    struct Script {
        const char *name;
        std::vector<Step> steps;
        std::string storage;  // the ring's bytes at the end ("" to skip)
    };
    const Script scripts[] = {
        {"fill exactly, then refuse",
         {{'w', "ABCDEFGH", "8", 8, 0, 0}, {'w', "x", "0", 8, 0, 0}},
         "ABCDEFGH"},
        {"too large is all or nothing",
         {{'w', "123456789", "0", 0, 0, 0}, {'w', "12345", "5", 5, 0, 5}, {'w', "abcd", "0", 5, 0, 5},
          {'r', "6", "<refused 0>", 5, 0, 5}, {'p', "6", "<refused 0>", 5, 0, 5}, {'s', "6", "0", 5, 0, 5},
          {'w', "abc", "3", 8, 0, 0}},
         "12345abc"},
        {"write across the seam, read joins",
         {{'w', "ABCDEF", "6", 6, 0, 6}, {'r', "6", "ABCDEF", 0, 6, 6}, {'w', "vwxyz", "5", 5, 6, 3},
          {'p', "5", "vwxyz", 5, 6, 3}, {'r', "5", "vwxyz", 0, 3, 3}},
         "xyzDEFvw"},
        {"transfers ending at the storage end wrap to 0",
         {{'w', "abc", "3", 3, 0, 3}, {'r', "3", "abc", 0, 3, 3}, {'w', "defgh", "5", 5, 3, 0},
          {'r', "5", "defgh", 0, 0, 0}, {'w', "12345678", "8", 8, 0, 0}, {'r', "3", "123", 5, 3, 0},
          {'s', "5", "5", 0, 0, 0}},
         ""},
        {"skip across the seam",
         {{'w', "123456", "6", 6, 0, 6}, {'r', "5", "12345", 1, 5, 6}, {'w', "abcdef", "6", 7, 5, 4},
          {'s', "4", "4", 3, 1, 4}, {'r', "3", "def", 0, 4, 4}},
         ""},
        {"peek to the storage end, then across it",
         {{'w', "ABCDE", "5", 5, 0, 5}, {'r', "5", "ABCDE", 0, 5, 5}, {'w', "xyzQ", "4", 4, 5, 1},
          {'p', "3", "xyz", 4, 5, 1}, {'p', "4", "xyzQ", 4, 5, 1}},
         ""},
    };
    for (const Script &script : scripts) {
        SCOPED_TRACE(script.name);
        Ring ring(8);
        for (const Step &step : script.steps) {
            SCOPED_TRACE(testing::Message() << step.op << " " << step.arg);
            std::string got;
            switch (step.op) {
            case 'w': got = std::to_string(ring.write(step.arg)); break;
            case 'r': got = ring.read(std::stoi(step.arg)); break;
            case 'p': got = ring.peek(std::stoi(step.arg)); break;
            default: got = std::to_string(circle_buf_skip(ring.cb, std::stoi(step.arg))); break;
            }
            EXPECT_EQ(got, step.want);
            EXPECT_EQ(ring.state.readable, step.readable);
            EXPECT_EQ(ring.state.read_pos, step.read_pos);
            EXPECT_EQ(ring.state.write_pos, step.write_pos);
            EXPECT_EQ(circle_buf_readable(ring.cb), step.readable);
            EXPECT_EQ(circle_buf_writable(ring.cb), 8 - step.readable);
        }
        if (!script.storage.empty()) {
            EXPECT_EQ(ring.storage, script.storage);
        }
        EXPECT_EQ(ring.state.reserved, 0xfeedu) << "no operation touches the reserved word";
    }
}

// Every call on a handle that cannot transfer gives 0 and changes nothing.
TEST(CircleBuf, UnusableHandlesAndRequestsAreRefused)
{
    char storage[4] = {};
    char out[4];
    auto refuses_everything = [&](ku_circle_buf *cb, int32_t length) {
        EXPECT_EQ(circle_buf_write(cb, "abcd", length), 0);
        EXPECT_EQ(circle_buf_read(cb, out, length), 0);
        EXPECT_EQ(circle_buf_peek(cb, out, length), 0);
        EXPECT_EQ(circle_buf_skip(cb, length), 0);
    };
    refuses_everything(nullptr, 3);
    EXPECT_EQ(circle_buf_readable(nullptr), 0);
    EXPECT_EQ(circle_buf_writable(nullptr), 0);
    circle_buf_reset(nullptr);
    circle_buf_free(nullptr);

    for (ku_circle_buf_state state : {ku_circle_buf_state{0, 0, 0, 0, 0}, ku_circle_buf_state{0, 0, 0, -5, 0},
                                      ku_circle_buf_state{1, 4, 1, 4, 0}, ku_circle_buf_state{5, 0, 1, 4, 0},
                                      ku_circle_buf_state{-1, 0, 3, 4, 0}, ku_circle_buf_state{1, 0, 4, 4, 0},
                                      ku_circle_buf_state{1, -1, 0, 4, 0}}) {
        SCOPED_TRACE(testing::Message() << state.readable << "/" << state.read_pos << "/" << state.write_pos << "/"
                                        << state.capacity);
        const ku_circle_buf_state before = state;
        ku_circle_buf *cb = circle_buf_init_from_mem(&state, storage);
        ASSERT_NE(cb, nullptr);
        refuses_everything(cb, 1);
        EXPECT_EQ(circle_buf_readable(cb), 0);
        EXPECT_EQ(circle_buf_writable(cb), 0);
        EXPECT_EQ(memcmp(&state, &before, sizeof state), 0);
        circle_buf_free(cb);
    }

    ku_circle_buf *empty = circle_buf_init(0);
    ASSERT_NE(empty, nullptr);
    refuses_everything(empty, 1);
    circle_buf_free(empty);
    EXPECT_EQ(circle_buf_init(0x80000000u), nullptr);

    Ring ring(8);
    ASSERT_EQ(ring.write("abc"), 3);
    for (int32_t length : {0, -1, -2}) {
        refuses_everything(ring.cb, length);
    }
    EXPECT_EQ(circle_buf_write(ring.cb, "x", INT32_MAX), 0) << "readable + length would wrap";
    EXPECT_EQ(ring.state.readable, 3);
    EXPECT_EQ(ring.state.read_pos, 0);
    EXPECT_EQ(ring.state.write_pos, 3);
}

TEST(CircleBuf, ResetEmptiesAndLeavesTheBytes)
{
    Ring ring(8);
    ASSERT_EQ(ring.write("abcde"), 5);
    ASSERT_EQ(ring.read(2), "ab");
    circle_buf_reset(ring.cb);
    EXPECT_EQ(circle_buf_readable(ring.cb), 0);
    EXPECT_EQ(circle_buf_writable(ring.cb), 8);
    EXPECT_EQ(ring.state.capacity, 8);
    ASSERT_EQ(ring.write("Z"), 1);
    EXPECT_EQ(ring.storage, "Zbcde...") << "the next write starts at 0";

    ku_circle_buf_state bad = {5, 0, 1, 4, 0};
    ku_circle_buf *cb = circle_buf_init_from_mem(&bad, ring.storage.data());
    circle_buf_reset(cb);
    EXPECT_EQ(circle_buf_writable(cb), 4) << "reset clears an unusable record";
    circle_buf_free(cb);
}

TEST(CircleBufFromMem, NewHandleGoesOnWhereTheLastStopped)
{
    ku_circle_buf_state state = {0, 0, 0, 8, 77};
    char storage[8];
    ku_circle_buf *first = circle_buf_init_from_mem(&state, storage);
    ASSERT_NE(first, nullptr);
    ASSERT_EQ(circle_buf_write(first, "ABCDEF", 6), 6);
    char out[8];
    ASSERT_EQ(circle_buf_read(first, out, 4), 4);
    ASSERT_EQ(circle_buf_write(first, "ghij", 4), 4);
    circle_buf_free(first);
    EXPECT_EQ(std::string(storage, 8), "ijCDEFgh") << "free leaves the caller's memory";

    ku_circle_buf *second = circle_buf_init_from_mem(&state, storage);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(circle_buf_writable(second), 2);
    ASSERT_EQ(circle_buf_read(second, out, 6), 6);
    EXPECT_EQ(std::string(out, 6), "EFghij");
    circle_buf_free(second);
}

TEST(CircleBuf, FailedAllocationGivesNullAndKeepsNothing)
{
    KU_REQUIRE_ALLOC_CONTROL();
    for (long skip = 0; skip < 3; skip++) {
        AllocControl alloc;
        alloc.fail(kMalloc, skip, 1);
        // What was allocated before the refusal is released: LeakSanitizer
        // in the sanitizer build fails the test otherwise.
        EXPECT_EQ(circle_buf_init(64), nullptr) << "allocation " << skip << " refused";
    }
    ku_circle_buf_state state = {1, 2, 3, 8, 9};
    char storage[8] = "abcdefg";
    AllocControl alloc;
    alloc.fail(kMalloc);
    EXPECT_EQ(circle_buf_init_from_mem(&state, storage), nullptr);
    EXPECT_EQ(state.readable, 1);
    EXPECT_STREQ(storage, "abcdefg");
}

// --- threads -----------------------------------------------------------------

// --- a single CPU ---------------------------------------------------------------
// This executable reports one online CPU to the library, the common device.
// pthread_mutex_trylock is defined here too, to count the library's attempts
// and to make them find the mutex busy. ThreadSanitizer defines the one and
// calls the other before it is ready: under it neither is replaced and the
// case does not run.

#if defined(__SANITIZE_THREAD__)
#define KU_TEST_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KU_TEST_TSAN 1
#endif
#endif

#ifndef KU_TEST_TSAN
extern "C" long __sysconf(int name);  // glibc's own, behind sysconf

extern "C" long sysconf(int name) noexcept
{
    return name == _SC_NPROCESSORS_ONLN ? 1 : __sysconf(name);
}

namespace {
std::atomic<bool> trylock_busy{false};
std::atomic<int> trylocks{0};
}  // namespace

extern "C" int pthread_mutex_trylock(pthread_mutex_t *mutex) noexcept
{
    if (trylock_busy) {
        ++trylocks;
        return EBUSY;
    }
    static const auto real = reinterpret_cast<int (*)(pthread_mutex_t *)>(dlsym(RTLD_NEXT, "pthread_mutex_trylock"));
    return real(mutex);
}
#endif

// Spinning on one CPU only burns the time slice that the holder needs to
// let go: a busy ring mutex is waited for at once.
TEST(CircleBufThreads, OneCpuWaitsForABusyMutexWithoutSpinning)
{
#ifdef KU_TEST_TSAN
    GTEST_SKIP() << "ThreadSanitizer defines pthread_mutex_trylock itself";
#else
    Ring ring(64);
    trylocks = 0;
    trylock_busy = true;
    const int32_t written = ring.write("abc");
    trylock_busy = false;
    EXPECT_EQ(written, 3);
    EXPECT_LE(trylocks.load(), 1);
#endif
}

TEST(CircleBufThreads, ProducerAndConsumerKeepStreamIntact)
{
    constexpr uint64_t kTotal = 4u << 20;  // 4 MiB
    ku_circle_buf *cb = circle_buf_init(1021);  // odd size: the seam moves
    ASSERT_NE(cb, nullptr);

    std::thread producer([cb] {
        std::mt19937 rng(1);
        std::uniform_int_distribution<int32_t> size(1, 1021);
        std::vector<unsigned char> chunk(1021);
        uint64_t sent = 0;
        while (sent < kTotal) {
            const int32_t want = static_cast<int32_t>(std::min<uint64_t>(size(rng), kTotal - sent));
            for (int32_t i = 0; i < want; i++) {
                chunk[static_cast<size_t>(i)] = stream_byte(sent + static_cast<uint64_t>(i));
            }
            while (circle_buf_write(cb, chunk.data(), want) == 0) {
                std::this_thread::yield();
            }
            sent += static_cast<uint64_t>(want);
        }
    });

    std::mt19937 rng(2);
    std::uniform_int_distribution<int32_t> size(1, 1021);
    std::vector<unsigned char> chunk(1021);
    uint64_t received = 0;
    uint64_t mismatches = 0;
    while (received < kTotal) {
        const int32_t want = static_cast<int32_t>(std::min<uint64_t>(size(rng), kTotal - received));
        const bool peek = (rng() & 7) == 0;
        const int32_t got = peek ? circle_buf_peek(cb, chunk.data(), want) : circle_buf_read(cb, chunk.data(), want);
        if (got == 0) {
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(got, want) << "a transfer is all or nothing";
        for (int32_t i = 0; i < got; i++) {
            mismatches += chunk[static_cast<size_t>(i)] != stream_byte(received + static_cast<uint64_t>(i));
        }
        if (peek) {
            ASSERT_EQ(circle_buf_skip(cb, got), got);
        }
        received += static_cast<uint64_t>(got);
    }
    producer.join();
    EXPECT_EQ(mismatches, 0u);
    EXPECT_EQ(circle_buf_readable(cb), 0);
    circle_buf_free(cb);
}

TEST(CircleBufThreads, RecordsFromManyWritersArriveWholeAndOnce)
{
    // Fixed-size records: all-or-nothing transfers keep them from tearing
    // even with two writers and two readers on one handle.
    struct Record {
        uint32_t writer;
        uint32_t sequence;
        uint32_t check;
    };
    constexpr uint32_t kWriters = 2;
    constexpr uint32_t kReaders = 2;
    constexpr uint32_t kPerWriter = 20000;
    ku_circle_buf *cb = circle_buf_init(sizeof(Record) * 7 + 5);
    ASSERT_NE(cb, nullptr);

    std::vector<std::thread> threads;
    for (uint32_t w = 0; w < kWriters; w++) {
        threads.emplace_back([cb, w] {
            for (uint32_t s = 0; s < kPerWriter; s++) {
                const Record record{w, s, (w * 7919u) ^ (s * 104729u)};
                while (circle_buf_write(cb, &record, sizeof record) == 0) {
                    std::this_thread::yield();
                }
            }
        });
    }
    std::atomic<uint32_t> taken{0};
    std::vector<std::vector<Record>> seen(kReaders);
    for (uint32_t r = 0; r < kReaders; r++) {
        threads.emplace_back([cb, r, &taken, &seen] {
            while (taken.load() < kWriters * kPerWriter) {
                Record record;
                if (circle_buf_read(cb, &record, sizeof record) == 0) {
                    std::this_thread::yield();
                    continue;
                }
                taken.fetch_add(1);
                seen[r].push_back(record);
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }

    std::vector<std::vector<int>> count(kWriters, std::vector<int>(kPerWriter, 0));
    size_t torn = 0;
    for (const auto &list : seen) {
        uint32_t last[kWriters] = {};
        bool first[kWriters] = {true, true};
        for (const Record &record : list) {
            ASSERT_LT(record.writer, kWriters);
            ASSERT_LT(record.sequence, kPerWriter);
            torn += record.check != ((record.writer * 7919u) ^ (record.sequence * 104729u));
            count[record.writer][record.sequence]++;
            // One reader sees each writer's records in the order written.
            EXPECT_TRUE(first[record.writer] || record.sequence > last[record.writer]);
            first[record.writer] = false;
            last[record.writer] = record.sequence;
        }
    }
    EXPECT_EQ(torn, 0u);
    for (uint32_t w = 0; w < kWriters; w++) {
        for (uint32_t s = 0; s < kPerWriter; s++) {
            ASSERT_EQ(count[w][s], 1) << "writer " << w << " record " << s;
        }
    }
    circle_buf_free(cb);
}
