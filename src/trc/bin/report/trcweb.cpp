// `kelvo web_buffer_info`: a one-line, pipe-separated summary of the live
// trace buffer for a web page. Each field is printed as soon as the walk
// knows it, so that a message of the walk lands where it was found.
#include <cstdint>
#include <cstdio>

#include "kelvo/facility.h"
#include "trc.h"
#include "trcload.h"
#include "trcwalk.h"

namespace {

constexpr int webCommand = 11;

const char* yesNo(bool yes) { return yes ? "Y|" : "N|"; }

}  // namespace

int WebBufferInfo()
{
    if (trcSemAttach() == -1) {
        std::printf("N|");
        return 1;
    }
    std::printf("Y|");
    trcHeader_t* header = nullptr;
    long areaSize = 0;
    if (readFile(&header, "-", 1, &areaSize) != 0) {
        return 1;
    }
    auto* area = reinterpret_cast<uint8_t*>(header) + TRC_HEADER_SIZE;
    trcSemP();
    std::printf("%s", (header->flags & TRC_KEEP_INITIAL) ? "T|" : "W|");
    trcWalk_t walk;
    trcWalkBounds(header, area, areaSize > 0 ? static_cast<size_t>(areaSize) : 0, &walk);
    std::printf("%s", yesNo(walk.hasLostRecords));
    std::printf("%ld|", static_cast<long>(walk.usedBytes));
    trcWalkCount(&walk, area);
    std::printf("%ld|", static_cast<long>(walk.recordCount));
    trcSemV();
    return 0;
}

int mainWeb(int /*count*/, char** /*args*/, trcCommandInfo_t* info)
{
    return info->command == webCommand ? WebBufferInfo() : 0;
}
