// A .tfi file of arbitrary bytes read into the name dictionary.
#include "trcrtos.h"
#include "trcrtosdict.h"
#include "trctfiexc.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

trcHeader_t header;
std::string path;

void prepare()
{
    std::memset(&header, 0, sizeof header);
    for (int p = 0; p < TRC_PRODUCTS; ++p)
        std::memcpy(header.prodVersion[p], TRC_NO_VERSION, 8);
    std::memcpy(header.prodVersion[1], "v1.0", 5);
    std::memcpy(header.prodVersion[2], "%W%", 4);
    std::memcpy(header.prodVersion[3], "ABCDEFGH", 8);
    path = "/tmp/fuzz_tfi_" + std::to_string(::getpid()) + ".tfi";
    // The build level warnings would drown the fuzzer's own output; the
    // sanitizers write to the descriptor, not through this stream.
    stderr = std::fopen("/dev/null", "w");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, unsigned long size)
{
    if (path.empty())
        prepare();
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    std::memcpy(sUnexpandedSign, "%W%", sizeof sUnexpandedSign);
    trcNameReset();
    try {
        trcTfiBuildit(path.c_str(), &header);
    } catch (const trcTfiExc& e) {
        if (e.code < trcTfiExcDir || e.code > trcTfiExcInternal || std::strlen(e.message) == 0)
            __builtin_trap();
    }
    // Every lookup reaches a text, whatever the file held.
    for (unsigned p = 0; p < 256; ++p)
        for (unsigned c = 0; c < 256; c += 51)
            if (trcNameFnc[p][c][c & 3][1] == nullptr || trcNameClass[p][c][1] == nullptr)
                __builtin_trap();
    return 0;
}
