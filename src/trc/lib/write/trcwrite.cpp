// The writer API of traced programs.
#include <kelvo/trace.h>

#include "trcexport.h"
#include "trcprocess.h"
#include "trcstore.h"

#include <cstdarg>
#include <cstdio>
#include <memory>

namespace {

using kelvo::RecordIds;
using kelvo::RecordSource;

constexpr std::size_t shortText = 512;
constexpr std::size_t longestText = 32768;

RecordIds idsOf(unsigned product, unsigned event, unsigned component, unsigned klass, unsigned function,
                unsigned tracePoint)
{
    return RecordIds{{static_cast<uint8_t>(product), static_cast<uint8_t>(event), static_cast<uint8_t>(component),
                      static_cast<uint8_t>(klass), static_cast<uint8_t>(function), static_cast<uint8_t>(tracePoint)}};
}

// Objects are identified by the low 32 bits of their address.
uint32_t objectOf(const void* thisPointer) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(thisPointer)); }

// The record is built once, where it stays: copying its identifier bytes
// into a second one would load them wider than they were stored, which
// stalls the write until they reach the cache.
int write(const RecordIds& ids, const void* thisPointer, const void* data, uint32_t length)
{
    RecordSource record{ids, objectOf(thisPointer), static_cast<const uint8_t*>(data), data == nullptr ? 0 : length};
    kelvo::Live* live = kelvo::traceFor(record.ids, record.thisPointer);
    if (live == nullptr) [[likely]]
        return 1;
    return kelvo::storeRecord(*live, record);
}

}  // namespace

extern "C" {

KELVO_EXPORT int trcWriteEntry(unsigned product, unsigned event, unsigned component, unsigned klass, unsigned function,
                               unsigned tracePoint, const void* thisPointer, const void* data, unsigned length)
{
    if (!kelvo::writerMayLook()) [[likely]]
        return 1;
    return write(idsOf(product, event, component, klass, function, tracePoint), thisPointer, data, length);
}

KELVO_EXPORT int trcWriteRcEntry(unsigned product, unsigned event, unsigned component, unsigned klass,
                                 unsigned function, unsigned tracePoint, const void* thisPointer, int rc)
{
    if (!kelvo::writerMayLook()) [[likely]]
        return 1;
    return write(idsOf(product, event, component, klass, function, tracePoint), thisPointer, &rc, sizeof rc);
}

KELVO_EXPORT int trcWritef(unsigned product, unsigned event, unsigned component, unsigned klass, unsigned function,
                           unsigned tracePoint, const void* thisPointer, const char* format, ...)
{
    if (!kelvo::writerMayLook())
        return 1;
    RecordIds ids = idsOf(product, event, component, klass, function, tracePoint);
    uint32_t object = objectOf(thisPointer);
    kelvo::Live* live = kelvo::traceFor(ids, object);
    if (live == nullptr)
        return 1;
    char text[shortText];
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (n < 0)
        return -1;
    std::size_t length = static_cast<std::size_t>(n);
    const char* stored = text;
    std::unique_ptr<char[]> longer;
    if (length >= sizeof text) {
        length = std::min(length, longestText);
        longer = std::make_unique<char[]>(length + 1);
        va_start(args, format);
        std::vsnprintf(longer.get(), length + 1, format, args);
        va_end(args);
        stored = longer.get();
    }
    return kelvo::storeRecord(
        *live, RecordSource{ids, object, reinterpret_cast<const uint8_t*>(stored), static_cast<uint32_t>(length)});
}

// The same writes under their plain names, for programs that bind to the
// facility by name (dlsym, other languages) rather than through trace.h.
KELVO_EXPORT int trcWrite(unsigned product, unsigned event, unsigned component, unsigned klass, unsigned function,
                          unsigned tracePoint, const void* thisPointer, const void* data, unsigned length)
{
    return trcWriteEntry(product, event, component, klass, function, tracePoint, thisPointer, data, length);
}

KELVO_EXPORT int trcWriteRc(unsigned product, unsigned event, unsigned component, unsigned klass, unsigned function,
                            unsigned tracePoint, const void* thisPointer, int rc)
{
    return trcWriteRcEntry(product, event, component, klass, function, tracePoint, thisPointer, rc);
}

KELVO_EXPORT void trcSetCompanion(unsigned cpid) { kelvo::setCompanionOfThread(cpid); }

KELVO_EXPORT void trcSetNode(int node) { kelvo::setNodeOfProcess(node); }

KELVO_EXPORT int trcIsOn(void)
{
    kelvo::Live* live = kelvo::currentLive();
    return live != nullptr && kelvo::loadRelaxed(live->header->traceOff) == 0;
}

}  // extern "C"
