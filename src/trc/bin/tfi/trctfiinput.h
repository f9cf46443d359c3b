// A .tfi file opened for reading whole: the thin layer over open, fstat and
// read that turns each failure into a trcTfiExc naming the file.
#ifndef KELVO_TRCTFIINPUT_H
#define KELVO_TRCTFIINPUT_H

#include "trctfistring.h"

class trcTfiInputFile {
public:
    int descriptor;
    trcTfiString name;  // for messages

    explicit trcTfiInputFile(const char* fileName);
    ~trcTfiInputFile();
    trcTfiInputFile(const trcTfiInputFile&) = delete;
    trcTfiInputFile& operator=(const trcTfiInputFile&) = delete;

    // Size of the file in bytes.
    unsigned size() const;
    // Exactly one read of length bytes; a short read is a failure.
    void read(char* buffer, unsigned length) const;
};

#endif
