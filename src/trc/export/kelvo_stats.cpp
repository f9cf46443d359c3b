// kelvo-stats: calls, total, own, shortest, average and longest time and
// errors of every function of a trace, as a table or as CSV.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "trcerror.h"
#include "trcmsgid.h"
#include "trcmsg.h"
#include "trcxreports.h"

namespace {

struct statsOptions {
    trcxSortKey_t sortKey = trcxByTotal;
    long limit = -1;  // all rows
    bool csv = false;
};

[[noreturn]] void badValue(const char* what, const char* value, const char* expected)
{
    std::printf("%s: incorrect %s \"%s\"; %s.\n\n%s\n", trcPgmName, what, value, expected, trcxUsageText);
    std::exit(1);
}

int takeOption(int count, char** args, int at, void* context)
{
    auto* o = static_cast<statsOptions*>(context);
    const char* word = args[at];
    if (std::strcmp(word, "--csv") == 0) {
        o->csv = true;
        return 1;
    }
    const bool sort = std::strcmp(word, "-s") == 0;
    if (!sort && std::strcmp(word, "-n") != 0) {
        return 0;
    }
    if (at + 1 >= count) {
        trcxUsage(0, msgEndOfArguments);
    }
    const char* value = args[at + 1];
    if (sort) {
        static const struct {
            const char* name;
            trcxSortKey_t key;
        } keys[] = {{"calls", trcxByCalls}, {"total", trcxByTotal}, {"self", trcxBySelf}, {"max", trcxByMax}};
        for (const auto& k : keys) {
            if (std::strcmp(value, k.name) == 0) {
                o->sortKey = k.key;
                return 2;
            }
        }
        badValue("sort key", value, "use calls, total, self or max");
    }
    char* end = nullptr;
    errno = 0;
    const long n = std::strtol(value, &end, 10);
    if (*value == '\0' || *end != '\0' || n < 0 || errno == ERANGE) {
        badValue("number of rows", value, "give 0 or more");
    }
    o->limit = n;
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    trcxUsageText = "Usage: kelvo-stats [-m <mask>] [-p <pid>] [-x [first][-[last]]] [-s calls|total|self|max] "
                    "[-n <rows>] [--csv] [<source>]";
    trcxCommandLine(argc, argv);
    statsOptions s;
    trcxTrace_t t;
    trcxParse(argc, argv, 1, takeOption, &s, &t);
    trcxLoad(&t);
    trcxDictionary(&t);
    trcxPrepare(&t);
    const std::vector<trcxStatRow_t> rows = trcxStats(&t, s.sortKey);
    trcxFinish(&t);
    trcxOut_t o;
    trcxOutOpen(&o, stdout, "standard output");
    if (s.csv) {
        trcxWriteStatsCsv(rows, s.limit, &o);
    } else {
        trcxWriteStatsTable(rows, s.limit, &o);
    }
    trcxOutClose(&o);
    return 0;
}
