// Entry of the kelvo tool: normalises the letter case of the command line,
// records the program's name, and hands the command word to exactly one
// command function, whose result is the exit status.
#include <unistd.h>

#include <cctype>
#include <cstring>

#include "trcmsgid.h"
#include "trc.h"
#include "trcentry.h"
#include "trcerror.h"

namespace {

// A command function as the table calls it: the argument count less one, the
// arguments from the command word on (args[0] is the word), and the record
// with the code of the word. An adapter per command function passes on what
// that function takes.
using trcCommandRun_t = int (*)(int count, char** args, trcCommandInfo_t* info);

struct trcCommand_t {
    const char* word;  // whole word, lower case
    int command;       // code of the word; also its usage message
    trcCommandRun_t run;
};

constexpr int onCommand = 8;

// Every word of a command, long forms included, has its own row, e.g.
//     {"fmt", 5, runF}, {"format", 5, runF},
// with an adapter such as
//     int runF(int count, char** args, trcCommandInfo_t* info)
//     { return mainF(count, args, info->command, info); }
// A word without a row is answered as an unknown word. The last row, with no
// word, ends the table.
int runChg(int count, char** args, trcCommandInfo_t* /*info*/) { return mainChg(count, args); }

int runClr(int count, char** args, trcCommandInfo_t* /*info*/) { return mainClr(count, args); }

int runDmp(int count, char** args, trcCommandInfo_t* /*info*/) { return mainDmp(count, args); }

int runF(int count, char** args, trcCommandInfo_t* info) { return mainF(count, args, info->command, info); }

int runInf(int count, char** args, trcCommandInfo_t* /*info*/) { return mainInf(count, args); }

int runOff(int count, char** /*args*/, trcCommandInfo_t* /*info*/) { return mainOff(count); }

int runOn(int count, char** args, trcCommandInfo_t* /*info*/) { return mainOn(count, args); }

int runWeb(int count, char** args, trcCommandInfo_t* info) { return mainWeb(count, args, info); }

const trcCommand_t commandTable[] = {
    {"chg", 1, runChg},         {"change", 1, runChg}, {"clr", 2, runClr}, {"clear", 2, runClr},
    {"dmp", 3, runDmp},         {"dump", 3, runDmp},   {"flw", 4, runF},   {"flow", 4, runF},
    {"fmt", 5, runF},           {"format", 5, runF},   {"inf", 6, runInf}, {"info", 6, runInf},
    {"information", 6, runInf}, {"off", 7, runOff},    {"on", 8, runOn},   {"web_buffer_info", 11, runWeb},
    {nullptr, 0, nullptr},
};

const trcCommand_t* findCommand(const char* word)
{
    for (const trcCommand_t* entry = commandTable; entry->word != nullptr; ++entry) {
        if (std::strcmp(entry->word, word) == 0) {
            return entry;
        }
    }
    return nullptr;
}

// Only A to Z change: no locale is ever set.
void lowerWord(char* word)
{
    for (; *word != '\0'; ++word) {
        *word = static_cast<char>(std::tolower(static_cast<unsigned char>(*word)));
    }
}

// The command word and every option word; an option's value is lowered too
// when it begins with '-', while file names, masks and a "help" behind the
// command keep their case.
void lowerCommandLine(int argc, char** argv)
{
    lowerWord(argv[1]);
    for (int i = 2; i < argc; ++i) {
        if (argv[i][0] == '-') {
            lowerWord(argv[i]);
        }
    }
}

// `on` runs as the service account when root starts it, so that what the
// trace creates belongs to that account. The group goes first, while the
// process may still change it. Neither result is looked at: a missing
// account hands -99 to both calls and the command goes on regardless.
void becomeServiceAccount()
{
    if (getuid() != 0) {
        return;
    }
    const int groupResult = setgid(static_cast<gid_t>(get_gid("kelvusr")));
    const int userResult = setuid(static_cast<uid_t>(get_uid("kelvusr")));
    (void)groupResult;
    (void)userResult;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        trcErrorName(argv[0]);
        usage(msgUsageKelvo, -1);
    }
    lowerCommandLine(argc, argv);
    trcErrorName(argv[0]);

    const char* word = argv[1];
    if (std::strcmp(word, "help") == 0) {
        usage(msgUsageKelvo, -1);
    }
    const trcCommand_t* entry = findCommand(word);
    if (entry == nullptr) {
        usage(msgUsageKelvo, msgIncorrectOption);
    }
    if (entry->command == onCommand) {
        becomeServiceAccount();
    }
    trcCommandInfo_t info{entry->command};
    return entry->run(argc - 1, argv + 1, &info);
}
