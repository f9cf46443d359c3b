/*
 * The writer API of the kelvo trace facility, for traced programs in C and
 * C++. A record is named by six numbers of 0 to 255: product, event,
 * component, class, function and trace point.
 *
 * Every write returns 0 when the record was stored, 1 when no trace took it
 * (no trace, trace stopped, filtered out or buffer full), and -1 with errno
 * on a failure. With no trace running a write costs a few loads and no
 * system call. A thread that finds no trace looks for one again on its 16th
 * write after at least 100 ms: a trace that is turned on is seen by the
 * running writers within 100 ms and 16 writes of each thread.
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

/* A text record of length bytes; the bytes are stored as they stand. */
int trcWrite(unsigned product, unsigned event, unsigned component, unsigned klass,
             unsigned function, unsigned tracePoint, const void* thisPointer,
             const void* data, unsigned length);

/* A return-code record. */
int trcWriteRc(unsigned product, unsigned event, unsigned component, unsigned klass,
               unsigned function, unsigned tracePoint, const void* thisPointer, int rc);

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
