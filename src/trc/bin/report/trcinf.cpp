// `kelvo inf`: what a trace header says, the live one or that of a binary
// trace file. No record is looked at.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kelvo/trcformat.h"
#include "trcmsgid.h"
#include "trc.h"
#include "trcentry.h"
#include "trcerror.h"
#include "trcinf.h"
#include "trcload.h"
#include "trcmask.h"
#include "trcmsg.h"
#include "trcrtos.h"

namespace {

// Labels of the report; each carries the padding of its column.

void label(FILE* out, int number) { std::fputs(trcMsgGet(number), out); }

void showText8(FILE* out, int number, const char* text)
{
    label(out, number);
    std::fprintf(out, "%8.8s\n", text);
}

void showProducts(const trcHeader_t* header, FILE* out)
{
    for (int product = 0; product < TRC_PRODUCTS; ++product) {
        const char* version = header->prodVersion[product];
        if (std::memcmp(version, TRC_NO_VERSION, TRC_TEXT8) == 0) {
            continue;
        }
        std::fprintf(out, trcMsgGet(msgLabelProduct), product);
        std::fprintf(out, "%8.8s", version);
        std::fprintf(out, "  (%s)\n", trcNameProd[product]);
    }
}

void showFilters(const trcHeader_t* header, FILE* out)
{
    label(out, msgLabelPid);
    if (header->tracePid == -1) {
        std::fprintf(out, "%s\n", trcMsgGet(msgAll));
    } else if (header->traceTid == -1) {
        std::fprintf(out, "%d\n", header->tracePid);
    } else {
        std::fprintf(out, "%d", header->tracePid);
        std::fprintf(out, ".%d\n", header->traceTid);
    }
    label(out, msgLabelCpid);
    if (header->traceCpid == -1) {
        std::fprintf(out, "%s\n", trcMsgGet(msgAll));
    } else {
        std::fprintf(out, "%d\n", header->traceCpid);
    }
    label(out, msgLabelThisPointer);
    if (header->thisPointer == 0) {
        std::fprintf(out, "%s\n", trcMsgGet(msgAll));
    } else {
        std::fprintf(out, "%p\n", reinterpret_cast<void*>(static_cast<uintptr_t>(header->thisPointer)));
    }
}

void showLimits(const trcHeader_t* header, FILE* out)
{
    label(out, msgLabelSysErr);
    if (header->sysErrRc == 0) {
        std::fprintf(out, "%s\n", trcMsgGet(msgNone));
    } else {
        std::fprintf(out, "%d (%#06x)\n", header->sysErrRc, static_cast<unsigned>(header->sysErrRc));
    }
    label(out, msgLabelSevere);
    if (header->maxSevereErrors == -1) {
        std::fprintf(out, "%s\n", trcMsgGet(msgInfinite));
    } else {
        std::fprintf(out, "%d\n", header->maxSevereErrors);
    }
    std::fprintf(out, trcMsgGet(msgLabelRecordSize), header->maxRecordSize);
    std::fputs("\n", out);
}

int destinationMessage(uint32_t flags)
{
    if ((flags & TRC_DEST_SHARED) != 0) {
        return msgShared;
    }
    if ((flags & TRC_DEST_NATIVE) != 0) {
        return msgNative;
    }
    return (flags & TRC_DEST_FILE) != 0 ? msgFile : msgUnknown;
}

void showBuffer(const trcHeader_t* header, FILE* out)
{
    const uint32_t flags = header->flags;
    if ((flags & TRC_DEST_FILE) != 0) {
        label(out, msgLabelFileName);
        std::fprintf(out, "%.*s\n", TRC_FILE_NAME_SIZE, header->fileName);
    }
    label(out, msgLabelKeep);
    const int keep = (flags & TRC_KEEP_LAST) != 0 ? msgLast : (flags & TRC_KEEP_INITIAL) != 0 ? msgInitial : msgUnknown;
    std::fprintf(out, "%s\n", trcMsgGet(keep));
    if ((flags & (TRC_KEEP_LAST | TRC_KEEP_INITIAL)) != 0) {
        std::fprintf(out, trcMsgGet(msgLabelBufferSize), static_cast<long>(header->bufferSize));
        std::fputs("\n", out);
    }
    if (header->traceFull != 0) {
        std::fprintf(out, "%s\n", trcMsgGet(msgFull));
    }
    if (header->traceOff != 0) {
        std::fprintf(out, "%s\n", trcMsgGet(msgOff));
    }
    std::fprintf(out, trcMsgGet(msgPointerCheck), trcMsgGet((flags & TRC_NO_POINTER_CHECK) != 0 ? msgNo : msgYes));
}

}  // namespace

void _displayInfo1(trcHeader_t* header, FILE* out)
{
    showText8(out, msgLabelVersion, header->traceVersion);
    showText8(out, msgLabelOpSystem, header->opSystem);
    showText8(out, msgLabelOpSysVersion, header->opSysVersion);
    showText8(out, msgLabelPlatform, header->hwPlatform);
    showProducts(header, out);
    std::fputs("\n", out);
    char maskText[trcMaskTextMax + 1];
    trcMaskToStr(header->mask, maskText);
    label(out, msgLabelMask);
    std::fprintf(out, "%s\n", maskText);
    showFilters(header, out);
    showLimits(header, out);
    label(out, msgLabelDestination);
    std::fprintf(out, "%s\n", trcMsgGet(destinationMessage(header->flags)));
    if ((header->flags & TRC_DEST_NATIVE) != 0) {
        return;
    }
    showBuffer(header, out);
}

void displayInfo(trcHeader_t* header, FILE* out) { _displayInfo1(header, out); }

int mainInf(int count, char** args)
{
    const char* source = "-";
    const char* destination = nullptr;
    if (count == 2) {
        if (std::strcmp(args[1], "help") == 0) {
            usage(msgUsageInf, -1);
        }
        source = args[1];
    } else if (count == 3) {
        source = args[1];
        destination = args[2];
    } else if (count > 3) {
        usage(msgUsageInf, msgTooManyArguments);
    }
    trcHeader_t* header = nullptr;
    long areaSize = 0;
    if (readFile(&header, source, 0, &areaSize) != 0) {
        return 1;
    }
    if (trcRecToStrInit(header) != 0) {
        trcFail(trcMsgGet(msgNoDictionary));
    }
    FILE* out = stdout;
    if (destination != nullptr) {
        out = std::fopen(destination, "w");
        if (out == nullptr) {
            trcFail(trcMsgGet(msgCannotCreate), destination);
        }
    }
    displayInfo(header, out);
    return 0;
}
