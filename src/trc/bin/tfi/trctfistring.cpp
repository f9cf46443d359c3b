// trcTfiString: allocation happens only for texts of 80 bytes or more.
#include "trctfistring.h"

#include "trctfifail.h"

#include <cstring>
#include <new>

namespace {

char* newBlock(std::size_t size)
{
    char* block = new (std::nothrow) char[size];
    if (block == nullptr)
        trcTfiOutOfMemory();
    return block;
}

}  // namespace

trcTfiString::trcTfiString() : data(local) { local[0] = '\0'; }

trcTfiString::trcTfiString(const char* text) : data(local)
{
    local[0] = '\0';
    init(text, static_cast<unsigned>(std::strlen(text)));
}

trcTfiString::trcTfiString(const trcTfiString& other) : data(local)
{
    local[0] = '\0';
    init(other.data, static_cast<unsigned>(std::strlen(other.data)));
}

trcTfiString::~trcTfiString()
{
    if (!isLocal())
        delete[] data;
}

void trcTfiString::init(const char* text, unsigned length)
{
    // Leave a valid empty text behind should the allocation fail.
    data = local;
    local[0] = '\0';
    std::size_t size = static_cast<std::size_t>(length) + 1;
    char* target = size <= localSize ? local : newBlock(size);
    std::memmove(target, text, length);
    target[length] = '\0';
    data = target;
}

trcTfiString& trcTfiString::operator=(const char* text)
{
    if (text == data)
        return *this;
    // The new text is placed before the old block goes, so that a text that
    // lies inside this string's own block is still read intact.
    char* old = isLocal() ? nullptr : data;
    std::size_t length = std::strlen(text);
    if (length + 1 <= localSize) {
        std::memmove(local, text, length);
        local[length] = '\0';
        data = local;
    } else {
        char* block = newBlock(length + 1);
        std::memcpy(block, text, length + 1);
        data = block;
    }
    delete[] old;
    return *this;
}

trcTfiString& trcTfiString::operator=(const trcTfiString& other) { return *this = other.data; }

trcTfiString& trcTfiString::operator+=(const char* text)
{
    std::size_t oldLength = std::strlen(data);
    std::size_t addLength = std::strlen(text);
    std::size_t size = oldLength + addLength + 1;
    if (size <= localSize) {
        std::memmove(data + oldLength, text, addLength);
        data[oldLength + addLength] = '\0';
        return *this;
    }
    char* block = newBlock(size);
    std::memcpy(block, data, oldLength);
    std::memcpy(block + oldLength, text, addLength);
    block[size - 1] = '\0';
    if (!isLocal())
        delete[] data;
    data = block;
    return *this;
}

trcTfiString& trcTfiString::assign(const char* text, unsigned length) { return assign(text, length, "", 0); }

trcTfiString& trcTfiString::assign(const char* first, const char* second)
{
    return assign(first, static_cast<unsigned>(std::strlen(first)), second, static_cast<unsigned>(std::strlen(second)));
}

trcTfiString& trcTfiString::assign(const char* first, unsigned firstLength, const char* second, unsigned secondLength)
{
    std::size_t length = static_cast<std::size_t>(firstLength) + secondLength;
    char* target = data;
    // The current buffer holds at least its text and the NUL, and never less
    // than 80 bytes: a new block is needed only beyond both.
    if (length >= localSize && length > std::strlen(data))
        target = newBlock(length + 1);
    std::memmove(target, first, firstLength);
    std::memmove(target + firstLength, second, secondLength);
    target[length] = '\0';
    if (target != data) {
        if (!isLocal())
            delete[] data;
        data = target;
    }
    return *this;
}
