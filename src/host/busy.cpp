// The busy mark of the host entries: one flag for the whole process.
//
// A compare-and-swap rather than a mutex: a second caller must be turned away
// at once, not queued behind an export that may run for seconds, and a call
// that re-enters from a callback on the holder's own thread must not block
// on itself. Acquire and release order make everything the holder wrote
// visible to the next caller that takes the mark, so sequential calls from
// different threads see one consistent state.
#include "host/busy.h"

#include <atomic>

namespace {

std::atomic<bool> g_busy{false};

}  // namespace

bool host_enter_call(void) {
    bool expected = false;
    return g_busy.compare_exchange_strong(expected, true, std::memory_order_acquire,
                                          std::memory_order_relaxed);
}

void host_leave_call(void) { g_busy.store(false, std::memory_order_release); }
