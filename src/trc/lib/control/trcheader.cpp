// The header of a new trace and its later changes.
#include "trcheader.h"

#include "trclive.h"

#include <kelvo/facility.h>

#include <sys/utsname.h>

#include <cstring>

#ifndef KELVO_LIB_VERSION
#define KELVO_LIB_VERSION "0.0.0"
#endif

namespace kelvo {
namespace {

constexpr uint32_t changeableFlags = TRC_USE_CRASH_MASK | TRC_USE_PAUSE_MASK | TRC_USE_PAUSE_ATTRIB;

// An 8-byte text field: cut, or padded with zero bytes.
void setText8(char* field, const char* text)
{
    std::memset(field, 0, TRC_TEXT8);
    std::memcpy(field, text, strnlen(text, TRC_TEXT8));
}

void setMask(uint8_t* field, const uint8_t* mask, uint8_t fill)
{
    if (mask != nullptr)
        std::memcpy(field, mask, TRC_MASK_SIZE);
    else
        std::memset(field, fill, TRC_MASK_SIZE);
}

void fillIdentity(trcHeader_t& header)
{
    std::memcpy(header.magic, TRC_MAGIC, sizeof header.magic);
    header.layoutId = TRC_LAYOUT_ID;
    setText8(header.traceVersion, KELVO_LIB_VERSION);
    struct utsname host {};
    if (uname(&host) == 0) {
        setText8(header.opSystem, host.sysname);
        setText8(header.opSysVersion, host.release);
        setText8(header.hwPlatform, host.machine);
    }
    for (auto& level : header.prodVersion)
        std::memcpy(level, TRC_NO_VERSION, sizeof TRC_NO_VERSION);
}

}  // namespace

void fillHeader(trcHeader_t& header, const TraceSettings& settings, const char* fileName, int32_t bufferSize)
{
    std::memset(&header, 0, sizeof header);
    fillIdentity(header);
    header.tracePid = settings.pid;
    header.traceTid = settings.tid;
    header.traceCpid = settings.cpid;
    header.thisPointer = settings.thisPointer;
    header.sysErrRc = settings.returnCode;
    header.maxSevereErrors = settings.maxSevereErrors;
    header.maxRecordSize = settings.maxRecordSize;
    header.flags = settings.flags;
    header.pauseAttrib = settings.pauseAttrib;
    setMask(header.mask, settings.mask, 0xFF);
    setMask(header.crashMask, settings.crashMask, 0);
    setMask(header.pauseMask, settings.pauseMask, 0);
    header.bufferSize = bufferSize;
    if (fileName != nullptr)
        std::memcpy(header.fileName, fileName, strnlen(fileName, TRC_FILE_NAME_SIZE - 1));
}

void changeHeader(trcHeader_t& header, const TraceSettings& settings)
{
    storeRelaxed(header.tracePid, settings.pid);
    storeRelaxed(header.traceTid, settings.tid);
    storeRelaxed(header.traceCpid, settings.cpid);
    storeRelaxed(header.thisPointer, settings.thisPointer);
    storeRelaxed(header.sysErrRc, settings.returnCode);
    storeRelaxed(header.maxSevereErrors, settings.maxSevereErrors);
    storeRelaxed(header.maxRecordSize, settings.maxRecordSize);
    storeRelaxed(header.pauseAttrib, settings.pauseAttrib);
    uint32_t flags = (loadRelaxed(header.flags) & ~changeableFlags) | (settings.flags & changeableFlags);
    for (int i = 0; i < TRC_MASK_SIZE; ++i) {
        if (settings.mask != nullptr)
            storeRelaxed(header.mask[i], settings.mask[i]);
        if (settings.pauseMask != nullptr)
            storeRelaxed(header.pauseMask[i], settings.pauseMask[i]);
        if ((settings.flags & TRC_USE_CRASH_MASK) && settings.crashMask != nullptr)
            storeRelaxed(header.crashMask[i], settings.crashMask[i]);
    }
    storeRelaxed(header.flags, flags);
}

}  // namespace kelvo
