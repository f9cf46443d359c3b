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

// Texts made from a record's numbers, kept for the next record that has
// the same numbers: a few thousand slots, each holding the last key that
// fell on it. The names are what rows and events repeat most.
class trcxNameCache {
public:
    template <typename Make>
    const std::string& get(uint64_t key, Make&& make)
    {
        Slot& s = slots_[(key * 0x9E3779B97F4A7C15ull) >> (64 - bits)];
        if (!s.used || s.key != key) {
            s.key = key;
            s.used = true;
            s.text.clear();
            make(s.text);
        }
        return s.text;
    }

private:
    static constexpr int bits = 12;
    struct Slot {
        uint64_t key = 0;
        bool used = false;
        std::string text;
    };
    std::vector<Slot> slots_ = std::vector<Slot>(1u << bits);
};

// Event name without its padding blanks.
const std::string& trcxEventName(unsigned event);

#endif
