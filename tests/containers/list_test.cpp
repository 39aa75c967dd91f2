// FIFO order, null elements, allocation failure, and several producers and
// consumers on one list with every element delivered exactly once.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <iterator>
#include <thread>
#include <vector>

#include "ku/list.h"
#include "support/alloc_control.h"

using ku_test::AllocControl;
using ku_test::kMalloc;

namespace {

class List : public ::testing::Test {
protected:
    List() : list(ku_list_init()) {}
    ~List() override { ku_list_deinit(list); }

    ku_list *list;
};

// Distinct fake element pointers; the list never dereferences them.
void *item(uintptr_t n)
{
    return reinterpret_cast<void *>(n * 16 + 8);
}

}  // namespace

// A FIFO walk through the edges: empty, one element (head and tail), a null
// element (stored like any other), popping the last one, pops beyond empty.
TEST_F(List, KeepsAppendOrderThroughEveryEdge)
{
    ASSERT_NE(list, nullptr);
    struct Step {
        char op;            // a(ppend) p(op)
        uintptr_t element;  // 0 stands for the null element
        bool pops_null;     // p: null comes out
        size_t size;
        uintptr_t head, tail;  // 0: no element (null)
    };
    auto ptr = [](uintptr_t n) { return n == 0 ? nullptr : item(n); };
    const Step steps[] = {
        {'p', 0, true, 0, 0, 0},  {'a', 7, false, 1, 7, 7},  {'a', 0, false, 2, 7, 0},  {'a', 9, false, 3, 7, 9},
        {'p', 7, false, 2, 0, 9}, {'p', 0, true, 1, 9, 9},   {'p', 9, false, 0, 0, 0},  {'p', 0, true, 0, 0, 0},
        {'a', 2, false, 1, 2, 2}, {'a', 3, false, 2, 2, 3},  {'a', 4, false, 3, 2, 4},  {'p', 2, false, 2, 3, 4},
        {'p', 3, false, 1, 4, 4}, {'p', 4, false, 0, 0, 0},
    };
    for (size_t i = 0; i < std::size(steps); i++) {
        const Step &step = steps[i];
        SCOPED_TRACE(testing::Message() << "step " << i);
        if (step.op == 'a') {
            ASSERT_EQ(ku_list_append(list, ptr(step.element)), 0);
        } else {
            EXPECT_EQ(ku_list_pop(list), step.pops_null ? nullptr : ptr(step.element));
        }
        EXPECT_EQ(ku_list_size(list), step.size);
        EXPECT_EQ(ku_list_peek_head(list), ptr(step.head));
        EXPECT_EQ(ku_list_peek_tail(list), ptr(step.tail));
    }
}

TEST(ListDeinit, FreesNodesButNotElements)
{
    ku_list *list = ku_list_init();
    ASSERT_NE(list, nullptr);
    int *owned = static_cast<int *>(malloc(sizeof(int)));
    *owned = 42;
    ASSERT_EQ(ku_list_append(list, owned), 0);
    ASSERT_EQ(ku_list_append(list, owned), 0);
    ku_list_deinit(list);  // LeakSanitizer reports any node left behind
    EXPECT_EQ(*owned, 42);
    free(owned);
    ku_list_deinit(nullptr);
}

TEST_F(List, FailedNodeAllocationStillGivesZeroButQueuesNothing)
{
    KU_REQUIRE_ALLOC_CONTROL();
    ASSERT_EQ(ku_list_append(list, item(1)), 0);
    {
        AllocControl alloc;
        alloc.fail(kMalloc);
        EXPECT_EQ(ku_list_append(list, item(2)), 0);
    }
    EXPECT_EQ(ku_list_size(list), 1u);
    EXPECT_EQ(ku_list_peek_tail(list), item(1));
    ASSERT_EQ(ku_list_append(list, item(3)), 0);
    EXPECT_EQ(ku_list_pop(list), item(1));
    EXPECT_EQ(ku_list_pop(list), item(3));
}

TEST(ListInit, FailedAllocationGivesNullThatActsEmpty)
{
    KU_REQUIRE_ALLOC_CONTROL();
    AllocControl alloc;
    alloc.fail(kMalloc);
    ku_list *list = ku_list_init();
    ASSERT_EQ(list, nullptr);
    alloc.allow();
    EXPECT_EQ(ku_list_append(list, item(1)), 0);
    EXPECT_EQ(ku_list_pop(list), nullptr);
    EXPECT_EQ(ku_list_peek_head(list), nullptr);
    EXPECT_EQ(ku_list_peek_tail(list), nullptr);
    EXPECT_EQ(ku_list_size(list), 0u);
    ku_list_deinit(list);
}

TEST(ListThreads, EveryElementIsDeliveredExactlyOnce)
{
    constexpr uintptr_t kProducers = 3;
    constexpr uintptr_t kConsumers = 3;
    constexpr uintptr_t kPerProducer = 20000;
    constexpr uintptr_t kTotal = kProducers * kPerProducer;
    constexpr uintptr_t kNone = UINTPTR_MAX;
    ku_list *list = ku_list_init();
    ASSERT_NE(list, nullptr);

    std::vector<std::thread> threads;
    for (uintptr_t p = 0; p < kProducers; p++) {
        threads.emplace_back([list, p] {
            for (uintptr_t n = 0; n < kPerProducer; n++) {
                ASSERT_EQ(ku_list_append(list, item(p * kPerProducer + n)), 0);
            }
        });
    }
    std::atomic<uintptr_t> taken{0};
    std::vector<std::vector<uintptr_t>> seen(kConsumers);
    for (uintptr_t c = 0; c < kConsumers; c++) {
        threads.emplace_back([list, c, &taken, &seen] {
            while (taken.load() < kTotal) {
                void *element = ku_list_pop(list);
                if (element == nullptr) {
                    std::this_thread::yield();
                    continue;
                }
                taken.fetch_add(1);
                seen[c].push_back((reinterpret_cast<uintptr_t>(element) - 8) / 16);
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }

    std::vector<int> count(kTotal, 0);
    for (const auto &taken_by_one : seen) {
        uintptr_t last[kProducers] = {kNone, kNone, kNone};
        for (uintptr_t id : taken_by_one) {
            ASSERT_LT(id, kTotal);
            count[id]++;
            // FIFO: one consumer sees each producer's elements in the order
            // they were appended.
            const uintptr_t producer = id / kPerProducer;
            EXPECT_TRUE(last[producer] == kNone || id > last[producer]) << id << " after " << last[producer];
            last[producer] = id;
        }
    }
    for (uintptr_t id = 0; id < kTotal; id++) {
        ASSERT_EQ(count[id], 1) << "element " << id;
    }
    EXPECT_EQ(ku_list_size(list), 0u);
    EXPECT_EQ(ku_list_pop(list), nullptr);
    ku_list_deinit(list);
}
