// C++ helpers over the writer API of <kelvo/trace.h>.
#ifndef KELVO_TRACE_HPP
#define KELVO_TRACE_HPP

#include <kelvo/trace.h>

#include <cstring>

namespace kelvo {

// The place of a traced function: product, component, class and function.
struct TracePlace {
    unsigned product;
    unsigned component;
    unsigned klass;
    unsigned function;
};

// Writes an entry record when it is made and the exit record with the
// function's return code when it ends. The event family is given by its
// entry event (22, 32, 42, 52 or 62); the exit is the event after it.
class TraceScope {
public:
    TraceScope(const TracePlace& place, unsigned entryEvent, const void* thisPointer = nullptr,
               const char* text = nullptr)
        : place_(place), exitEvent_(entryEvent + 1), this_(thisPointer)
    {
        unsigned length = text ? static_cast<unsigned>(std::strlen(text)) : 0;
        trcWrite(place_.product, entryEvent, place_.component, place_.klass, place_.function, 0, this_, text, length);
    }
    TraceScope(const TraceScope&) = delete;
    TraceScope& operator=(const TraceScope&) = delete;
    ~TraceScope()
    {
        trcWriteRc(place_.product, exitEvent_, place_.component, place_.klass, place_.function, 0, this_, rc_);
    }

    // The return code that the exit record carries; 0 unless set.
    void setRc(int rc) { rc_ = rc; }
    // Sets the return code and hands it back: return scope.ret(rc);
    int ret(int rc)
    {
        rc_ = rc;
        return rc;
    }

private:
    TracePlace place_;
    unsigned exitEvent_;
    const void* this_;
    int rc_ = 0;
};

}  // namespace kelvo

#endif
