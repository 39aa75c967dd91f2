// FIFO order, null elements, allocation failure, and several producers and
// consumers on one list with every element delivered exactly once.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
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

TEST_F(List, NewListIsEmpty)
{
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(ku_list_size(list), 0u);
    EXPECT_EQ(ku_list_pop(list), nullptr);
    EXPECT_EQ(ku_list_peek_head(list), nullptr);
    EXPECT_EQ(ku_list_peek_tail(list), nullptr);
}

TEST_F(List, ElementsComeOutInAppendOrder)
{
    for (uintptr_t n = 1; n <= 5; n++) {
        ASSERT_EQ(ku_list_append(list, item(n)), 0);
    }
    EXPECT_EQ(ku_list_size(list), 5u);
    EXPECT_EQ(ku_list_peek_head(list), item(1));
    EXPECT_EQ(ku_list_peek_tail(list), item(5));
    for (uintptr_t n = 1; n <= 5; n++) {
        EXPECT_EQ(ku_list_pop(list), item(n));
        EXPECT_EQ(ku_list_size(list), 5u - n);
    }
}

TEST_F(List, SingleElementIsBothHeadAndTail)
{
    ASSERT_EQ(ku_list_append(list, item(7)), 0);
    EXPECT_EQ(ku_list_peek_head(list), item(7));
    EXPECT_EQ(ku_list_peek_tail(list), item(7));
    EXPECT_EQ(ku_list_size(list), 1u) << "peeks remove nothing";
}

TEST_F(List, PoppingLastElementLeavesListReusable)
{
    ASSERT_EQ(ku_list_append(list, item(1)), 0);
    ASSERT_EQ(ku_list_pop(list), item(1));
    EXPECT_EQ(ku_list_peek_head(list), nullptr);
    EXPECT_EQ(ku_list_peek_tail(list), nullptr);
    ASSERT_EQ(ku_list_append(list, item(2)), 0);
    ASSERT_EQ(ku_list_append(list, item(3)), 0);
    EXPECT_EQ(ku_list_peek_head(list), item(2));
    EXPECT_EQ(ku_list_peek_tail(list), item(3));
    EXPECT_EQ(ku_list_pop(list), item(2));
    EXPECT_EQ(ku_list_pop(list), item(3));
}

TEST_F(List, PopOfEmptyListKeepsSizeZero)
{
    EXPECT_EQ(ku_list_pop(list), nullptr);
    EXPECT_EQ(ku_list_pop(list), nullptr);
    EXPECT_EQ(ku_list_size(list), 0u);
    ASSERT_EQ(ku_list_append(list, item(4)), 0);
    EXPECT_EQ(ku_list_size(list), 1u);
}

TEST_F(List, NullIsStoredLikeAnyElement)
{
    ASSERT_EQ(ku_list_append(list, nullptr), 0);
    EXPECT_EQ(ku_list_size(list), 1u);
    ASSERT_EQ(ku_list_append(list, item(9)), 0);
    EXPECT_EQ(ku_list_pop(list), nullptr);
    EXPECT_EQ(ku_list_size(list), 1u) << "the null element's node was removed";
    EXPECT_EQ(ku_list_pop(list), item(9));
    EXPECT_EQ(ku_list_size(list), 0u);
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
