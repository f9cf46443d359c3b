// Bank: charges an order and posts it to the ledger. The bank is an
// external interface of the shop, traced with the cei events; the ledger is
// internal to the bank.
#include "demo.h"

namespace demo {
namespace {

// Payments above this are declined.
constexpr unsigned limitCents = 50000;

int post(const Order& order, bool loseLedger)
{
    kelvo::TraceScope scope(ledgerPost, TRC_EVENT_CII_ENTRY, &order);
    if (loseLedger) {
        // A severe error: with the default of on (-e 1) the trace stops here,
        // and keeps the records that led to it.
        trcWritef(product, TRC_EVENT_SYSTEM_ERROR, componentBank, ledgerPost.klass, ledgerPost.function, 1, &order,
                  "ledger journal lost at order %u.%u", order.thread, order.number);
        return scope.ret(rcLedgerLost);
    }
    trcWritef(product, TRC_EVENT_CII_PRINTF, componentBank, ledgerPost.klass, ledgerPost.function, 1, &order,
              "posted %u.%02u for order %u.%u", order.totalCents / 100, order.totalCents % 100, order.thread,
              order.number);
    return scope.ret(0);
}

}  // namespace

int chargePayment(const Order& order, bool loseLedger)
{
    kelvo::TraceScope scope(paymentCharge, TRC_EVENT_CEI_ENTRY, &order);
    if (order.totalCents > limitCents) {
        trcWritef(product, TRC_EVENT_NON_FATAL_ERROR, componentBank, paymentCharge.klass, paymentCharge.function, 1,
                  &order, "payment of %u.%02u declined", order.totalCents / 100, order.totalCents % 100);
        return scope.ret(rcDeclined);
    }
    return scope.ret(post(order, loseLedger));
}

}  // namespace demo
