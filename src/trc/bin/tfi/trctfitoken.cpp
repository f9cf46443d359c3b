// trcTfiTokenFactory and trcTfiToken: one table lookup per byte, one
// allocation per file, none per token shorter than 80 bytes.
#include "trctfitoken.h"

#include "trctfiexc.h"
#include "trctfiinput.h"

#include <cstring>
#include <new>

namespace {

// Byte classes of the POSIX locale, indexed by the unsigned byte value.
bool initialized = false;
bool isFirstName[256];
bool isMiddleName[256];
bool isFirstValue[256];
bool isMiddleValue[256];
bool isSpace[256];

void fillTables()
{
    for (int c = 0; c < 256; ++c) {
        bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
        bool digit = c >= '0' && c <= '9';
        isFirstName[c] = letter;
        isMiddleName[c] = letter || digit;
        isFirstValue[c] = digit && c != '0';
        isMiddleValue[c] = digit;
        isSpace[c] = c == ' ' || (c >= '\t' && c <= '\r');
    }
}

unsigned char at(const char* p) { return static_cast<unsigned char>(*p); }

struct keyword {
    const char* text;
    trcTfiTokenType type;
};

constexpr keyword keywords[] = {
    {"tfiversion", trcTfiTokenTfiversion}, {"bldlvl", trcTfiTokenBldlvl}, {"product", trcTfiTokenProduct},
    {"component", trcTfiTokenComponent},   {"class", trcTfiTokenClass},   {"function", trcTfiTokenFunction},
};

trcTfiTokenType nameType(const char* text)
{
    for (const keyword& k : keywords)
        if (std::strcmp(text, k.text) == 0)
            return k.type;
    return trcTfiTokenName;
}

[[noreturn]] void failAt(const trcTfiTokenFactory& factory, const char* message)
{
    throw trcTfiExc(trcTfiExcSyntax, message, factory.file(), factory.line());
}

// The byte that ends a token must be white space; it is left for the next skip.
void checkDelimiter(const trcTfiTokenFactory& factory)
{
    if (isSpace[at(factory.cursor)])
        return;
    failAt(factory, *factory.cursor == '\0' ? "unexpected end of input" : "invalid token");
}

}  // namespace

trcTfiTokenFactory::trcTfiTokenFactory(const char* fileName)
    : buffer(nullptr), cursor(nullptr), fileName(fileName), lineNumber(1)
{
    trcTfiInputFile input(fileName);
    unsigned size = input.size();
    buffer = new (std::nothrow) char[static_cast<std::size_t>(size) + 2];
    if (buffer == nullptr)
        throw trcTfiExc(trcTfiExcMemory, "not enough memory");
    try {
        input.read(buffer, size);
    } catch (...) {
        delete[] buffer;
        throw;
    }
    buffer[size] = '\n';
    buffer[size + 1] = '\0';
    cursor = buffer;
    if (!initialized) {
        initialized = true;
        fillTables();
    }
}

trcTfiTokenFactory::~trcTfiTokenFactory() { delete[] buffer; }

void trcTfiTokenFactory::advance()
{
    while (isSpace[at(cursor)]) {
        if (*cursor == '\n')
            ++lineNumber;
        ++cursor;
    }
}

trcTfiToken::trcTfiToken(trcTfiTokenFactory& factory) : type(trcTfiTokenName), value(0) { init(factory); }

trcTfiToken::trcTfiToken(trcTfiTokenFactory& factory, trcTfiTokenType expected, const char* message)
    : type(trcTfiTokenName), value(0)
{
    init(factory);
    if (type != expected)
        failAt(factory, message);
}

void trcTfiToken::init(trcTfiTokenFactory& factory)
{
    factory.advance();
    const char* start = factory.cursor;
    unsigned char c = at(start);
    if (isFirstName[c]) {
        do
            ++factory.cursor;
        while (isMiddleName[at(factory.cursor)]);
        checkDelimiter(factory);
        text.assign(start, static_cast<unsigned>(factory.cursor - start));
        type = nameType(text);
    } else if (isFirstValue[c]) {
        unsigned number = 0;
        do {
            // Saturates above 255 so that a digit run of any length stays out of range.
            if (number <= 255)
                number = number * 10 + (at(factory.cursor) - '0');
            ++factory.cursor;
        } while (isMiddleValue[at(factory.cursor)]);
        checkDelimiter(factory);
        text.assign(start, static_cast<unsigned>(factory.cursor - start));
        type = trcTfiTokenValue;
        if (number > 255)
            failAt(factory, "Value is out of range");
        value = static_cast<uint8_t>(number);
    } else if (c == '"') {
        const char* close = start + 1;
        while (*close != '"' && *close != '\0')
            ++close;
        factory.cursor = close;
        if (*close == '\0')
            failAt(factory, "unexpected end of input");
        ++factory.cursor;
        checkDelimiter(factory);
        text.assign(start + 1, static_cast<unsigned>(close - start - 1));
        type = trcTfiTokenQuoted;
    } else {
        failAt(factory, c == '\0' ? "unexpected end of input" : "invalid token");
    }
}
