// Services for reading a message file: finding it along a search list, and
// finding a key in its text.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "trcmsg.h"

namespace {

// Room for a joined "<dir>/<fileName>"; a longer path is not tried.
constexpr std::size_t pathBufferSize = 4096;

// Tries one directory of the search list; null if the joined path does not
// fit (errno ENAMETOOLONG) or fopen fails.
FILE* openInDirectory(const char* dir, const char* fileName, const char* mode)
{
    char path[pathBufferSize];
    const int needed = std::snprintf(path, sizeof path, "%s/%s", dir, fileName);
    if (needed < 0 || static_cast<std::size_t>(needed) >= sizeof path) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    return std::fopen(path, mode);
}

}  // namespace

FILE* trcMsgOpenFile(const char* envName, const char* fileName, const char* mode)
{
    const char* list = std::getenv(envName);
    if (list == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    const std::size_t listLength = std::strlen(list);
    char* dirs = static_cast<char*>(std::malloc(listLength + 1));
    if (dirs == nullptr) {
        return nullptr;
    }
    std::memcpy(dirs, list, listLength + 1);
    for (std::size_t i = 0; i < listLength; ++i) {
        if (dirs[i] == ':') {
            dirs[i] = '\0';
        }
    }

    // Each piece ends at a zero byte; an empty piece between two colons is
    // tried as "/<fileName>", and a colon at the very end starts no piece.
    FILE* stream = nullptr;
    for (std::size_t start = 0; start < listLength && stream == nullptr; start += std::strlen(dirs + start) + 1) {
        stream = openInDirectory(dirs + start, fileName, mode);
    }
    std::free(dirs);
    return stream;
}

namespace {

// The byte that closes a region opened by c, or 0 if c opens none.
char regionCloser(char c)
{
    switch (c) {
    case '"':
        return '"';
    case '(':
        return ')';
    case '*':
        return '\n';
    default:
        return '\0';
    }
}

}  // namespace

const char* trcMsgFind(const char* text, const char* key, int length)
{
    if (text == nullptr || key == nullptr) {
        return nullptr;
    }
    const std::size_t keyLength = std::strlen(key);
    if (length < 0 || keyLength > static_cast<std::size_t>(length)) {
        return nullptr;
    }
    // Last offset at which the key still fits in the text.
    const std::size_t limit = static_cast<std::size_t>(length) - keyLength;

    // At the start even a quote, bracket or star is ordinary text.
    if (std::memcmp(text, key, keyLength) == 0) {
        return text;
    }
    std::size_t pos = 0;
    while (pos < limit) {
        const char closer = regionCloser(text[pos]);
        ++pos;
        if (closer != '\0') {
            // Skip the region and its closing byte; regions do not nest.
            while (pos < limit && text[pos] != closer) {
                ++pos;
            }
            if (pos >= limit) {
                return nullptr;
            }
            ++pos;
        }
        if (std::memcmp(text + pos, key, keyLength) == 0) {
            return text + pos;
        }
    }
    return nullptr;
}
