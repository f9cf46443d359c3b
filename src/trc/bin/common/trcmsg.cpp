// The compiled-in message table and its lookup. Every text the tool shows a
// user comes from here by number, so no file or locale can change it.
#include "trcmsg.h"

#include <cstdarg>
#include <iterator>

#include "trcpgmname.h"

// The rows in their stored order, which the lookup walks from the first row.
// 424, 423 and 346 stand beside the messages they go with rather than at the
// end of their ranges.
// The table keeps each message's lines as they are printed.
// clang-format off
const trcMsgRow_t defaultMsgs[] = {
    {0,
     "Usage: kelvo (chg|clr|dmp|flw|fmt|inf|off|on) options\n"
     "\n"
     "\tchg|change\n"
     "\t\tchange the trace mask, pid.tid, cpid or maxSevereErrors\n"
     "\tclr|clear\n"
     "\t\tclear the trace\n"
     "\tdmp|dump\n"
     "\t\tdump the trace to a binary trace file\n"
     "\tflw|flow\n"
     "\t\tshow control flow of the trace\n"
     "\tfmt|format\n"
     "\t\tformat the trace\n"
     "\tinf|info|information\n"
     "\t\tget information on the trace\n"
     "\toff\n"
     "\t\tturn the trace off\n"
     "\ton\n"
     "\t\tturn the trace on\n"
     "\n"
     "\tFor more information type kelvo (chg|clr|dmp|flw|fmt|inf|off|on) help"},
    {1,
     "Usage: kelvo chg|change\n"
     "\t[-m <mask>]\n"
     "\t\t<mask> = <products>.<events>.<components>.<classes>.<functions>\n"
     "\t[-p <pid>[.<tid>]]\n"
     "\t\t(trace only this process/thread)\n"
     "\t[-c <cpid>]\n"
     "\t\t(trace only this companion process)\n"
     "\t[-e <maxSevereErrors>]\n"
     "\t\t(stop trace after maxSevereErrors)\n"
     "\t[-this <thisPointer>]\n"
     "\t\t(trace only this object)"},
    {2, "Usage: kelvo clr|clear"},
    {3,
     "Usage: kelvo dmp|dump\n"
     "\t<destFile>\n"
     "\t\t(name of the file where you want to dump the trace)"},
    {4,
     "Usage: kelvo flw|flow\n"
     "\t[-m <mask>]\n"
     "\t\t<mask> = <products>.<events>.<components>.<classes>.<functions>\n"
     "\t[-d <dir>]\n"
     "\t\t(use *.tfi files from specified dir)\n"
     "\t[-p <processId>[.<threadId>]]\n"
     "\t\t(only show control flow for this process/thread)\n"
     "\t[-r]\n"
     "\t\t(output trace in reverse chronological order)\n"
     "\t[-x <onlyRecord>]\n"
     "\t\t(only show <onlyRecord>)\n"
     "\t[-x [<firstRecord>]-[<lastRecord>]]\n"
     "\t\t(only show control flow of records between <firstRecord>\n"
     "\t\t and <lastRecord>)\n"
     "\t[-this <thisPointer>]\n"
     "\t\t(format only this object)\n"
     "\t[<sourceFile> [<destFile>]]\n"
     "\t\t(binary trace file to format and destination file)"},
    {5,
     "Usage: kelvo fmt|format\n"
     "\t[-m <mask>]\n"
     "\t\t<mask> = <products>.<events>.<components>.<classes>.<functions>\n"
     "\t[-d <dir>]\n"
     "\t\t(use *.tfi files from specified dir)\n"
     "\t[-p <processId>[.<threadId>]]\n"
     "\t\t(only format trace records that belong to this process/thread)\n"
     "\t[-j]\n"
     "\t\t(join first 2 lines of trace output)\n"
     "\t[-r]\n"
     "\t\t(output trace in reverse chronological order)\n"
     "\t[-x <onlyRecord>]\n"
     "\t\t(only format <onlyRecord>)\n"
     "\t[-x [<firstRecord>]-[<lastRecord>]]\n"
     "\t\t(only format records between <firstRecord>) and <lastRecord>)\n"
     "\t[-this <thisPointer>]\n"
     "\t\t(format only this object)\n"
     "\t[<sourceFile> [<destFile>]]\n"
     "\t\t(binary trace file to format and destination file)"},
    {6,
     "Usage: kelvo inf|info|information\n"
     "\t[<sourceFile> [<destFile>]]\n"
     "\t\t(binary trace file, or trace buffer if file is '-'\n"
     "\t\t and destination file)"},
    {7, "Usage: kelvo off"},
    {8,
     "Usage: kelvo on\n"
     "\t[-m <mask>]\n"
     "\t\t<mask> = <products>.<events>.<components>.<classes>.<functions>\n"
     "\t[-p <pid>[.<tid>]]\n"
     "\t\t(trace only this proc/thread)\n"
     "\t[-c <cpid>]\n"
     "\t\t(trace only this companion proc)\n"
     "\t[-e <maxSevereErrors>]\n"
     "\t\t(stop trace after maxSevereErrors)\n"
     "\t[-s | -f <fileName>]\n"
     "\t\t(send to shared mem or file)\n"
     "\t[-l [<bufferSize>] | -i [<bufferSize>]]\n"
     "\t\t(retain the last or the initial records)\n"
     "\t[-this <thisPointer>]\n"
     "\t\t(trace only this object)"},
    {100, "Too many arguments."},
    {101, "Unexpected end of argument list."},
    {102, "Incorrect option."},
    {103, "Incorrect mask."},
    {104, "Incorrect maxSevereErrors."},
    {105, "Incorrect maxRecordSize."},
    {106, "Incorrect bufferSize."},
    {107, "Incorrect tid."},
    {108, "Incorrect pid."},
    {109, "Incorrect cpid."},
    {110, "Incorrect returnCode."},
    {111, "Incorrect onlyRecord."},
    {112, "Incorrect firstRecord."},
    {113, "Incorrect lastRecord."},
    {114, "fileName is too long."},
    {115, "The -i option cannot be used with the -n and -mmio options."},
    {116, "The <bufferSize> option cannot be used with the -n and -mmio options."},
    {117,
     "The crash mask must be 5 numbers, which are \n"
     "<product>.<event>.<component>.<class>.<function>.<trace_point>\n"},
    {424, "Incorrect pause attribute"},
    {118, "Incorrect this pointer."},
    {119, "Cannot specify an existing file for dump, format or flow output."},
    {200, "Trace is already off; no action was taken."},
    {201, "Can not clear trace when it is off."},
    {202, "Trace is off."},
    {203, "Can not dump trace when it is off."},
    {204, "Can not change params when trace is off."},
    {205, "Trace is already on; no action was taken."},
    {206, "Can not clear native trace facility."},
    {207, "Can not format native trace."},
    {208, "Can not dump trace unless it is in shared memory."},
    {300, "Trace truncated         : "},
    {301, "Trace wrapped           : "},
    {302, "Size of trace           : %ld bytes"},
    {303, "Records in trace        : "},
    {304, "Records formatted       : "},
    {305, "Records formatted       : %-6ld (pid: %d)"},
    {306, "Records formatted       : %-6ld (pid: %d; tid: %d)"},
    {423, "Records formatted       : %-6ld (pid: %d; tid: %d; node: %d)"},
    {307, "Trace Version           : "},
    {308, "Op. System              : "},
    {309, "Op. Sys. Version        : "},
    {310, "H/W Platform            : "},
    {311, "Version prod %3d        : "},
    {312, "Mask                    : "},
    {313, "pid.tid to trace        : "},
    {314, "cpid    to trace        : "},
    {346, "this pointer to trace   : "},
    {315, "Treat this rc as sys err: "},
    {316, "Max severe errors       : "},
    {317, "Max record size         : %d bytes"},
    {318, "Trace destination       : "},
    {319, "File name               : "},
    {320, "Records to keep         : "},
    {321, "Trace buffer size       : %ld bytes"},
    {322, "kelvod pid              : "},
    {323, "yes"},
    {324, "no"},
    {325, "none"},
    {326, "all"},
    {327, "infinite"},
    {328, "shared memory"},
    {329, "native trace"},
    {330, "file"},
    {331, "UNKNOWN!!"},
    {332, "last"},
    {333, "initial"},
    {334, "TRACE IS FULL"},
    {335, "TRACE IS OFF!"},
    {336, "Trace is turned on\n"},
    {337, "Trace is turned off\n"},
    {338, "New trace buffer size = %d\n"},
    {339, "Trace data pointer check: %s\n"},
    {400, "Could not open %s in read mode."},
    {401, "Could not create %s."},
    {402, "Could not read from %s."},
    {403, "Could not write to %s."},
    {404, "Could not close %s."},
    {405, "%s is an invalid binary trace file."},
    {406, "Use trc version \"%s\" to format this file."},
    {407, "Could not read the translation info."},
    {408, "KELVOD.EXE timed out."},
    {409, "Not enough memory to hold the ascii records."},
    {410, "Not enough memory to hold the trace header."},
    {411, "Not enough memory to hold the trace records."},
    {412, "Not enough memory to hold the trace index."},
    {413, "Not enough memory to hold the trace."},
    {414, "Not enough resources to run trace."},
    {415, "C library function error number = %d."},
    {416, "Operating System error number = %d."},
    {417, "Unexpected System Error."},
    {418,
     "The Nimbra Trace MMIO option is either\n"
     "\t1) not installed correctly, or\n"
     "\t2) not turned on.\n"
     "If 1) please refer to TOVALA documentation.\n"
     "If 2) you must first activate trace point 1 in the Nimbra TRACE facility\n"
     "with the following Nimbra command:\n"
     "\tTRACE ON 01"},
    {419,
     "The -mmio option is not compatible with the following options: \n"
     "\t-s, -n, -f, -i"},
    {420, "The target disk is full. Cleanup the disk to get some disk space \n"},
    {421,
     "Dump file contains corrupt trace records (ignored).\n"
     "Trace information might be invalid, retry to capture trace information.\n"},
    {422,
     "You are not authorized to run trace.  You must belong to the WARDEN,\n"
     "STEWARD, or KEEPER groups.\n"},
};
// clang-format on

static_assert(std::size(defaultMsgs) == 104, "the message table has 104 rows");

const int defaultMsgCount = static_cast<int>(std::size(defaultMsgs));

const char* trcMsgGetDefault(int number) noexcept
{
    for (const trcMsgRow_t& row : defaultMsgs) {
        if (row.number == number) {
            return row.text;
        }
    }
    trcMsgError("Could not find default message for TRC%0*d", 5, number);
    return "";
}

const char* trcMsgGet(int number) noexcept { return trcMsgGetDefault(number); }

void trcMsgError(const char* format, ...) noexcept
{
    std::printf("%s: ", trcPgmName);
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::printf(".\n");
}
