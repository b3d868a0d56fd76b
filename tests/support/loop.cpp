#include "support/loop.h"

#include <poll.h>
#include <vector>

namespace support {

Loop::Handle Loop::watch(Watch watch)
{
    return watches.insert(watches.end(), std::move(watch));
}

void Loop::forget(Handle handle)
{
    handle->fd = -1; // removed by the next round: the list may be walked right now
}

void Loop::run_once(int timeout_ms)
{
    watches.remove_if([](const Watch &watch) { return watch.fd < 0; });
    std::vector<pollfd> polled;
    std::vector<Handle> handles;
    for (auto watch = watches.begin(); watch != watches.end(); ++watch) {
        // A descriptor in which nothing is wanted still reports its hang-up: it would spin.
        if (short events = watch->wanted(); events != 0) {
            polled.push_back({watch->fd, events, 0});
            handles.push_back(watch);
        }
    }
    if (poll(polled.data(), polled.size(), timeout_ms) <= 0) {
        return;
    }
    for (size_t index = 0; index < polled.size(); ++index) {
        if (polled[index].revents != 0 && handles[index]->fd >= 0) {
            handles[index]->ready(polled[index].revents);
        }
    }
}

bool Loop::run_until(const std::function<bool()> &condition, std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        run_once(10);
    }
    return true;
}

Loop &loop()
{
    static Loop instance;
    return instance;
}

} // namespace support
