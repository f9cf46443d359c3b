/*
 * The operations of the trace facility that the kelvo tool calls. Traced
 * programs use the writer API in <kelvo/trace.h> instead.
 *
 * Every operation that fails sets errno; ENOENT always means that no trace
 * exists. Masks are mask records of 192 bytes: six maps of 256 bits for
 * product, event, component, class, function and trace point, value n being
 * bit n & 7 of byte n >> 3 of its map.
 */
#ifndef KELVO_FACILITY_H
#define KELVO_FACILITY_H

#include <kelvo/trcformat.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Modes of trcFileAttach. */
#define TRC_FILE_READ 0
#define TRC_FILE_WRITE_CREATE 257

/*
 * Starts a trace. mask selects the records; pid, tid, cpid (-1: all) and
 * thisPointer (0: all) filter them; returnCode (0: none) is the return code
 * that counts as a severe error; after maxSevereErrors severe errors (-1:
 * never) the trace stops. crashMask tests event, component, class, function
 * and trace point in its maps 0 to 4; pauseMask is an ordinary mask.
 * bufferSize is the size of the record area for the shared memory and file
 * destinations: a power of two from 64 to 65536 or a multiple of 65536.
 * Result 0, else -1 with EEXIST (a trace runs), EINVAL (size or file name
 * refused), ENOMEM, EAGAIN (semaphore not had within 10 seconds), ENODEV
 * (MMIO destination) or the error of creating the file.
 */
int32_t trcOn(int32_t reserved, const uint8_t* mask, int32_t pid, int32_t tid, int32_t cpid, uint32_t thisPointer,
              int32_t returnCode, int32_t maxSevereErrors, int32_t maxRecordSize, uint32_t flags,
              const uint8_t* crashMask, const uint8_t* pauseMask, int32_t pauseAttrib, const char* fileName,
              int64_t bufferSize);

/* Ends the trace: once it returns, no writer stores another record. */
int32_t trcOff(int32_t reserved);

/*
 * Changes what the running trace records. Of flags only the crash and pause
 * bits are taken; crashMask is read only with TRC_USE_CRASH_MASK.
 */
int32_t trcChg(const uint8_t* mask, int32_t pid, int32_t tid, int32_t cpid, uint32_t thisPointer, int32_t returnCode,
               int32_t maxSevereErrors, int32_t maxRecordSize, uint32_t flags, const uint8_t* crashMask,
               const uint8_t* pauseMask, int32_t pauseAttrib);

/* Empties the record area; EINVAL for a native trace. */
int32_t trcClear(int32_t reserved);

/*
 * Writes header and record area as a binary trace file through a handle of
 * trcFileAttach. EINVAL unless the records are in shared memory; ENOSPC when
 * the disk is full.
 */
int32_t trcDump(int32_t reserved, int32_t handle);

/*
 * The live header with the record area behind it, valid to the end of the
 * process; null with ENOENT when no trace exists.
 */
trcHeader_t* trcAttach(int32_t reserved1, int32_t reserved2, int32_t reserved3);

/* File access for the tool: mode TRC_FILE_READ or TRC_FILE_WRITE_CREATE. */
int32_t trcFileAttach(const char* name, int32_t mode);
int32_t trcFileDetach(int32_t handle);
int32_t trcFileRead(int32_t handle, void* buffer, int32_t count);
/* origin 0: from the start, 1: from the current position, 2: from the end. */
int64_t trcFileSeek(int32_t handle, int64_t offset, int32_t origin);

/*
 * Build level of a product as a .tfi file states it: leading blanks and an
 * "@(#)" marker skipped, the first word cut to 8 bytes; "......." when
 * nothing is left. The text lives in a buffer of the calling thread until
 * its next call.
 */
const char* trcGetBldLvl(const char* text);

/*
 * The trace semaphore: a hold for reading. While any process holds it,
 * writers drop their records (and count them) rather than wait; the area is
 * complete, unchanging and in the trace format, and several readers may
 * hold it at once. trcSemP never waits for ever: when the hold cannot be
 * had it returns -1 and the caller reads what is there.
 * trcSemAttach: 0, or -1 with ENOENT when no trace exists.
 */
int32_t trcSemAttach(void);
int32_t trcSemP(void);
int32_t trcSemV(void);

#ifdef __cplusplus
}
#endif

#endif /* KELVO_FACILITY_H */
