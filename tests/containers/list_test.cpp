// FIFO order through every edge, null elements and lists, allocation failure,
// and threads sharing a list.
#include <gtest/gtest.h>

#include <tuple>

#include "ku/list.h"
#include "support/alloc_control.h"
#include "support/hand_off.h"

// Element n is the pointer value n, never dereferenced; 0 is the null element.
#define ITEM(n) reinterpret_cast<void *>(static_cast<uintptr_t>(n))

TEST(List, KeepsAppendOrderThroughEveryEdge)
{
    ku_list *list = ku_list_init();
    // a(ppend) n, f: append n with the allocation refused, p(op) giving n;
    // then size, head, tail
    const std::tuple<char, int, uint32_t, int, int> steps[] = {
        {'p', 0, 0, 0, 0}, {'a', 7, 1, 7, 7}, {'a', 0, 2, 7, 0}, {'a', 9, 3, 7, 9},
        {'p', 7, 2, 0, 9}, {'p', 0, 1, 9, 9}, {'p', 9, 0, 0, 0}, {'p', 0, 0, 0, 0},
        {'a', 2, 1, 2, 2}, {'f', 5, 1, 2, 2}, {'a', 3, 2, 2, 3}, {'p', 2, 1, 3, 3},
        {'a', 4, 2, 3, 4}, {'p', 3, 1, 4, 4},
    };
    for (const auto &[op, n, size, head, tail] : steps) {
        SCOPED_TRACE(testing::Message() << op << " " << n);
        if (op == 'f' && !ku_test::AllocControl::effective()) continue;
        ku_test::AllocControl alloc;
        alloc.fail(ku_test::kMalloc, 0, op == 'f');
        void *got = op == 'p' ? ku_list_pop(list) : ITEM(ku_list_append(list, ITEM(n)));
        EXPECT_EQ(got, ITEM(op == 'p' ? n : 0)) << "the element popped, or the 0 of append";
        EXPECT_EQ(ku_list_size(list), size);
        EXPECT_EQ(ku_list_peek_head(list), ITEM(head));
        EXPECT_EQ(ku_list_peek_tail(list), ITEM(tail));
    }
    ku_list_deinit(list);  // one element left: LeakSanitizer sees a node left behind
    EXPECT_EQ(ku_list_append(nullptr, ITEM(1)) + ku_list_size(nullptr), 0u) << "null: empty";
    EXPECT_EQ(ku_list_pop(nullptr), nullptr);
    EXPECT_EQ(ku_list_peek_head(nullptr), nullptr);
    EXPECT_EQ(ku_list_peek_tail(nullptr), nullptr);
    ku_list_deinit(nullptr);
    KU_REQUIRE_ALLOC_CONTROL();
    ku_test::AllocControl alloc;
    alloc.fail(ku_test::kMalloc);
    EXPECT_EQ(ku_list_init(), nullptr);
}

TEST(List, ThreadsDeliverEveryElementOnceInOrder)
{
    ku_list *list = ku_list_init();
    auto put = [list](uint32_t item) { return ku_list_append(list, ITEM(item)) == 0; };
    auto take = [list] { return uint32_t(reinterpret_cast<uintptr_t>(ku_list_pop(list))); };
    EXPECT_EQ(ku_test::hand_off(20000, put, take), 0u) << "elements lost or out of order";
    ku_list_deinit(list);
}
