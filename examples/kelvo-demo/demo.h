// kelvo-demo: a small shop whose threads place orders, traced as product 42
// through the writer API. The numbers here are those that examples/demo.tfi
// names: products and components by their stated numbers, classes and
// functions by the place of their line in that file, counted from 1.
#ifndef KELVO_DEMO_H
#define KELVO_DEMO_H

#include <kelvo/trace.hpp>

namespace demo {

constexpr unsigned product = 42;
// Build level of this product; demo.tfi states the same one.
constexpr const char* buildLevel = "1.4.2";

constexpr unsigned componentMain = 1;
constexpr unsigned componentShop = 2;
constexpr unsigned componentBank = 3;

// Main: class Demo
constexpr kelvo::TracePlace demoRun{product, componentMain, 1, 1};
constexpr kelvo::TracePlace demoWorker{product, componentMain, 1, 2};
// Shop: class Order, class Stock
constexpr kelvo::TracePlace orderPlace{product, componentShop, 1, 1};
constexpr kelvo::TracePlace orderValidate{product, componentShop, 1, 2};
constexpr kelvo::TracePlace orderPrice{product, componentShop, 1, 3};
constexpr kelvo::TracePlace stockReserve{product, componentShop, 2, 1};
constexpr kelvo::TracePlace stockRelease{product, componentShop, 2, 2};
// Bank: class Payment, class Ledger
constexpr kelvo::TracePlace paymentCharge{product, componentBank, 1, 1};
constexpr kelvo::TracePlace ledgerPost{product, componentBank, 2, 1};

// Return codes of the shop; 0 is success.
constexpr int rcRefused = -22;    // the order is malformed
constexpr int rcNoStock = -105;   // the item is sold out
constexpr int rcDeclined = -13;   // the bank refused the payment
constexpr int rcLedgerLost = -5;  // the ledger cannot record (severe)

struct Order {
    unsigned thread;      // worker that places it, from 1
    unsigned number;      // its number within the worker, from 1
    unsigned item;        // 1 to itemCount
    unsigned quantity;    // 0 is refused
    unsigned totalCents;  // set by pricing
};

constexpr unsigned itemCount = 4;

// Shop: the whole life of one order; returns 0 or one of the codes above.
int placeOrder(Order& order, bool loseLedger);

// Stock of the shop, shared by all workers.
void fillStock(unsigned unitsPerItem);
int reserveStock(const Order& order);
void releaseStock(const Order& order);

// Bank: charges an order and posts it to the ledger.
int chargePayment(const Order& order, bool loseLedger);

}  // namespace demo

#endif
