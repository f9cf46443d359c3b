// trcTfiFilenameFactory: the first candidate directory that is set is the
// only one tried; files come in the order readdir gives them.
#include "trctfifilename.h"

#include "trctfiexc.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr char suffix[] = ".tfi";
constexpr std::size_t suffixLength = sizeof suffix - 1;

bool isTfiName(const char* name)
{
    std::size_t length = std::strlen(name);
    return length >= suffixLength && std::memcmp(name + length - suffixLength, suffix, suffixLength) == 0;
}

}  // namespace

trcTfiFilenameFactory::trcTfiFilenameFactory() : directory("."), handle(nullptr)
{
    const char* tfiDir = std::getenv("TRCTFIDIR");
    const char* home = std::getenv("KELVO_HOME");
    if (tfiDir != nullptr) {
        directory = tfiDir;
    } else if (home != nullptr) {
        directoryText.assign(home, "/etc");
        directory = directoryText;
    }
    handle = ::opendir(directory);
    if (handle == nullptr) {
        if (tfiDir != nullptr)
            throw trcTfiExc(trcTfiExcDir, "Could not open dir in TRCTFIDIR");
        throw trcTfiExc(trcTfiExcFile, "Could not open current directory");
    }
}

trcTfiFilenameFactory::~trcTfiFilenameFactory() { ::closedir(handle); }

bool trcTfiFilenameFactory::isEmpty()
{
    for (;;) {
        const dirent* entry = ::readdir(handle);
        if (entry == nullptr)
            return true;
        if (!isTfiName(entry->d_name))
            continue;
        fileName = directory;
        fileName += "/";
        fileName += entry->d_name;
        return false;
    }
}
