// The information report of a trace header.
#ifndef KELVO_TRCINF_H
#define KELVO_TRCINF_H

#include <cstdio>

#include "kelvo/trcformat.h"

// Writes the report of header to out; the dictionary must be set up, since
// the products are named.
void displayInfo(trcHeader_t* header, FILE* out);
void _displayInfo1(trcHeader_t* header, FILE* out);

#endif
