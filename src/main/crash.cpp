#include "main/crash.h"

#include <initializer_list>
#include <signal.h>

#include "front/front_end.h"

namespace {

constexpr int CRASH_SIGNALS[] = {SIGSEGV, SIGBUS, SIGABRT, SIGILL, SIGFPE};

// What they did before, a sanitizer's report for instance.
struct sigaction found[NSIG];

// A stack that has overflowed holds no handler.
alignas(16) char stack[32 * 1024];

void on_crash(int signal_number)
{
    for (int number : CRASH_SIGNALS) {
        sigaction(number, &found[number], nullptr); // another crash ends the program at once
    }
    if (front_end != nullptr) {
        front_end->rescue();
    }
    raise(signal_number); // comes when this returns, unless what crashed does so again
}

} // namespace

void crash_prepare()
{
    stack_t alternate = {};
    alternate.ss_sp = stack;
    alternate.ss_size = sizeof stack;
    sigaltstack(&alternate, nullptr);
    for (int number : CRASH_SIGNALS) {
        struct sigaction action = {};
        action.sa_handler = on_crash;
        action.sa_flags = SA_ONSTACK;
        sigfillset(&action.sa_mask);
        sigaction(number, &action, &found[number]);
    }
}
