// The reports of kelvo-export and kelvo-stats over a prepared trace.
#ifndef KELVO_TRCXREPORTS_H
#define KELVO_TRCXREPORTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "trcxout.h"
#include "trcxtrace.h"

// The selected records as one JSON object in the Trace Event Format: a
// slice for each call, an instant for each other record, and names for
// the processes and threads. t may have an empty range (prepare false).
void trcxWriteJson(const trcxTrace_t* t, trcxOut_t* o);

// The selected records as CSV, one row each under a header row.
void trcxWriteCsv(const trcxTrace_t* t, trcxOut_t* o);

// Time spent in one function, over its selected calls.
struct trcxStatRow_t {
    uint32_t key;  // product, component, class, function
    std::string name;
    long calls = 0;
    int64_t total = 0;
    int64_t self = 0;
    int64_t min = 0;
    int64_t max = 0;
    long errors = 0;
};

enum trcxSortKey_t { trcxByCalls, trcxByTotal, trcxBySelf, trcxByMax };

// One row per function, largest first by key (then by name).
std::vector<trcxStatRow_t> trcxStats(const trcxTrace_t* t, trcxSortKey_t key);
// The rows as an aligned table with readable units, or as CSV.
void trcxWriteStatsTable(const std::vector<trcxStatRow_t>& rows, long limit, trcxOut_t* o);
void trcxWriteStatsCsv(const std::vector<trcxStatRow_t>& rows, long limit, trcxOut_t* o);

// Event name without its padding blanks.
const std::string& trcxEventName(unsigned event);

#endif
