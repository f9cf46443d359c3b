// The tables of the name dictionary and the memory behind them. Everything
// the dictionary allocates is chained, so that the set-up can start over and
// leak checkers see it reachable.
#include "trcrtos.h"
#include "trcrtosdict.h"

#include "trctfiexc.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

const char* trcNameProd[256];
const char** trcNameComp[256];
const char*** trcNameClass[256];
const char**** trcNameFnc[256];
const char* trcNameEvent[256];

const char noName0[] = "? ";
const char* noName1[256];
const char** noName2[256];
const char*** noName3[256];

char sUnexpandedSign[4];

namespace {

struct alignas(std::max_align_t) block {
    block* next;
};

block* blocks = nullptr;

void* allocate(std::size_t size)
{
    void* memory = std::malloc(sizeof(block) + size);
    if (memory == nullptr)
        throw trcTfiExc(trcTfiExcMemory, "not enough memory");
    block* b = static_cast<block*>(memory);
    b->next = blocks;
    blocks = b;
    return b + 1;
}

void releaseAll()
{
    while (blocks != nullptr) {
        block* next = blocks->next;
        std::free(blocks);
        blocks = next;
    }
}

}  // namespace

void trcNameReset()
{
    releaseAll();
    for (int i = 0; i < 256; ++i) {
        noName1[i] = noName0;
        noName2[i] = noName1;
        noName3[i] = noName2;
        trcNameEvent[i] = noName0;
        trcNameProd[i] = noName0;
        trcNameComp[i] = noName1;
        trcNameClass[i] = noName2;
        trcNameFnc[i] = noName3;
    }
}

char* strNew(const char* text)
{
    std::size_t size = std::strlen(text) + 1;
    char* copy = static_cast<char*>(allocate(size));
    std::memcpy(copy, text, size);
    return copy;
}

void* trcNameAllocate(unsigned long size) { return allocate(size); }
