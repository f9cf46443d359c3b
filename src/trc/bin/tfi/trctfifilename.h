// Finds the directory of the .tfi files (TRCTFIDIR, else KELVO_HOME/etc,
// else the current directory) and hands out the paths of its .tfi files.
#ifndef KELVO_TRCTFIFILENAME_H
#define KELVO_TRCTFIFILENAME_H

#include "trctfistring.h"

#include <dirent.h>

class trcTfiFilenameFactory {
public:
    const char* directory;       // TRCTFIDIR's value, directoryText or "."
    trcTfiString directoryText;  // KELVO_HOME with "/etc" behind it, when that decided
    trcTfiString fileName;       // path of the file found last
    DIR* handle;

    trcTfiFilenameFactory();
    ~trcTfiFilenameFactory();
    trcTfiFilenameFactory(const trcTfiFilenameFactory&) = delete;
    trcTfiFilenameFactory& operator=(const trcTfiFilenameFactory&) = delete;

    // Moves on to the next .tfi file: false and fileName set if there is one,
    // true when the directory is exhausted.
    bool isEmpty();
};

#endif
