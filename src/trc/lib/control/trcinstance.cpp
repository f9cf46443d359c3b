// Naming of a facility instance. KELVO_INSTANCE names it, "default" when
// unset; every object of the instance derives its name from it.
#include "trclive.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

namespace kelvo {
namespace {

constexpr const char* shmDirectory = "/dev/shm/";

std::string instanceName()
{
    const char* name = std::getenv("KELVO_INSTANCE");
    if (name == nullptr || *name == '\0')
        return "default";
    std::string cleaned(name);
    // A slash would leave the shared memory directory.
    for (char& c : cleaned)
        if (c == '/')
            c = '_';
    return cleaned;
}

}  // namespace

std::string instancePath() { return shmDirectory + std::string("kelvo.") + instanceName(); }

std::string instanceScratchPath()
{
    static std::atomic<unsigned> serial{0};
    return instancePath() + ".new." + std::to_string(getpid()) + "." + std::to_string(serial.fetch_add(1));
}

}  // namespace kelvo
