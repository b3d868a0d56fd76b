#include "main/crash.h"

#include <initializer_list>
#include <signal.h>

#include "front/front_end.h"

namespace {

constexpr int CRASH_SIGNALS[] = {SIGSEGV, SIGBUS, SIGABRT, SIGILL, SIGFPE};

// The actions that these signals had before, for instance a sanitizer's.
struct sigaction found[NSIG];

// A stack of the handler's own: one that has overflowed has no room for it.
alignas(16) char stack[32 * 1024];

void on_crash(int signal_number)
{
    for (int number : CRASH_SIGNALS) {
        sigaction(number, &found[number], nullptr); // another crash ends the program at once
    }
    if (front_end != nullptr) {
        front_end->rescue();
    }
    raise(signal_number); // pending until this returns; then the former action is taken
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
