// The program's name for diagnostics, which messages and failure reports
// both print; set by trcErrorName.
#ifndef KELVO_TRCPGMNAME_H
#define KELVO_TRCPGMNAME_H

// Name of the running program without directories; "???" until set.
extern const char* trcPgmName;

#endif
