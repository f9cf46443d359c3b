// An arbitrary record through both renderers, into a buffer of arbitrary
// size: nothing may be read or written outside record or buffer.
#include "trcrtos.h"
#include "trcrtosdict.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace {

void prepare()
{
    trcNameReset();
    // A few names of every level, so that the renderers walk real tables.
    const char* text = "tfiversion 1 bldlvl \"x\" product Prod 1 component Comp 2 class Cls a b c\n"
                       "class Two f\ncomponent LongComponentName 200 class K g\n";
    char path[] = "/tmp/fuzz_rtos_XXXXXX";
    int fd = ::mkstemp(path);
    if (fd < 0)
        std::abort();
    if (::write(fd, text, std::strlen(text)) < 0)
        std::abort();
    ::close(fd);
    trcHeader_t header{};
    std::memcpy(sUnexpandedSign, "%W%", sizeof sUnexpandedSign);
    trcTfiBuildit(path, &header);
    ::unlink(path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, unsigned long size)
{
    static bool ready = false;
    if (!ready) {
        prepare();
        ready = true;
    }
    if (size < 3)
        return 0;
    // First bytes: the destination size; the rest: the record.
    int destSize = (data[0] | (data[1] << 8)) % 5000;
    data += 2;
    size -= 2;
    std::size_t recordSize = size < TRC_RECORD_MIN ? TRC_RECORD_MIN : size;
    std::vector<unsigned char> bytes(recordSize + 3, 0);
    std::memcpy(bytes.data(), data, size);
    // The record must be readable for its whole length: the walk of a trace
    // guarantees as much.
    trcRecord_t* record = reinterpret_cast<trcRecord_t*>(bytes.data());
    if (record->length > static_cast<int32_t>(recordSize))
        record->length = static_cast<int32_t>(recordSize);
    char* dest = static_cast<char*>(std::malloc(destSize == 0 ? 1 : destSize));
    int written = trcRecToStr(record, dest, destSize, size, data[0] & 1);
    if (written < 0 || written > destSize || (written > 0 && dest[written - 1] != '\n'))
        __builtin_trap();
    trcRecToFnc(record, dest, destSize);
    if (destSize > 0 && std::strlen(dest) >= static_cast<std::size_t>(destSize))
        __builtin_trap();
    std::free(dest);
    return 0;
}
