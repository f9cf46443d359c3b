// Set-up of the rendering: default dictionary, fixed event names, and every
// .tfi file of the TFI directory. The one place where TFI failures end.
#include "trcrtos.h"
#include "trcrtosdict.h"

#include "trctfiexc.h"
#include "trctfifilename.h"

#include <cstdio>
#include <cstring>

namespace {

struct eventName {
    unsigned char number;
    const char* name;
};

// Padded to 16 characters below 20 and to 12 from 20 on; the padding is
// part of the name.
constexpr eventName eventNames[] = {
    {1, "ALERT_ERROR     "},  {2, "SYSTEM_ERROR    "},  {3, "ASSERT          "},  {4, "SOFTWARE_ERROR  "},
    {5, "EVENT_LOG_ERROR "},  {6, "EVENT_LOG_EVENT "},  {7, "NON-FATAL_ERROR "},  {10, "API_ERRCODE     "},
    {11, "CEI_ERRCODE     "}, {12, "CII_ERRCODE     "}, {13, "DEV_ERRCODE     "}, {14, "DBG_ERRCODE     "},
    {20, "api_new     "},     {21, "api_delete  "},     {22, "api_entry   "},     {23, "api_exit    "},
    {24, "api_printf  "},     {30, "cei_new     "},     {31, "cei_delete  "},     {32, "cei_entry   "},
    {33, "cei_exit    "},     {34, "cei_printf  "},     {40, "cii_new     "},     {41, "cii_delete  "},
    {42, "cii_entry   "},     {43, "cii_exit    "},     {44, "cii_printf  "},     {50, "dev_new     "},
    {51, "dev_delete  "},     {52, "dev_entry   "},     {53, "dev_exit    "},     {54, "dev_printf  "},
    {60, "dbg_new     "},     {61, "dbg_delete  "},     {62, "dbg_entry   "},     {63, "dbg_exit    "},
    {64, "dbg_printf  "},     {100, "prf_entry   "},    {101, "prf_exit    "},
};
static_assert(sizeof eventNames / sizeof eventNames[0] == 39);

void readAllFiles(const trcHeader_t* header)
{
    trcTfiFilenameFactory files;
    while (!files.isEmpty())
        trcTfiBuildit(files.fileName, header);
}

int report(const trcTfiExc& e)
{
    if (e.file != nullptr)
        std::fprintf(stderr, "file %s, line %d : ", e.file, e.line);
    std::fprintf(stderr, "%s\n", static_cast<const char*>(e.message));
    return e.code;
}

}  // namespace

int trcRecToStrInit(const trcHeader_t* header)
{
    std::memcpy(sUnexpandedSign, "%W%", sizeof sUnexpandedSign);
    trcNameReset();
    for (const eventName& e : eventNames)
        trcNameEvent[e.number] = e.name;
    // The file walk is gone before the handler runs; the exception holds its
    // own copy of the file name.
    try {
        readAllFiles(header);
    } catch (const trcTfiExc& e) {
        return report(e);
    } catch (...) {
        std::fputs("unexpected C++ exception\n", stderr);
        return 1;
    }
    return 0;
}
