#include "tools/command/Interruption.h"

#include <signal.h>

#include <atomic>
#include <initializer_list>

namespace {

// Threads ask, and the one that the signal interrupts writes.
std::atomic<bool> s_came{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void note(int /*signal*/) {
    s_came = true;
}

}  // namespace

Interruption::Interruption() {
    s_came = false;
    struct sigaction action {};
    action.sa_handler = note;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM}) {
        // What whoever started the program has it ignore stays ignored.
        struct sigaction before {};
        sigaction(number, nullptr, &before);
        if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
    }
}

Interruption::~Interruption() {
    for (const int number : {SIGINT, SIGTERM}) {
        struct sigaction now {};
        sigaction(number, nullptr, &now);
        if (now.sa_handler == note) signal(number, SIG_DFL);
    }
}

bool Interruption::came() {
    return s_came;
}
