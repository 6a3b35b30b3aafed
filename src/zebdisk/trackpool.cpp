#include "zebdisk/trackpool.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

namespace trackpool {

int WorkersFor(int workers, int count) {
    int n = workers;
    if (n <= 0) {
        const unsigned cores = std::thread::hardware_concurrency();
        n = cores == 0 ? 1 : static_cast<int>(std::min(cores, 256u));
    }
    return std::max(1, std::min(n, count));
}

void Run(int count, int workers, void (*work)(void* context, int i), void* context) {
    if (count <= 0) return;
    const int n = WorkersFor(workers, count);
    if (n == 1) {
        for (int i = 0; i < count; i++) work(context, i);
        return;
    }
    // Each worker takes the next untaken track until none is left, so a slow
    // track does not hold up the ones behind it.
    std::atomic<int> next{0};
    auto drain = [&] {
        for (int i = next.fetch_add(1, std::memory_order_relaxed); i < count;
             i = next.fetch_add(1, std::memory_order_relaxed))
            work(context, i);
    };
    std::vector<std::thread> pool;
    pool.reserve(static_cast<size_t>(n - 1));
    for (int k = 1; k < n; k++) {
        // A thread that cannot be started leaves its share to the others.
        try {
            pool.emplace_back(drain);
        } catch (const std::system_error&) {
            break;
        }
    }
    drain();
    for (std::thread& t : pool) t.join();
}

}  // namespace trackpool
