/*
 * kelvo trace format: the 3000-byte trace header and the trace record.
 *
 * One layout serves the live block in shared memory and the binary trace
 * file. Every field is a fixed-width 32-bit little-endian value (or text of a
 * fixed size), so the layout is the same for 32- and 64-bit programs. Both the
 * tool and the facility library read and write the block through these views;
 * nothing copies or converts a record.
 */
#ifndef KELVO_TRCFORMAT_H
#define KELVO_TRCFORMAT_H

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#else
#include <stddef.h>
#include <stdint.h>
#endif

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "the kelvo trace format is little-endian; this host is not"
#endif

#define TRC_MAGIC "@TRACE@"
#define TRC_LAYOUT_ID 3004
#define TRC_HEADER_SIZE 3000
#define TRC_MASK_SIZE 192
#define TRC_MASK_MAP_SIZE 32 /* one map of 256 bits per identifier byte */
#define TRC_PRODUCTS 256
#define TRC_TEXT8 8
#define TRC_FILE_NAME_SIZE 256
#define TRC_SEGMENT_MAX 65536
#define TRC_RECORD_FIXED 40 /* bytes ahead of the data */
#define TRC_RECORD_MIN 44   /* fixed part and trailing length word */
#define TRC_START_MARKER 8  /* length of the start marker at offset 0 */
#define TRC_NO_VERSION "......."

/* Bits of the flags word. */
#define TRC_DEST_SHARED 0x01
#define TRC_DEST_FILE 0x02
#define TRC_DEST_NATIVE 0x04
#define TRC_KEEP_LAST 0x08
#define TRC_KEEP_INITIAL 0x10
#define TRC_DEST_MMIO 0x20
#define TRC_USE_CRASH_MASK 0x40
#define TRC_NO_POINTER_CHECK 0x80
#define TRC_OPTION_T 0x100 /* kept in the header; every record has a time stamp anyway */
#define TRC_USE_PAUSE_MASK 0x200
#define TRC_USE_PAUSE_ATTRIB 0x400

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

#ifdef __cplusplus
extern "C" {
#endif

typedef struct trcHeader_t {
    char magic[8];    /* "@TRACE@" and its zero byte */
    int32_t layoutId; /* TRC_LAYOUT_ID */
    char traceVersion[TRC_TEXT8];
    char opSystem[TRC_TEXT8];
    char opSysVersion[TRC_TEXT8];
    char hwPlatform[TRC_TEXT8];
    char prodVersion[TRC_PRODUCTS][TRC_TEXT8];
    uint8_t reserved2092[8];
    int32_t traceOff;
    uint8_t reserved2104[4];
    int32_t traceFull;
    int32_t tracePid;        /* -1: all */
    int32_t traceTid;        /* -1: all */
    int32_t traceCpid;       /* -1: all */
    uint32_t thisPointer;    /* 0: all */
    int32_t sysErrRc;        /* 0: none */
    int32_t maxSevereErrors; /* -1: never */
    int32_t maxRecordSize;
    uint32_t flags;
    uint8_t reserved2144[4];
    int32_t pauseAttrib;
    uint8_t mask[TRC_MASK_SIZE];
    uint8_t crashMask[TRC_MASK_SIZE];
    uint8_t pauseMask[TRC_MASK_SIZE];
    int32_t bufferSize; /* bytes of the record area */
    uint8_t reserved2732[4];
    char fileName[TRC_FILE_NAME_SIZE];
    uint8_t reserved2992[8];
} trcHeader_t;

typedef struct trcRecord_t {
    int32_t length;  /* fixed part, data and trailing word; no alignment */
    uint32_t ident1; /* 31..24 product, 23..16 event */
    uint32_t ident2; /* 31..24 component, 23..16 class, 15..8 function, 7..0 trace point */
    uint32_t thisPointer;
    uint32_t pid;
    uint32_t tid;
    int32_t node; /* -1: unknown */
    uint32_t cpid;
    int32_t sec; /* 0: no time stamp */
    int32_t nsec;
    /* data[length - 44], alignment to 4, trailing copy of length */
} trcRecord_t;

#ifdef __cplusplus
} /* extern "C" */

