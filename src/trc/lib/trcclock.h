// The facility's own clocks for bounds and intervals, in nanoseconds. The
// coarse one costs no system call and is good to a few milliseconds.
#ifndef KELVO_TRCCLOCK_H
#define KELVO_TRCCLOCK_H

#include <cstdint>
#include <ctime>

namespace kelvo {

inline int64_t clockNs(clockid_t clock)
{
    struct timespec now {};
    clock_gettime(clock, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

inline int64_t monotonicNs() { return clockNs(CLOCK_MONOTONIC); }
inline int64_t coarseNs() { return clockNs(CLOCK_MONOTONIC_COARSE); }

}  // namespace kelvo

#endif
