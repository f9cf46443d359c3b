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

#ifdef __cplusplus
extern "C" {
#endif

/* Event numbers. Those of the return-code events carry an int return code. */
enum {
    TRC_EVENT_ALERT_ERROR = 1,
    TRC_EVENT_SYSTEM_ERROR = 2,
    TRC_EVENT_ASSERT = 3,
    TRC_EVENT_SOFTWARE_ERROR = 4,
    TRC_EVENT_LOG_ERROR = 5,
    TRC_EVENT_LOG_EVENT = 6,
    TRC_EVENT_NON_FATAL_ERROR = 7,
    TRC_EVENT_API_ERRCODE = 10,
    TRC_EVENT_CEI_ERRCODE = 11,
    TRC_EVENT_CII_ERRCODE = 12,
    TRC_EVENT_DEV_ERRCODE = 13,
    TRC_EVENT_DBG_ERRCODE = 14,
    TRC_EVENT_API_NEW = 20,
    TRC_EVENT_API_DELETE = 21,
    TRC_EVENT_API_ENTRY = 22,
    TRC_EVENT_API_EXIT = 23,
    TRC_EVENT_API_PRINTF = 24,
    TRC_EVENT_CEI_NEW = 30,
    TRC_EVENT_CEI_DELETE = 31,
    TRC_EVENT_CEI_ENTRY = 32,
    TRC_EVENT_CEI_EXIT = 33,
    TRC_EVENT_CEI_PRINTF = 34,
    TRC_EVENT_CII_NEW = 40,
    TRC_EVENT_CII_DELETE = 41,
    TRC_EVENT_CII_ENTRY = 42,
    TRC_EVENT_CII_EXIT = 43,
    TRC_EVENT_CII_PRINTF = 44,
    TRC_EVENT_DEV_NEW = 50,
    TRC_EVENT_DEV_DELETE = 51,
    TRC_EVENT_DEV_ENTRY = 52,
    TRC_EVENT_DEV_EXIT = 53,
    TRC_EVENT_DEV_PRINTF = 54,
    TRC_EVENT_DBG_NEW = 60,
    TRC_EVENT_DBG_DELETE = 61,
    TRC_EVENT_DBG_ENTRY = 62,
    TRC_EVENT_DBG_EXIT = 63,
    TRC_EVENT_DBG_PRINTF = 64,
    TRC_EVENT_PRF_ENTRY = 100,
    TRC_EVENT_PRF_EXIT = 101
};

/*
 * Nonzero while no trace runs and the facility watches for one, so that a
 * write may be answered with 1 without entering the library. Read only.
 */
extern int trcWriterIdle;

/* The library's entries of trcWrite and trcWriteRc, behind the idle test. */
int trcWriteEntry(unsigned product, unsigned event, unsigned component, unsigned klass,
                  unsigned function, unsigned tracePoint, const void* thisPointer,
                  const void* data, unsigned length);
int trcWriteRcEntry(unsigned product, unsigned event, unsigned component, unsigned klass,
                    unsigned function, unsigned tracePoint, const void* thisPointer, int rc);

#ifndef KELVO_BUILDING_FACILITY
/* A text record of length bytes; the bytes are stored as they stand. */
static inline int trcWrite(unsigned product, unsigned event, unsigned component,
                           unsigned klass, unsigned function, unsigned tracePoint,
                           const void* thisPointer, const void* data, unsigned length)
{
    if (__atomic_load_n(&trcWriterIdle, __ATOMIC_RELAXED) != 0)
        return 1;
    return trcWriteEntry(product, event, component, klass, function, tracePoint, thisPointer,
                         data, length);
}

/* A return-code record. */
static inline int trcWriteRc(unsigned product, unsigned event, unsigned component,
                             unsigned klass, unsigned function, unsigned tracePoint,
                             const void* thisPointer, int rc)
{
    if (__atomic_load_n(&trcWriterIdle, __ATOMIC_RELAXED) != 0)
        return 1;
    return trcWriteRcEntry(product, event, component, klass, function, tracePoint, thisPointer,
                           rc);
}
#endif

/* A text record made by printf rules; formatted only when a trace takes it. */
int trcWritef(unsigned product, unsigned event, unsigned component, unsigned klass,
              unsigned function, unsigned tracePoint, const void* thisPointer,
              const char* format, ...)
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