static_assert(sizeof(trcHeader_t) == TRC_HEADER_SIZE);
static_assert(offsetof(trcHeader_t, layoutId) == 8);
static_assert(offsetof(trcHeader_t, traceVersion) == 12);
static_assert(offsetof(trcHeader_t, opSystem) == 20);
static_assert(offsetof(trcHeader_t, opSysVersion) == 28);
static_assert(offsetof(trcHeader_t, hwPlatform) == 36);
static_assert(offsetof(trcHeader_t, prodVersion) == 44);
static_assert(offsetof(trcHeader_t, traceOff) == 2100);
static_assert(offsetof(trcHeader_t, traceFull) == 2108);
static_assert(offsetof(trcHeader_t, tracePid) == 2112);
static_assert(offsetof(trcHeader_t, traceTid) == 2116);
static_assert(offsetof(trcHeader_t, traceCpid) == 2120);
static_assert(offsetof(trcHeader_t, thisPointer) == 2124);
static_assert(offsetof(trcHeader_t, sysErrRc) == 2128);
static_assert(offsetof(trcHeader_t, maxSevereErrors) == 2132);
static_assert(offsetof(trcHeader_t, maxRecordSize) == 2136);
static_assert(offsetof(trcHeader_t, flags) == 2140);
static_assert(offsetof(trcHeader_t, pauseAttrib) == 2148);
static_assert(offsetof(trcHeader_t, mask) == 2152);
static_assert(offsetof(trcHeader_t, crashMask) == 2344);
static_assert(offsetof(trcHeader_t, pauseMask) == 2536);
static_assert(offsetof(trcHeader_t, bufferSize) == 2728);
static_assert(offsetof(trcHeader_t, fileName) == 2736);
static_assert(sizeof(trcRecord_t) == TRC_RECORD_FIXED);
static_assert(offsetof(trcRecord_t, ident1) == 4);
static_assert(offsetof(trcRecord_t, ident2) == 8);
static_assert(offsetof(trcRecord_t, thisPointer) == 12);
static_assert(offsetof(trcRecord_t, pid) == 16);
static_assert(offsetof(trcRecord_t, tid) == 20);
static_assert(offsetof(trcRecord_t, node) == 24);
static_assert(offsetof(trcRecord_t, cpid) == 28);
static_assert(offsetof(trcRecord_t, sec) == 32);
static_assert(offsetof(trcRecord_t, nsec) == 36);

/* The six identifier bytes of a record, in mask order. */
inline unsigned trcRecProduct(const trcRecord_t* r) { return r->ident1 >> 24; }
inline unsigned trcRecEvent(const trcRecord_t* r) { return (r->ident1 >> 16) & 0xFF; }
inline unsigned trcRecComponent(const trcRecord_t* r) { return r->ident2 >> 24; }
inline unsigned trcRecClass(const trcRecord_t* r) { return (r->ident2 >> 16) & 0xFF; }
inline unsigned trcRecFunction(const trcRecord_t* r) { return (r->ident2 >> 8) & 0xFF; }
inline unsigned trcRecTracePoint(const trcRecord_t* r) { return r->ident2 & 0xFF; }

/* Events whose variable part is a return code (an int) and not text: the
   error-code events and the exits of API, CEI, CII, DEV and DBG. */
inline bool trcIsRcEvent(unsigned event)
{
    return (event >= TRC_EVENT_API_ERRCODE && event <= TRC_EVENT_DBG_ERRCODE) ||
           (event >= TRC_EVENT_API_EXIT && event <= TRC_EVENT_DBG_EXIT && event % 10 == 3);
}

/* A mask record holds six maps of 256 bits, in the order of the identifier
   bytes; value n of a map is bit n & 7 of its byte n >> 3. */
inline int trcMaskByteOf(int map, unsigned value) { return map * TRC_MASK_MAP_SIZE + static_cast<int>(value >> 3); }
inline bool trcMaskBitOf(unsigned byte, unsigned value) { return ((byte >> (value & 7)) & 1u) != 0; }

/* Bytes a record of this length takes in the area: length rounded up to 4. */
inline int32_t trcAligned(int32_t length) { return static_cast<int32_t>((static_cast<uint32_t>(length) + 3u) & ~3u); }

/* Segment size of a record area: the smaller of the area and 64 KiB. */
inline int32_t trcSegmentSize(int32_t bufferSize)
{
    return bufferSize < TRC_SEGMENT_MAX ? bufferSize : TRC_SEGMENT_MAX;
}
#endif /* __cplusplus */

#endif /* KELVO_TRCFORMAT_H */
