// Build level of a product, as a .tfi file gives it and prodVersion holds it.
#include <kelvo/facility.h>

#include <cstring>

#include "trcexport.h"

namespace {
constexpr char noLevel[] = ".......";
constexpr std::size_t levelBytes = 8;

bool isBlank(char c) { return c == ' ' || c == '\t'; }
}  // namespace

extern "C" KELVO_EXPORT const char* trcGetBldLvl(const char* text)
{
    thread_local char level[levelBytes + 1];
    if (text == nullptr)
        return noLevel;
    while (isBlank(*text))
        ++text;
    if (std::strncmp(text, "@(#)", 4) == 0)
        text += 4;
    while (isBlank(*text))
        ++text;
    std::size_t n = 0;
    while (n < levelBytes && text[n] != '\0' && !isBlank(text[n]) && text[n] != '\n' && text[n] != '\r')
        ++n;
    if (n == 0)
        return noLevel;
    std::memcpy(level, text, n);
    level[n] = '\0';
    return level;
}
