#pragma once

#include <functional>

namespace OpcUaDiscovery {

// Runs `worker` on `threadCount` threads at once (at least one) and returns when every one has
// ended. A controller short of threads works with those it got, or else on the calling thread,
// rather than ending the process.
void runOnThreads(int threadCount, const std::function<void()>& worker);

// Calls task(0) ... task(count - 1), each exactly once, on up to `concurrency` threads at once;
// the indexes are handed out in order to whichever thread is free. Returns when all are done.
void forEachSideBySide(int count, int concurrency, const std::function<void(int)>& task);

} // namespace OpcUaDiscovery
