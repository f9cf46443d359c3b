// kelvo-export: the selected records of a trace as JSON in the Trace Event
// Format for trace viewers, or with --csv as one CSV row per record.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "trcerror.h"
#include "trcoutfile.h"
#include "trcmsgid.h"
#include "trcmsg.h"
#include "trcxreports.h"

namespace {

// The destination while it is written: a failure on the way removes it,
// so that no partial file is left behind.
const char* partial = nullptr;

void removePartial()
{
    if (partial != nullptr) {
        unlink(partial);
        partial = nullptr;
    }
}

int takeCsv(int, char** args, int at, void* context)
{
    if (std::strcmp(args[at], "--csv") == 0) {
        *static_cast<bool*>(context) = true;
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    trcxUsageText =
        "Usage: kelvo-export [-m <mask>] [-p <pid>] [-x [first][-[last]]] [--csv] [<source> [<destination>]]";
    trcxCommandLine(argc, argv);
    bool csv = false;
    trcxTrace_t t;
    trcxParse(argc, argv, 2, takeCsv, &csv, &t);
    const char* destination = t.options.destination;
    if (destination != nullptr && trcFMayExist(destination)) {
        trcxUsage(0, msgExistingFile);
    }
    trcxLoad(&t);
    FILE* out = stdout;
    const char* outName = "standard output";
    if (destination != nullptr) {
        out = trcCreateOutFile(destination, 0666);
        if (out == nullptr) {
            trcFail(trcMsgGet(msgCannotCreate), destination);
        }
        partial = destination;
        std::atexit(removePartial);
        outName = destination;
    }
    trcxDictionary(&t);
    trcxPrepare(&t);
    trcxOut_t o;
    trcxOutOpen(&o, out, outName);
    if (csv) {
        trcxWriteCsv(&t, &o);
    } else {
        trcxWriteJson(&t, &o);
    }
    trcxOutClose(&o);
    trcxFinish(&t);
    if (out != stdout && std::fclose(out) != 0) {
        trcFail(trcMsgGet(msgCannotWrite), outName);
    }
    partial = nullptr;
    return 0;
}
