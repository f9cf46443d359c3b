// The parser of the .tfi language. A trcTfiEntryFactory holds one file and
// its parse state; each trcTfiEntry built on it consumes the next entry and
// takes a snapshot of the product, component, class and function numbers.
#ifndef KELVO_TRCTFIENTRY_H
#define KELVO_TRCTFIENTRY_H

#include "trctfistring.h"
#include "trctfitoken.h"

#include <cstdint>

// The level of an entry; also the index of its own number in ids.
enum trcTfiEntryKind : int {
    trcTfiEntryProduct = 0,
    trcTfiEntryComponent = 1,
    trcTfiEntryClass = 2,
    trcTfiEntryFunction = 3,
    // A "bldlvl" entry declares no level; the dictionary passes over it.
    trcTfiEntryNone = 4,
};

class trcTfiEntryFactory {
public:
    trcTfiTokenFactory tokens;
    uint8_t ids[4];  // current product, component, class, function; 0: none open
    bool tfiversionSeen;
    bool bldlvlSeen;

    explicit trcTfiEntryFactory(const char* fileName);

    // True when nothing but white space is left; consumes only white space.
    bool isEmpty();
    int line() const { return tokens.line(); }
    const char* file() const { return tokens.file(); }
};

class trcTfiEntry {
public:
    trcTfiString name;  // the node's name, or the build level of a "bldlvl" entry
    uint8_t ids[4];     // product, component, class, function
    trcTfiEntryKind kind;

    explicit trcTfiEntry(trcTfiEntryFactory& factory);
};

#endif
