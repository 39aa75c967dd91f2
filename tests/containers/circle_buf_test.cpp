// Ring positions and wrap rules seen through a state record of our own,
// all-or-nothing refusals, allocation failure, and threads sharing a handle.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "ku/circle_buf.h"
#include "support/alloc_control.h"
#include "support/hand_off.h"

// A ring of 8 over memory the test owns, so that every counter can be seen;
// the storage is a heap block of exactly 8 bytes, so ASan sees a copy that strays.
struct Ring {
    ku_circle_buf_state state{0, 0, 0, 8, 0xfeedu};
    std::vector<char> storage = std::vector<char>(8, '.');
    ku_circle_buf *cb = circle_buf_init_from_mem(&state, storage.data());
    ~Ring() { circle_buf_free(cb); }

    // w: write arg; r, p, s: read, peek or skip a length; z: reset; n: a new
    // handle over the same memory. What the call gives, as text.
    std::string run(char op, const std::string &arg)
    {
        if (op == 'w') return std::to_string(circle_buf_write(cb, arg.data(), std::ssize(arg)));
        if (op == 'z') circle_buf_reset(cb);
        if (op == 'n') circle_buf_free(cb);
        if (op == 'n') cb = circle_buf_init_from_mem(&state, storage.data());
        if (op == 'z' || op == 'n') return "";
        const int32_t n = std::stoi(arg);
        std::string out(static_cast<size_t>(n), '?');
        const int32_t got = op == 'r'   ? circle_buf_read(cb, out.data(), n)
                            : op == 'p' ? circle_buf_peek(cb, out.data(), n)
                                        : circle_buf_skip(cb, n);
        return op == 's' || got == 0 ? std::to_string(got) : out;
    }
};

// One script through every wrap edge: each step is a call, what it gives,
// and the counters after it; then the ring's bytes.
TEST(CircleBuf, ScriptKeepsCountersAndBytesInStreamOrder)
{
    const std::tuple<char, std::string, std::string, int32_t, int32_t, int32_t> steps[] = {
        {'w', "ABCDEFGH", "8", 8, 0, 0}, {'w', "x", "0", 8, 0, 0}, {'r', "1", "A", 7, 1, 0},
        {'s', "1", "1", 6, 2, 0}, {'r', "6", "CDEFGH", 0, 0, 0}, {'w', "abcde", "5", 5, 0, 5},
        {'r', "3", "abc", 2, 3, 5}, {'w', "fghijk", "6", 8, 3, 3}, {'p', "6", "defghi", 8, 3, 3},
        {'p', "5", "defgh", 8, 3, 3}, {'s', "6", "6", 2, 1, 3}, {'n', "", "", 2, 1, 3},
        {'p', "3", "0", 2, 1, 3}, {'r', "3", "0", 2, 1, 3}, {'s', "3", "0", 2, 1, 3},
        {'r', "2", "jk", 0, 3, 3}, {'s', "0", "0", 0, 3, 3}, {'w', "123456789", "0", 0, 3, 3},
        {'w', "lmnop", "5", 5, 3, 0}, {'s', "5", "5", 0, 0, 0}, {'w', "qr", "2", 2, 0, 2},
        {'w', "st", "2", 4, 0, 4}, {'z', "", "", 0, 0, 0}, {'w', "Z", "1", 1, 0, 1},
    };
    Ring ring;
    for (const auto &[op, arg, want, readable, read_pos, write_pos] : steps) {
        SCOPED_TRACE(testing::Message() << op << " " << arg);
        EXPECT_EQ(ring.run(op, arg), want);
        const ku_circle_buf_state &s = ring.state;
        EXPECT_EQ(std::tuple(s.readable, s.read_pos, s.write_pos, circle_buf_readable(ring.cb),
                             circle_buf_writable(ring.cb)),
                  std::tuple(readable, read_pos, write_pos, readable, 8 - readable));
    }
    EXPECT_EQ(std::string(ring.storage.data(), 8), "Zrstmnop") << "reset keeps the bytes";
    EXPECT_EQ(ring.state.reserved, 0xfeedu) << "no operation touches the reserved word";
}

// A handle that cannot transfer, or a length it cannot take, gives 0 and
// changes nothing; reset still clears a record that is not usable. When an
// allocation is refused, nothing stays allocated (LeakSanitizer).
TEST(CircleBuf, UnusableHandlesRequestsAndAllocationsAreRefused)
{
    char out[4];
    auto refuses = [&](ku_circle_buf *cb, int32_t length) {
        EXPECT_EQ(circle_buf_write(cb, "abcd", length) + circle_buf_skip(cb, length), 0);
        EXPECT_EQ(circle_buf_read(cb, out, length) + circle_buf_peek(cb, out, length), 0);
    };
    refuses(nullptr, 3);
    EXPECT_EQ(circle_buf_readable(nullptr) + circle_buf_writable(nullptr), 0);
    circle_buf_reset(nullptr);
    circle_buf_free(nullptr);
    const ku_circle_buf_state bad[] = {{0, 0, 0, 0, 0}, {0, 0, 0, -5, 0}, {1, 4, 1, 4, 0},
                                       {5, 0, 1, 4, 0}, {-1, 0, 3, 4, 0}, {1, 0, 4, 4, 0},
                                       {1, -1, 0, 4, 0}};
    for (ku_circle_buf_state state : bad) {
        SCOPED_TRACE(testing::Message() << state.readable << "/" << state.read_pos);
        const ku_circle_buf_state before = state;
        ku_circle_buf *cb = circle_buf_init_from_mem(&state, out);
        refuses(cb, 1);
        EXPECT_EQ(circle_buf_readable(cb) + circle_buf_writable(cb), 0);
        EXPECT_EQ(memcmp(&state, &before, sizeof state), 0);
        circle_buf_reset(cb);
        EXPECT_EQ(state.readable + state.read_pos + state.write_pos, 0);
        circle_buf_free(cb);
    }
    EXPECT_EQ(circle_buf_init(0x80000000u), nullptr);
    Ring ring;
    ASSERT_EQ(ring.run('w', "abc"), "3");
    refuses(ring.cb, -1);
    EXPECT_EQ(circle_buf_write(ring.cb, "x", INT32_MAX), 0) << "readable + length would wrap";
    EXPECT_EQ(ring.state.readable + ring.state.read_pos + ring.state.write_pos, 6);
    KU_REQUIRE_ALLOC_CONTROL();
    ku_test::AllocControl alloc;
    for (long skip = 0; skip < 3; skip++) {
        alloc.fail(ku_test::kMalloc, skip, 1);
        EXPECT_EQ(circle_buf_init(64), nullptr) << "allocation " << skip << " refused";
    }
    alloc.fail(ku_test::kMalloc);
    EXPECT_EQ(circle_buf_init_from_mem(&ring.state, ring.storage.data()), nullptr);
}

// Four-byte items through a ring of 13, so that they wrap.
TEST(CircleBuf, ThreadsSharingAHandleKeepItemsWholeAndInOrder)
{
    ku_circle_buf *cb = circle_buf_init(13);
    auto put = [cb](uint32_t item) { return circle_buf_write(cb, &item, 4) == 4; };
    auto take = [cb] {
        uint32_t item = 0;
        circle_buf_read(cb, &item, 4);
        return item;
    };
    EXPECT_EQ(ku_test::hand_off(20000, put, take), 0u) << "items lost, torn or out of order";
    circle_buf_free(cb);
}
