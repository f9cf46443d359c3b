// The lexer of the .tfi language: names, decimal values 1 to 255, quoted
// strings and six keywords, separated by white space. A trcTfiTokenFactory
// holds the whole file in one buffer; each trcTfiToken built on it consumes
// the next token.
#ifndef KELVO_TRCTFITOKEN_H
#define KELVO_TRCTFITOKEN_H

#include "trctfistring.h"

#include <cstdint>

enum trcTfiTokenType {
    trcTfiTokenName = 0,
    trcTfiTokenValue = 1,
    trcTfiTokenQuoted = 2,
    trcTfiTokenTfiversion = 3,
    trcTfiTokenBldlvl = 4,
    trcTfiTokenProduct = 5,
    trcTfiTokenComponent = 6,
    trcTfiTokenClass = 7,
    trcTfiTokenFunction = 8,
};

class trcTfiTokenFactory {
public:
    char* buffer;          // the file's bytes, a line feed and a NUL
    const char* cursor;    // next unread byte; only moves forward
    const char* fileName;  // the caller's text, kept alive by the caller
    int lineNumber;        // from 1

    explicit trcTfiTokenFactory(const char* fileName);
    ~trcTfiTokenFactory();
    trcTfiTokenFactory(const trcTfiTokenFactory&) = delete;
    trcTfiTokenFactory& operator=(const trcTfiTokenFactory&) = delete;

    // Skips white space; afterwards the cursor is on the NUL only at the end.
    void advance();
    int line() const { return lineNumber; }
    const char* file() const { return fileName; }
};

class trcTfiToken {
public:
    trcTfiTokenType type;
    trcTfiString text;
    uint8_t value;  // set for trcTfiTokenValue only

    explicit trcTfiToken(trcTfiTokenFactory& factory);
    // Fails with message when the token read is not of the expected type.
    trcTfiToken(trcTfiTokenFactory& factory, trcTfiTokenType expected, const char* message);

    void init(trcTfiTokenFactory& factory);
};

#endif
