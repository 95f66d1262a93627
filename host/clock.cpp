/* Millisecond clock and sleeping. */
#include "host/host_internal.h"

#include <cstdint>
#include <ctime>

namespace qrv::host {

/* Monotonic, so that wall-clock changes never make a difference negative;
 * the 32-bit reading wraps after 49.7 days and callers compare differences. */
unsigned builtinOsGetMs(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    uint64_t ms = static_cast<uint64_t>(now.tv_sec) * 1000u +
                  static_cast<uint64_t>(now.tv_nsec) / 1000000u;
    return static_cast<unsigned>(ms);
}

/* Sleeps the whole time even when signals interrupt it. */
void builtinOsSleepMicroseconds(unsigned microseconds)
{
    struct timespec left;
    left.tv_sec = static_cast<time_t>(microseconds / 1000000u);
    left.tv_nsec = static_cast<long>(microseconds % 1000000u) * 1000L;
    retryInterrupted([&] { return nanosleep(&left, &left); });
}

} // namespace qrv::host
