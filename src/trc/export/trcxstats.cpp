// Time per function: every selected call that the depth rules rebuild adds
// its duration to the row of its function; its own time is that duration
// less the time of the calls that ended inside it.
#include <algorithm>
#include <cinttypes>
#include <unordered_map>

#include "trcrtos.h"
#include "trcxreports.h"

namespace {

struct statsCollector {
    const trcxTrace_t* t;
    std::unordered_map<uint32_t, trcxStatRow_t> rows;

    void record(trcxThread_t&, long, int64_t, long) {}
    void instant(trcxThread_t&, long, int64_t, trcxInstant_t) {}
    void slice(trcxThread_t&, const trcxCall_t& call, long close, int64_t end, trcxEnd_t how, const trcxCall_t*)
    {
        if (!trcxCallSelected(t, call, close)) {
            return;
        }
        const trcRecord_t* opened = t->index[call.open].record;
        const trcRecord_t* closed = t->index[close].record;
        trcxStatRow_t& row = rows[trcCallKey(opened)];
        const int64_t duration = end - call.start;
        if (row.calls == 0) {
            row.key = trcCallKey(opened);
            char name[1024];
            trcRecFncName(opened, name, sizeof name);
            row.name = name;
            row.min = duration;
            row.max = duration;
        }
        ++row.calls;
        row.total += duration;
        row.self += duration - call.childTime;
        row.min = std::min(row.min, duration);
        row.max = std::max(row.max, duration);
        row.errors += call.errors;
        if (how == trcxExited && trcIsRcEvent(trcRecEvent(closed)) && trcxReturnCode(closed) != 0) {
            ++row.errors;
        }
    }
};

int64_t sortValue(const trcxStatRow_t& row, trcxSortKey_t key)
{
    switch (key) {
    case trcxByCalls:
        return row.calls;
    case trcxBySelf:
        return row.self;
    case trcxByMax:
        return row.max;
    case trcxByTotal:
        break;
    }
    return row.total;
}

// "950 ns", "12.345 us", "1.500 ms", "2.000 s": three decimals, rounded,
// from 1 us on.
std::string readable(int64_t ns)
{
    static const char* const units[] = {"us", "ms", "s"};
    char text[64];
    const uint64_t magnitude = ns < 0 ? 0ull - static_cast<uint64_t>(ns) : static_cast<uint64_t>(ns);
    if (magnitude < 1000) {
        std::snprintf(text, sizeof text, "%" PRId64 " ns", ns);
        return text;
    }
    uint64_t scale = 1000;
    int unit = 0;
    while (unit < 2 && magnitude >= scale * 1000) {
        scale *= 1000;
        ++unit;
    }
    const uint64_t step = scale / 1000;
    const uint64_t thousandths = (magnitude + step / 2) / step;
    std::snprintf(text, sizeof text, "%s%" PRIu64 ".%03" PRIu64 " %s", ns < 0 ? "-" : "", thousandths / 1000,
                  thousandths % 1000, units[unit]);
    return text;
}

long shown(const std::vector<trcxStatRow_t>& rows, long limit)
{
    const long all = static_cast<long>(rows.size());
    return limit >= 0 && limit < all ? limit : all;
}

}  // namespace

std::vector<trcxStatRow_t> trcxStats(const trcxTrace_t* t, trcxSortKey_t key)
{
    statsCollector c{t, {}};
    if (t->firstIndex < t->end) {
        trcxCalls_t calls;
        trcxWalkCalls(t, &calls, c);
    }
    std::vector<trcxStatRow_t> rows;
    rows.reserve(c.rows.size());
    for (auto& [k, row] : c.rows) {
        rows.push_back(std::move(row));
    }
    std::sort(rows.begin(), rows.end(), [key](const trcxStatRow_t& a, const trcxStatRow_t& b) {
        const int64_t va = sortValue(a, key), vb = sortValue(b, key);
        if (va != vb) {
            return va > vb;
        }
        if (a.name != b.name) {
            return a.name < b.name;
        }
        return a.key < b.key;
    });
    return rows;
}

void trcxWriteStatsTable(const std::vector<trcxStatRow_t>& rows, long limit, trcxOut_t* o)
{
    const long n = shown(rows, limit);
    static const char* const heads[] = {"function", "calls", "total", "self", "min", "avg", "max", "errors"};
    std::vector<std::vector<std::string>> cells;
    cells.push_back(std::vector<std::string>(std::begin(heads), std::end(heads)));
    for (long i = 0; i < n; ++i) {
        const trcxStatRow_t& r = rows[static_cast<size_t>(i)];
        std::string name = r.name;
        while (!name.empty() && name.back() == ' ') {
            name.pop_back();
        }
        cells.push_back({name, std::to_string(r.calls), readable(r.total), readable(r.self), readable(r.min),
                         readable(r.total / r.calls), readable(r.max), std::to_string(r.errors)});
    }
    size_t widths[8] = {};
    for (const auto& line : cells) {
        for (size_t c = 0; c < 8; ++c) {
            widths[c] = std::max(widths[c], line[c].size());
        }
    }
    for (const auto& line : cells) {
        std::string text;
        for (size_t c = 0; c < 8; ++c) {
            const std::string pad(widths[c] - line[c].size(), ' ');
            // The function on the left, the figures aligned on the right.
            text += c == 0 ? line[c] + pad : "  " + pad + line[c];
        }
        while (!text.empty() && text.back() == ' ') {
            text.pop_back();
        }
        text += '\n';
        trcxPut(o, text.data(), text.size());
    }
}

void trcxWriteStatsCsv(const std::vector<trcxStatRow_t>& rows, long limit, trcxOut_t* o)
{
    trcxPut(o, "function,calls,total_ns,self_ns,min_ns,avg_ns,max_ns,errors\n");
    const long n = shown(rows, limit);
    for (long i = 0; i < n; ++i) {
        const trcxStatRow_t& r = rows[static_cast<size_t>(i)];
        trcxPutCsvText(o, r.name.data(), r.name.size());
        for (int64_t v : {static_cast<int64_t>(r.calls), r.total, r.self, r.min, r.total / r.calls, r.max,
                          static_cast<int64_t>(r.errors)}) {
            trcxPutChar(o, ',');
            trcxPutSigned(o, v);
        }
        trcxPutChar(o, '\n');
    }
}
