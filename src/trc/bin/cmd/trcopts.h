// The settings that `on` and `chg` hand to the trace facility, and the
// options that both commands read the same way.
#ifndef KELVO_TRCOPTS_H
#define KELVO_TRCOPTS_H

#include <cstdint>

#include "kelvo/trcformat.h"

// What a trace records: the arguments of trcOn and trcChg, less the file
// name and buffer size that only `on` has. Numbers are 32 bits wide, as the
// facility takes them.
struct trcTraceParams_t {
    uint8_t mask[TRC_MASK_SIZE];
    int32_t pid;
    int32_t tid;
    int32_t cpid;
    uint32_t thisPointer;
    int32_t returnCode;
    int32_t maxSevereErrors;
    int32_t maxRecordSize;
    uint32_t flags;
    uint8_t crashMask[TRC_MASK_SIZE];
    uint8_t pauseMask[TRC_MASK_SIZE];
    int32_t pauseAttrib;
    bool maskGiven;  // a -m has been read
};

// Reads the option args[*at] if it is one that `on` and `chg` share (-m,
// -p, -c, -rc, -e, -r, -crash, -pause_mask, -pause_attrib, -this) and moves
// *at past its value. Returns false, leaving everything as it was, for any
// other word. A refused or missing value ends the process through
// usage(usageMessage, n). count is the number of words in args.
bool trcParseSharedOption(int count, char** args, int* at, int usageMessage, trcTraceParams_t* params);

#endif
