// The one exception type of the TFI reader and the name dictionary. Only
// trcRecToStrInit catches it, prints it and turns it into a result code.
#ifndef KELVO_TRCTFIEXC_H
#define KELVO_TRCTFIEXC_H

#include "trctfifail.h"
#include "trctfistring.h"

// 0 (success) and 1 (a foreign exception) are the catcher's own results.
enum trcTfiExcCode {
    trcTfiExcDir = 2,       // the directory named by TRCTFIDIR cannot be opened
    trcTfiExcSyntax = 3,    // a .tfi file breaks the language, or has the wrong version
    trcTfiExcMemory = 4,    // an allocation failed
    trcTfiExcFile = 5,      // a .tfi file or the search directory cannot be opened or read
    trcTfiExcInternal = 6,  // an entry was asked for behind the end of a file
};

class trcTfiExc {
public:
    trcTfiExcCode code;
    trcTfiString message;
    const char* file;  // the .tfi file of the failure, or null
    int line;          // the line in file; 0 when file is null
    // The exception's own copy of the file name: the text it was given belongs
    // to the file walk, which is gone by the time the catcher prints it.
    trcTfiString fileText;

    trcTfiExc(trcTfiExcCode code, const char* message);
    trcTfiExc(trcTfiExcCode code, const char* message, const char* file, int line);
    trcTfiExc(const trcTfiExc& other);
    trcTfiExc& operator=(const trcTfiExc&) = delete;
    ~trcTfiExc() = default;
};

#endif
