// Shop: an order is validated, priced, taken from stock and paid for. Each
// function is traced with a scope object, so that its entry and its exit
// with the return code frame whatever it calls.
#include "demo.h"

#include <cstdio>

namespace demo {
namespace {

constexpr unsigned maxQuantity = 5;
constexpr unsigned priceCents[itemCount + 1] = {0, 1250, 4999, 799, 18900};
constexpr const char* itemName[itemCount + 1] = {"", "kettle", "lamp", "mug", "bicycle"};

int validate(const Order& order)
{
    kelvo::TraceScope scope(orderValidate, TRC_EVENT_API_ENTRY, &order);
    if (order.item >= 1 && order.item <= itemCount && order.quantity >= 1 && order.quantity <= maxQuantity)
        return scope.ret(0);
    trcWritef(product, TRC_EVENT_NON_FATAL_ERROR, componentShop, orderValidate.klass, orderValidate.function, 1, &order,
              "order %u.%u refused: item %u, quantity %u", order.thread, order.number, order.item, order.quantity);
    return scope.ret(rcRefused);
}

void price(Order& order)
{
    kelvo::TraceScope scope(orderPrice, TRC_EVENT_API_ENTRY, &order);
    order.totalCents = priceCents[order.item] * order.quantity;
    trcWritef(product, TRC_EVENT_API_PRINTF, componentShop, orderPrice.klass, orderPrice.function, 1, &order,
              "%u x %s at %u.%02u = %u.%02u", order.quantity, itemName[order.item], priceCents[order.item] / 100,
              priceCents[order.item] % 100, order.totalCents / 100, order.totalCents % 100);
}

}  // namespace

int placeOrder(Order& order, bool loseLedger)
{
    char text[64];
    std::snprintf(text, sizeof text, "order %u.%u", order.thread, order.number);
    kelvo::TraceScope scope(orderPlace, TRC_EVENT_API_ENTRY, &order, text);
    int rc = validate(order);
    if (rc != 0)
        return scope.ret(rc);
    price(order);
    rc = reserveStock(order);
    if (rc != 0)
        return scope.ret(rc);
    rc = chargePayment(order, loseLedger);
    if (rc != 0)
        releaseStock(order);
    return scope.ret(rc);
}

}  // namespace demo
