#include "discovery/worker_threads.h"

#include <QtGlobal>

#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

namespace OpcUaDiscovery {

void runOnThreads(int threadCount, const std::function<void()>& worker)
{
    std::vector<std::thread> threads;
    threads.reserve(static_cast<size_t>(qMax(1, threadCount)));
    for (int i = 0; i < qMax(1, threadCount); ++i) {
        try {
            threads.emplace_back(worker);
        } catch (const std::system_error&) {
            break;
        }
    }
    if (threads.empty())
        worker();
    for (std::thread& thread : threads)
        thread.join();
}

void forEachSideBySide(int count, int concurrency, const std::function<void(int)>& task)
{
    if (count <= 0)
        return;
    std::atomic<int> next{0};
    runOnThreads(qBound(1, concurrency, count), [&next, count, &task] {
        for (int index = next.fetch_add(1); index < count; index = next.fetch_add(1))
            task(index);
    });
}

} // namespace OpcUaDiscovery
