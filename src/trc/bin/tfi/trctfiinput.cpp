// trcTfiInputFile: every failure names the file and carries no line.
#include "trctfiinput.h"

#include "trctfiexc.h"

#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const char* text, const char* fileName)
{
    trcTfiString message(text);
    message += fileName;
    throw trcTfiExc(trcTfiExcFile, message);
}

}  // namespace

trcTfiInputFile::trcTfiInputFile(const char* fileName) : descriptor(::open(fileName, O_RDONLY))
{
    if (descriptor == -1)
        fail("Error opening file ", fileName);
    try {
        name = fileName;
    } catch (...) {
        ::close(descriptor);
        throw;
    }
}

trcTfiInputFile::~trcTfiInputFile() { ::close(descriptor); }

unsigned trcTfiInputFile::size() const
{
    struct stat status;
    if (::fstat(descriptor, &status) == -1)
        fail("Could not get size of file ", name);
    // Larger files than a 32-bit size can tell cannot be read in one go.
    if (status.st_size < 0 || static_cast<unsigned long long>(status.st_size) > UINT_MAX - 2u)
        throw trcTfiExc(trcTfiExcMemory, "not enough memory");
    return static_cast<unsigned>(status.st_size);
}

void trcTfiInputFile::read(char* buffer, unsigned length) const
{
    ssize_t count = ::read(descriptor, buffer, length);
    if (count == -1)
        fail("Could not read from file ", name);
    if (static_cast<std::size_t>(count) != length)
        fail("Could not read all bytes in file ", name);
}
