// The walk over any record area and any values of the header fields that it
// reads. The input is those fields (bufferSize, flags, traceFull; 4 bytes
// each, a short input padded with zero bytes) followed by the area; the rest
// of the header is zero, since the walk reads nothing else of it. Every step
// runs, and every record handed out is read whole, so that a record reaching
// outside the area shows up under AddressSanitizer.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "trcwalk.h"

namespace {

// Message 421 goes to standard output; keep the fuzzer's output readable.
void silenceStdout()
{
    static bool done = false;
    if (!done) {
        const int null = open("/dev/null", O_WRONLY);
        if (null >= 0) {
            dup2(null, STDOUT_FILENO);
            close(null);
        }
        done = true;
    }
}

uint32_t touch(const trcRecord_t* record, const uint8_t* area, const trcWalk_t& walk)
{
    // The fixed part and the trailing word lie inside the area, and so does
    // the whole aligned record when its length says it is longer.
    const auto offset = reinterpret_cast<const uint8_t*>(record) - area;
    int32_t size = trcAligned(record->length);
    if (size < TRC_RECORD_MIN) {
        size = TRC_RECORD_MIN;
    }
    if (offset < 0 || offset % 4 != 0 || offset + size > walk.limit) {
        __builtin_trap();
    }
    uint32_t sum = 0;
    for (int32_t i = 0; i < size; ++i) {
        sum += reinterpret_cast<const uint8_t*>(record)[i];
    }
    return sum + record->pid + record->ident2;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    silenceStdout();
    uint8_t fields[3 * sizeof(int32_t)] = {};
    const size_t fieldBytes = size < sizeof fields ? size : sizeof fields;
    std::memcpy(fields, data, fieldBytes);
    trcHeader_t header{};
    std::memcpy(&header.bufferSize, fields, sizeof header.bufferSize);
    std::memcpy(&header.flags, fields + 4, sizeof header.flags);
    std::memcpy(&header.traceFull, fields + 8, sizeof header.traceFull);

    // An exact-size heap copy of the area, so that any read past it is caught.
    const size_t areaSize = size - fieldBytes;
    std::vector<uint8_t> block(data + fieldBytes, data + size);
    block.shrink_to_fit();
    uint8_t* area = block.data();

    trcWalk_t walk;
    trcWalkBounds(&header, area, areaSize, &walk);
    if (walk.endOffset < 0 || static_cast<size_t>(walk.endOffset) > areaSize || walk.startOffset < 0 ||
        walk.usedBytes < 0 || walk.limit < 0 || static_cast<size_t>(walk.limit) > areaSize) {
        __builtin_trap();
    }
    trcWalkCount(&walk, area);

    std::vector<const trcRecord_t*> index(static_cast<size_t>(walk.recordCount));
    const int32_t filled = trcWalkFill(&walk, area, index.data(), walk.recordCount);
    if (filled != walk.recordCount) {
        __builtin_trap();
    }
    volatile uint32_t sink = 0;
    for (const trcRecord_t* record : index) {
        sink = sink + touch(record, area, walk);
    }
    return 0;
}
