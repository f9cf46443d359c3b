/*
 * Preloaded into the tool (LD_PRELOAD) to lose the race that a destination
 * file can lose in a shared directory: another process acts on the name
 * between the tool's existence test and its creation of the file, or just
 * after the creation. KELVO_TEST_RACE_PATH names the one path concerned and
 * KELVO_TEST_RACE says what happens to it:
 *   file          after access() found nothing: a file "appeared\n" appears
 *   link:TARGET   after access() found nothing: a symbolic link to TARGET
 *   replace       after open() created it: the file is renamed to PATH.moved
 *                 and a new file "replaced\n" takes its name
 * Any other path passes through untouched.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static const char* racePath(const char* path)
{
    const char* want = getenv("KELVO_TEST_RACE_PATH");
    return want != NULL && path != NULL && strcmp(want, path) == 0 ? getenv("KELVO_TEST_RACE") : NULL;
}

static void writeFile(const char* path, const char* text)
{
    FILE* f = fopen(path, "w");
    if (f != NULL) {
        fputs(text, f);
        fclose(f);
    }
}

int access(const char* path, int mode)
{
    int (*real)(const char*, int) = (int (*)(const char*, int))dlsym(RTLD_NEXT, "access");
    const int result = real(path, mode);
    const int error = errno;
    const char* race = racePath(path);
    if (result == -1 && error == ENOENT && race != NULL) {
        if (strcmp(race, "file") == 0)
            writeFile(path, "appeared\n");
        else if (strncmp(race, "link:", 5) == 0 && symlink(race + 5, path) != 0)
            perror("file_race_hook: symlink");
    }
    errno = error;
    return result;
}

static int openAndRace(const char* symbol, const char* path, int flags, mode_t mode)
{
    int (*real)(const char*, int, ...) = (int (*)(const char*, int, ...))dlsym(RTLD_NEXT, symbol);
    const int fd = real(path, flags, mode);
    const int error = errno;
    const char* race = racePath(path);
    if (fd != -1 && (flags & O_CREAT) != 0 && race != NULL && strcmp(race, "replace") == 0) {
        char moved[4096];
        snprintf(moved, sizeof moved, "%s.moved", path);
        if (rename(path, moved) != 0)
            perror("file_race_hook: rename");
        writeFile(path, "replaced\n");
    }
    errno = error;
    return fd;
}

int open(const char* path, int flags, ...)
{
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list args;
        va_start(args, flags);
        mode = va_arg(args, mode_t);
        va_end(args);
    }
    return openAndRace("open", path, flags, mode);
}

/* The same entry under its large-file name. */
int open64(const char* path, int flags, ...) __attribute__((alias("open")));
