// Internal view of the process-wide busy mark that keeps host entries from
// overlapping.
//
// The filter's state lives in process-wide globals (lpEMData, lpSetup,
// lpRaster and the streams they hold), so only one host call may be inside
// the library at a time. Every host entry that reads or changes that state
// takes the mark on the way in and drops it on the way out; a call that
// finds it taken is refused at once and touches nothing. Nothing ever waits
// for the mark, so a call that comes back in from a status function or an
// offscreen callback on the same thread is refused too, never deadlocked.
#ifndef TOLVA_HOST_BUSY_H
#define TOLVA_HOST_BUSY_H

// Takes the mark; false when another call holds it.
bool host_enter_call(void);
// Drops the mark taken by a successful host_enter_call.
void host_leave_call(void);

// The mark for the lifetime of one host entry.
class HostCallGuard {
public:
    HostCallGuard() : entered_(host_enter_call()) {}
    ~HostCallGuard() {
        if (entered_) host_leave_call();
    }
    HostCallGuard(const HostCallGuard &) = delete;
    HostCallGuard &operator=(const HostCallGuard &) = delete;
    // False when the call must be refused with TOLVA_ERR_BUSY.
    bool entered() const { return entered_; }

private:
    bool entered_;
};

#endif
