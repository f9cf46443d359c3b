// kelvo-demo: worker threads place orders in a small shop, and every step
// is traced through the writer API of libkelvo.so. Run it while a trace is
// on (kelvo on), then look at the trace with kelvo inf, fmt and flw; the
// names come from examples/demo.tfi (TRCTFIDIR).
#include "demo.h"
#include "options.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

// Outcomes of all orders, by return code.
struct Tally {
    std::atomic<unsigned> placed{0};
    std::atomic<unsigned> refused{0};
    std::atomic<unsigned> soldOut{0};
    std::atomic<unsigned> declined{0};
    std::atomic<unsigned> failed{0};
};

// The orders are a fixed function of worker and number, so that every run
// takes the same paths: every fourth order is refused, large orders of
// bicycles are too dear for the bank, and later orders find items sold out.
demo::Order makeOrder(unsigned thread, unsigned number)
{
    unsigned item = 1 + (thread + number) % demo::itemCount;
    unsigned quantity = number % 4 == 0 ? 0 : 1 + (thread + number) % 5;
    return demo::Order{thread, number, item, quantity, 0};
}

void count(Tally& tally, int rc)
{
    switch (rc) {
    case 0:
        ++tally.placed;
        break;
    case demo::rcRefused:
        ++tally.refused;
        break;
    case demo::rcNoStock:
        ++tally.soldOut;
        break;
    case demo::rcDeclined:
        ++tally.declined;
        break;
    default:
        ++tally.failed;
        break;
    }
}

void worker(unsigned thread, const demo::Options& options, Tally& tally)
{
    char text[32];
    std::snprintf(text, sizeof text, "worker %u", thread);
    kelvo::TraceScope scope(demo::demoWorker, TRC_EVENT_API_ENTRY, nullptr, text);
    for (unsigned number = 1; number <= options.calls; ++number) {
        demo::Order order = makeOrder(thread, number);
        bool loseLedger = options.severe && thread == 1 && number == 1;
        count(tally, demo::placeOrder(order, loseLedger));
    }
}

void runWorkers(const demo::Options& options, Tally& tally)
{
    kelvo::TraceScope scope(demo::demoRun, TRC_EVENT_API_ENTRY);
    trcWritef(demo::product, TRC_EVENT_API_PRINTF, demo::componentMain, demo::demoRun.klass, demo::demoRun.function, 1,
              nullptr, "%u workers, %u orders each", options.threads, options.calls);
    std::vector<std::thread> workers;
    for (unsigned thread = 1; thread <= options.threads; ++thread)
        workers.emplace_back(worker, thread, std::cref(options), std::ref(tally));
    for (std::thread& t : workers)
        t.join();
    scope.setRc(static_cast<int>(tally.failed.load()));
}

void sayWhereRecordsGo()
{
    const char* instance = std::getenv("KELVO_INSTANCE");
    if (instance == nullptr || *instance == '\0')
        instance = "default";
    if (trcIsOn())
        std::printf("kelvo-demo: pid %d, tracing into instance %s\n", static_cast<int>(getpid()), instance);
    else
        std::printf("kelvo-demo: pid %d, no trace is on in instance %s: nothing is recorded\n",
                    static_cast<int>(getpid()), instance);
}

}  // namespace

int main(int argc, char** argv)
{
    demo::Options options;
    demo::ParseResult parsed = demo::parseOptions(argc, argv, options);
    if (parsed != demo::ParseResult::run)
        return parsed == demo::ParseResult::help ? 0 : 2;
    trcSetProdVersion(demo::product, demo::buildLevel);
    sayWhereRecordsGo();
    // Enough for the first orders of each item; later ones find it sold out.
    demo::fillStock(3 + options.threads);
    Tally tally;
    runWorkers(options, tally);
    std::printf("kelvo-demo: %u threads x %u orders: %u placed, %u refused, %u sold out, "
                "%u declined, %u failed\n",
                options.threads, options.calls, tally.placed.load(), tally.refused.load(), tally.soldOut.load(),
                tally.declined.load(), tally.failed.load());
    if (options.severe)
        std::printf("kelvo-demo: order 1.1 lost the ledger: a SYSTEM_ERROR record, which stops "
                    "a trace that allows one severe error\n");
    return 0;
}
