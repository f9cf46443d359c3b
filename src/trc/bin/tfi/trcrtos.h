// Record rendering: the name dictionary, its set-up from the .tfi files,
// and the two text forms of a trace record.
#ifndef KELVO_TRCRTOS_H
#define KELVO_TRCRTOS_H

#include <kelvo/trcformat.h>

// The name dictionary: every lookup of any four 8-bit numbers reaches a
// text, "? " for whatever no .tfi file names. Read-only once set up.
extern const char* trcNameProd[256];     // [product]
extern const char** trcNameComp[256];    // [product][component]
extern const char*** trcNameClass[256];  // [product][component][class]
extern const char**** trcNameFnc[256];   // [product][component][class][function]
extern const char* trcNameEvent[256];    // [event], padded to a fixed width

// Resets the dictionary, enters the event names and reads every .tfi file
// of the TFI directory. 0 on success; otherwise the code of the failure,
// whose detail has been written to standard error.
int trcRecToStrInit(const trcHeader_t* header);

// Full text of a record for the format report, written into dest of size
// bytes. Returns the number of bytes written, zero bytes of the record's
// text included; no NUL is added. Text that would not fit is cut at the end
// of dest, whose last byte is then the final line end. The record's first
// 44 bytes must be readable, and all of its length bytes when that is more.
int trcRecToStr(const trcRecord_t* record, char* dest, int size, unsigned long number, int join);

// One-line text of a record for the flow report, with its line end and a
// terminating NUL, written at the start of dest of size bytes and cut like
// trcRecToStr's when it would not fit. Returns dest.
char* trcRecToFnc(const trcRecord_t* record, char* dest, int size);

// The function of a record as the flow report names it, component (in a
// column of four), class and function: "Core Reader::open". Written with a
// terminating NUL at the start of dest of size bytes, cut to fit; returns
// its length.
int trcRecFncName(const trcRecord_t* record, char* dest, int size);

#endif
