// Append+pop pairs per second on one shared ku_list, from 1 and 2 threads,
// against a std::deque behind a std::mutex doing the same.
#include <benchmark/benchmark.h>

#include <deque>
#include <mutex>

#include "ku/list.h"

namespace {

ku_list *shared_list;

void BM_ku_list_append_pop(benchmark::State &state)
{
    // The start and the end of the timed loop are barriers for all threads,
    // so thread 0 may set the list up before and tear it down after.
    if (state.thread_index() == 0) {
        shared_list = ku_list_init();
    }
    int item = 0;
    for (auto _ : state) {
        ku_list_append(shared_list, &item);
        benchmark::DoNotOptimize(ku_list_pop(shared_list));
    }
    if (state.thread_index() == 0) {
        ku_list_deinit(shared_list);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ku_list_append_pop)->Threads(1)->Threads(2)->UseRealTime();

struct LockedDeque {
    std::mutex mutex;
    std::deque<void *> items;
};
LockedDeque *shared_deque;

// The peer: what a C++ program would write by hand.
void BM_mutex_deque_append_pop(benchmark::State &state)
{
    if (state.thread_index() == 0) {
        shared_deque = new LockedDeque;
    }
    int item = 0;
    for (auto _ : state) {
        {
            std::lock_guard<std::mutex> lock(shared_deque->mutex);
            shared_deque->items.push_back(&item);
        }
        void *popped = nullptr;
        {
            std::lock_guard<std::mutex> lock(shared_deque->mutex);
            if (!shared_deque->items.empty()) {
                popped = shared_deque->items.front();
                shared_deque->items.pop_front();
            }
        }
        benchmark::DoNotOptimize(popped);
    }
    if (state.thread_index() == 0) {
        delete shared_deque;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_mutex_deque_append_pop)->Threads(1)->Threads(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
