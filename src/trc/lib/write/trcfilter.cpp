// Record selection. The header may be changed by trcChg while writers read
// it; every field is read once with a relaxed atomic load, so a writer sees
// either the old or the new value of each.
#include "trcfilter.h"

#include "trclive.h"
#include "trcprocess.h"

namespace kelvo {
namespace {

bool bitSet(const uint8_t* mask, int map, uint8_t value)
{
    return trcMaskBitOf(loadRelaxed(mask[trcMaskByteOf(map, value)]), value);
}

bool filterPasses(int32_t filter, uint32_t value) { return filter == -1 || static_cast<uint32_t>(filter) == value; }

}  // namespace

bool maskSelects(const uint8_t* mask, const RecordIds& ids)
{
    for (int map = 0; map < 6; ++map)
        if (!bitSet(mask, map, ids.id[map]))
            return false;
    return true;
}

bool crashMaskSelects(const uint8_t* mask, const RecordIds& ids)
{
    for (int map = 0; map < 5; ++map)
        if (!bitSet(mask, map, ids.id[map + 1]))
            return false;
    return true;
}

bool traceTakes(const trcHeader_t& header, const RecordIds& ids, uint32_t thisPointer)
{
    if (!maskSelects(header.mask, ids))
        return false;
    int32_t pid = loadRelaxed(header.tracePid);
    int32_t tid = loadRelaxed(header.traceTid);
    int32_t cpid = loadRelaxed(header.traceCpid);
    uint32_t object = loadRelaxed(header.thisPointer);
    if ((pid & tid & cpid) == -1 && object == 0) [[likely]]
        return true;
    if (!filterPasses(pid, processId()) || !filterPasses(tid, threadId()) || !filterPasses(cpid, companionOfThread()))
        return false;
    return object == 0 || object == thisPointer;
}

bool takesEverything(const trcHeader_t& header)
{
    for (int i = 0; i < TRC_MASK_SIZE; ++i)
        if (loadRelaxed(header.mask[i]) != 0xFF)
            return false;
    return loadRelaxed(header.tracePid) == -1 && loadRelaxed(header.traceTid) == -1 &&
           loadRelaxed(header.traceCpid) == -1 && loadRelaxed(header.thisPointer) == 0;
}

}  // namespace kelvo
