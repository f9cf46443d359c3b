// Inside of the name dictionary, for the set-up and its tests.
#ifndef KELVO_TRCRTOSDICT_H
#define KELVO_TRCRTOSDICT_H

#include <kelvo/trcformat.h>

// The shared tables that every unnamed part of the tree points at.
extern const char noName0[];        // "? "
extern const char* noName1[256];    // 256 times noName0
extern const char** noName2[256];   // 256 times noName1
extern const char*** noName3[256];  // 256 times noName2

// A build level equal to this was never filled in: "%W%".
extern char sUnexpandedSign[4];

// Gives every table its default content. Tables and names of an earlier
// set-up are released, so no pointer into them may be kept.
void trcNameReset();

// Reads one .tfi file into the dictionary; the first name to reach a slot
// stays. Throws trcTfiExc.
void trcTfiBuildit(const char* fileName, const trcHeader_t* header);

// Non-zero when the build level warning is due for product.
int trcIsProdVersionOK(const char* bldlvl, const trcHeader_t* header, int product);

// A copy of text that lives as long as the dictionary; throws trcTfiExc on
// lack of memory.
char* strNew(const char* text);

// size bytes that live as long as the dictionary; throws trcTfiExc on lack
// of memory.
void* trcNameAllocate(unsigned long size);

#endif
