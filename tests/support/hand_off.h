// Two producers hand items 1..2n to two consumers through a shared container;
// each item must arrive exactly once and in its producer's order. The tsan
// suite runs the callers to look for data races as well.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace ku_test {

// put(item) gives false while the container refuses it; take() gives 0 while
// the container is empty. Gives how many items were lost, doubled, torn or
// taken out of order.
template <typename Put, typename Take>
uint32_t hand_off(uint32_t each, Put put, Take take)
{
    std::atomic<uint32_t> done{0}, wrong{0};
    std::vector<std::atomic<uint8_t>> seen(2 * each + 1);
    auto producer = [&](uint32_t first) {
        for (uint32_t item = first; item < first + each; item++) {
            while (!put(item)) std::this_thread::yield();
        }
        done++;
    };
    auto consumer = [&] {
        uint32_t last[2] = {0, 0}, item;
        while ((item = take()) != 0 || done < 2 || (item = take()) != 0) {
            if (item == 0) {
                std::this_thread::yield();
            } else if (item > 2 * each || item < last[(item - 1) / each]) {
                wrong++;
            } else {
                last[(item - 1) / each] = item;
                seen[item]++;
            }
        }
    };
    std::thread threads[] = {std::thread(producer, 1), std::thread(producer, each + 1),
                             std::thread(consumer), std::thread(consumer)};
    for (auto &thread : threads) thread.join();
    const auto not_once = [](const std::atomic<uint8_t> &n) { return n != 1; };
    return wrong + uint32_t(std::count_if(seen.begin() + 1, seen.end(), not_once));
}

}  // namespace ku_test
