// The string type of the TFI reader: a text with an 80-byte local buffer,
// so that the short names that make up nearly all of a .tfi file need no
// allocation. The length is never stored; it is found by scanning for the NUL.
#ifndef KELVO_TRCTFISTRING_H
#define KELVO_TRCTFISTRING_H

class trcTfiString {
public:
    static constexpr unsigned localSize = 80;

    char* data;             // the text, NUL-terminated: local or an owned heap block
    char local[localSize];  // 79 bytes of text and the NUL

    trcTfiString();
    trcTfiString(const char* text);
    trcTfiString(const trcTfiString& other);
    ~trcTfiString();

    // Sets data without regard to what it held; throws on lack of memory.
    void init(const char* text, unsigned length);

    trcTfiString& operator=(const char* text);
    trcTfiString& operator=(const trcTfiString& other);
    trcTfiString& operator+=(const char* text);

    // Replaces the text by length bytes of text (need not be terminated).
    // The texts given must not lie inside this string's own buffer.
    trcTfiString& assign(const char* text, unsigned length);
    trcTfiString& assign(const char* first, const char* second);

    operator const char*() const { return data; }

    bool isLocal() const { return data == local; }

private:
    trcTfiString& assign(const char* first, unsigned firstLength, const char* second, unsigned secondLength);
};

#endif
