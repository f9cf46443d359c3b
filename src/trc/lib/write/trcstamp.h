// The time stamp of a record: the real time, read as cheaply as the machine
// allows and never earlier than the thread's record before.
#ifndef KELVO_TRCSTAMP_H
#define KELVO_TRCSTAMP_H

#include <cstdint>

namespace kelvo {

struct Stamp {
    int32_t sec;
    int32_t nsec;
};

Stamp stampNow();

// How a thread turns cycle counts into real time: a base point taken from
// the real-time clock, and the nanoseconds per count in 32.32 fixed point
// (0 while not yet known). Kept per thread so that no write shares a line
// with another for its time.
struct CycleClock {
    uint64_t baseCount = 0;
    int64_t baseNs = 0;
    uint64_t nsPerCount = 0;
    uint64_t countsValid = 0;
};

// The real time at `count` on the clock's counter; reads the real-time clock
// and takes a new base when the base is too old, or no rate is known yet.
// `readCount` and `readRealNs` are the counter and the real-time clock.
int64_t cycleClockNs(CycleClock& clock, uint64_t count, uint64_t (*readCount)(), int64_t (*readRealNs)());

}  // namespace kelvo

#endif
