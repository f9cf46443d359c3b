// Build levels that traced programs report for their products. They are
// kept in the process, so that a trace turned on later gets them too.
#include <kelvo/trace.h>

#include "trcexport.h"
#include "trcprocess.h"

#include <cerrno>
#include <cstring>
#include <mutex>

namespace kelvo {
namespace {

struct Level {
    bool set;
    char text[TRC_TEXT8];
};

std::mutex levelsLock;
Level levels[TRC_PRODUCTS];

void copyLevel(char* to, const char* from)
{
    std::size_t n = strnlen(from, TRC_TEXT8);
    char text[TRC_TEXT8] = {};
    std::memcpy(text, from, n);
    std::memcpy(to, text, TRC_TEXT8);
}

void enter(Live& live, unsigned product, const char* text)
{
    copyLevel(live.header->prodVersion[product], text);
    if (live.fileHeader != nullptr)
        copyLevel(live.fileHeader->prodVersion[product], text);
}

}  // namespace

void onNewLive(Live& live)
{
    std::lock_guard<std::mutex> hold(levelsLock);
    bool any = false;
    for (const Level& level : levels)
        any = any || level.set;
    if (!any)
        return;
    for (unsigned product = 0; product < TRC_PRODUCTS; ++product)
        if (levels[product].set)
            enter(live, product, levels[product].text);
}

}  // namespace kelvo

extern "C" KELVO_EXPORT int trcSetProdVersion(unsigned product, const char* level)
{
    if (product >= TRC_PRODUCTS || level == nullptr) {
        errno = EINVAL;
        return -1;
    }
    char text[TRC_TEXT8];
    kelvo::copyLevel(text, level);
    {
        std::lock_guard<std::mutex> hold(kelvo::levelsLock);
        kelvo::levels[product].set = true;
        std::memcpy(kelvo::levels[product].text, text, sizeof text);
    }
    // Looking for the block may enter all levels itself; the lock is free.
    kelvo::Live* live = kelvo::currentLive();
    if (live == nullptr)
        return 1;
    // The header is written without a lock: a reader that copies it at the
    // same moment may see half a level, never anything outside the field.
    kelvo::enter(*live, product, text);
    return 0;
}
