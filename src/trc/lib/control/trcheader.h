// Filling the header of a new trace.
#ifndef KELVO_TRCHEADER_H
#define KELVO_TRCHEADER_H

#include <kelvo/trcformat.h>

#include <cstdint>

namespace kelvo {

// What trcOn and trcChg are given.
struct TraceSettings {
    const uint8_t* mask;
    int32_t pid;
    int32_t tid;
    int32_t cpid;
    uint32_t thisPointer;
    int32_t returnCode;
    int32_t maxSevereErrors;
    int32_t maxRecordSize;
    uint32_t flags;
    const uint8_t* crashMask;
    const uint8_t* pauseMask;
    int32_t pauseAttrib;
};

// The whole header of a new trace: identification, versions, settings.
void fillHeader(trcHeader_t& header, const TraceSettings& settings, const char* fileName, int32_t bufferSize);

// The settings that trcChg may change; of flags the crash and pause bits.
void changeHeader(trcHeader_t& header, const TraceSettings& settings);

}  // namespace kelvo

#endif
