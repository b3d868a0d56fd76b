// A poll loop. A test process has one: everything that waits, waits here, so that a fake daemon
// goes on answering while the test waits for a terminal, and the other way round.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <stdexcept>

namespace support {

// How long a wait may last. Generous: only a failing test ever uses it up.
constexpr std::chrono::milliseconds PATIENCE{20'000};

// What a wait throws when its deadline has passed; GoogleTest shows the text and fails the test.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Watch {
    int fd;
    // The poll(2) events wanted now; 0 leaves the descriptor out of this round.
    std::function<short()> wanted;
    // Called with the events seen. May not wait: the loop does not nest.
    std::function<void(short)> ready;
};

class Loop {
public:
    using Handle = std::list<Watch>::iterator;

    Handle watch(Watch watch);
    // May be called from a ready callback, also for the watch that is being called.
    void forget(Handle handle);

    // Dispatches until the condition holds; false when it does not within the limit. The condition
    // is also tested every few milliseconds, as not everything is announced by a descriptor.
    [[nodiscard]] bool run_until(const std::function<bool()> &condition,
                                 std::chrono::milliseconds limit = PATIENCE);
    // Waits for events, without an end where the time is negative, and dispatches them.
    void run_once(int timeout_ms);

private:
    std::list<Watch> watches;
};

Loop &loop(); // the test process's

} // namespace support
