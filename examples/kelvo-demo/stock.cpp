// Stock: units per item, shared by all workers under one lock. An internal
// interface of the shop, traced with the cii events.
#include "demo.h"

#include <mutex>

namespace demo {
namespace {

std::mutex stockLock;
unsigned units[itemCount + 1];

}  // namespace

void fillStock(unsigned unitsPerItem)
{
    std::lock_guard<std::mutex> hold(stockLock);
    for (unsigned& count : units)
        count = unitsPerItem;
}

int reserveStock(const Order& order)
{
    kelvo::TraceScope scope(stockReserve, TRC_EVENT_CII_ENTRY, &order);
    std::lock_guard<std::mutex> hold(stockLock);
    unsigned& left = units[order.item];
    if (left < order.quantity) {
        trcWritef(product, TRC_EVENT_CII_PRINTF, componentShop, stockReserve.klass, stockReserve.function, 1, &order,
                  "item %u: %u wanted, %u left", order.item, order.quantity, left);
        return scope.ret(rcNoStock);
    }
    left -= order.quantity;
    trcWritef(product, TRC_EVENT_CII_PRINTF, componentShop, stockReserve.klass, stockReserve.function, 2, &order,
              "item %u: %u taken, %u left", order.item, order.quantity, left);
    return scope.ret(0);
}

void releaseStock(const Order& order)
{
    kelvo::TraceScope scope(stockRelease, TRC_EVENT_CII_ENTRY, &order);
    std::lock_guard<std::mutex> hold(stockLock);
    units[order.item] += order.quantity;
}

}  // namespace demo
