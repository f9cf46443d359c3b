/*
 * The writer API of the kelvo trace facility, for traced programs in C and
 * C++. A record is named by six numbers of 0 to 255: product, event,
 * component, class, function and trace point.
 *
 * Every write returns 0 when the record was stored, 1 when no trace took it
 * (no trace, trace stopped, filtered out, buffer full, or a report held the
 * trace: the facility then counts the record as lost and says so in the
 * trace), and -1 with errno on a failure. No write ever waits for another
 * process. Every record carries the time it was written (CLOCK_REALTIME). With no trace running, trcWrite and trcWriteRc cost one
 * load in the caller and do not enter the library: once a write has found
 * no trace, a thread of the facility watches for one and reopens the way
 * within 100 ms of a trace being turned on. A thread then takes up to 16
 * further writes to find the new trace.
 */
#ifndef KELVO_TRACE_H
#define KELVO_TRACE_H

#include <kelvo/trcformat.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Nonzero while no trace runs and the facility watches for one, so that a
 * write may be answered with 1 without entering the library. Read only.
 */
extern int trcWriterIdle;

/* The library's entries of trcWrite and trcWriteRc, behind the idle test. */
int trcWriteEntry(unsigned product, unsigned event, unsigned component, unsigned klass, unsigned function,
                  unsigned tracePoint, const void* thisPointer, const void* data, unsigned length);
int trcWriteRcEntry(unsigned product, unsigned event, unsigned component, unsigned klass, unsigned function,
                    unsigned tracePoint, const void* thisPointer, int rc);

#ifndef KELVO_BUILDING_FACILITY
/* A text record of length bytes; the bytes are stored as they stand. */
static inline int trcWrite(unsigned product, unsigned event, unsigned component, unsigned klass, unsigned function,
                           unsigned tracePoint, const void* thisPointer, const void* data, unsigned length)
{
    if (__atomic_load_n(&trcWriterIdle, __ATOMIC_RELAXED) != 0)
        return 1;
    return trcWriteEntry(product, event, component, klass, function, tracePoint, thisPointer, data, length);
}

/* A return-code record. */
static inline int trcWriteRc(unsigned product, unsigned event, unsigned component, unsigned klass, unsigned function,
                             unsigned tracePoint, const void* thisPointer, int rc)
{
    if (__atomic_load_n(&trcWriterIdle, __ATOMIC_RELAXED) != 0)
        return 1;
    return trcWriteRcEntry(product, event, component, klass, function, tracePoint, thisPointer, rc);
}
#endif

/* A text record made by printf rules; formatted only when a trace takes it. */
int trcWritef(unsigned product, unsigned event, unsigned component, unsigned klass, unsigned function,
              unsigned tracePoint, const void* thisPointer, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 8, 9)))
#endif
    ;

/*
 * The build level of a product, up to 8 bytes, for the trace header. It is
 * kept for traces that are turned on later as well. 0 when a running trace
 * took it, 1 when none runs, -1 with EINVAL for a product above 255.
 */
int trcSetProdVersion(unsigned product, const char* level);

/* Companion process of the calling thread; 0 for none. */
void trcSetCompanion(unsigned cpid);

/* Node of the calling process; -1 for unknown. */
void trcSetNode(int node);

/*
 * 1 while a trace runs that may take records, else 0. It looks for the
 * trace now (a system call when none runs), and the writes of the process
 * then see a trace that was just turned on at once.
 */
int trcIsOn(void);

#ifdef __cplusplus
}
#endif

#endif /* KELVO_TRACE_H */
