// Command line of kelvo-demo: -t <threads>, -c <calls>, --severe, -h.
#include "options.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace demo {
namespace {

constexpr unsigned maxThreads = 64;
constexpr unsigned maxCalls = 100000;

const char usageText[] = "Usage: kelvo-demo [-t <threads>] [-c <calls>] [--severe]\n"
                         "  -t, --threads <n>  worker threads, 1 to 64 (default 4)\n"
                         "  -c, --calls <n>    orders each worker places, 1 to 100000 (default 5)\n"
                         "      --severe       lose the ledger on the first order: a severe error,\n"
                         "                     which stops a trace that allows one (kelvo on -e 1)\n"
                         "  -h, --help         show this text\n";

bool isWord(const char* arg, const char* shortForm, const char* longForm)
{
    return std::strcmp(arg, shortForm) == 0 || std::strcmp(arg, longForm) == 0;
}

// A decimal number from 1 to limit, or 0 for anything else.
unsigned toCount(const char* text, unsigned limit)
{
    if (text == nullptr || *text < '0' || *text > '9')
        return 0;
    char* end = nullptr;
    errno = 0;
    unsigned long value = std::strtoul(text, &end, 10);
    if (errno != 0 || *end != '\0' || value > limit)
        return 0;
    return static_cast<unsigned>(value);
}

ParseResult refuse(const char* what, const char* arg)
{
    std::fprintf(stderr, "kelvo-demo: %s: %s\n%s", what, arg ? arg : "(missing)", usageText);
    return ParseResult::refused;
}

}  // namespace

ParseResult parseOptions(int argc, char** argv, Options& options)
{
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        if (isWord(arg, "-h", "--help")) {
            std::fputs(usageText, stdout);
            return ParseResult::help;
        }
        if (std::strcmp(arg, "--severe") == 0) {
            options.severe = true;
        } else if (isWord(arg, "-t", "--threads")) {
            options.threads = toCount(value, maxThreads);
            if (options.threads == 0)
                return refuse("bad number of threads", value);
            ++i;
        } else if (isWord(arg, "-c", "--calls")) {
            options.calls = toCount(value, maxCalls);
            if (options.calls == 0)
                return refuse("bad number of calls", value);
            ++i;
        } else {
            return refuse("unknown option", arg);
        }
    }
    return ParseResult::run;
}

}  // namespace demo
