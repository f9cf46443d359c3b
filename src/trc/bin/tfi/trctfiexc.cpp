// trcTfiExc: carries code, message and place of a failure to the catcher.
#include "trctfiexc.h"

trcTfiExc::trcTfiExc(trcTfiExcCode code, const char* message) : code(code), message(message), file(nullptr), line(0) {}

trcTfiExc::trcTfiExc(trcTfiExcCode code, const char* message, const char* file, int line)
    : code(code), message(message), file(nullptr), line(line), fileText(file != nullptr ? file : "")
{
    if (file != nullptr)
        this->file = fileText;
    else
        this->line = 0;
}

trcTfiExc::trcTfiExc(const trcTfiExc& other)
    : code(other.code), message(other.message), file(nullptr), line(other.line), fileText(other.fileText)
{
    if (other.file != nullptr)
        file = fileText;
}

void trcTfiOutOfMemory() { throw trcTfiExc(trcTfiExcMemory, "not enough memory"); }
