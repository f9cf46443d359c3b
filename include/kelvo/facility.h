/*
 * The operations of the trace facility that the kelvo tool calls. Traced
 * programs use the writer API in <kelvo/trace.h> instead.
 */
#ifndef KELVO_FACILITY_H
#define KELVO_FACILITY_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Build level of a product as a .tfi file states it: leading blanks and an
 * "@(#)" marker skipped, the first word cut to 8 bytes; "......." when
 * nothing is left. The text lives in a buffer of the calling thread until
 * its next call.
 */
const char* trcGetBldLvl(const char* text);

#ifdef __cplusplus
}
#endif

#endif /* KELVO_FACILITY_H */
