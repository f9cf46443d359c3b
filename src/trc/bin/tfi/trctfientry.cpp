// trcTfiEntryFactory and trcTfiEntry. The order of the checks shows in the
// messages: "product" tests the state before it reads its tokens,
// "component" and "class" read their tokens first.
#include "trctfientry.h"

#include "trctfiexc.h"

#include <cstring>

namespace {

enum { product, component, klass, function };

[[noreturn]] void fail(const trcTfiEntryFactory& factory, const char* message)
{
    throw trcTfiExc(trcTfiExcSyntax, message, factory.file(), factory.line());
}

void readTfiversion(trcTfiEntryFactory& factory, trcTfiEntry& entry)
{
    trcTfiToken version(factory.tokens, trcTfiTokenValue, "expected TFI version number");
    std::memset(factory.ids, 0, sizeof factory.ids);
    factory.tfiversionSeen = true;
    entry.ids[product] = version.value;
    entry.kind = trcTfiEntryProduct;
}

void readBldlvl(trcTfiEntryFactory& factory, trcTfiEntry& entry)
{
    if (!factory.tfiversionSeen)
        fail(factory, "missing tfiversion specification");
    trcTfiToken level(factory.tokens, trcTfiTokenQuoted, "expected build level");
    factory.bldlvlSeen = true;
    entry.name = level.text;
}

void readProduct(trcTfiEntryFactory& factory, trcTfiEntry& entry)
{
    if (!factory.tfiversionSeen)
        fail(factory, "missing tfiversion specification");
    if (!factory.bldlvlSeen)
        fail(factory, "missing bldlvl specification");
    trcTfiToken name(factory.tokens, trcTfiTokenName, "expected product name");
    trcTfiToken value(factory.tokens, trcTfiTokenValue, "expected product value");
    std::memset(factory.ids, 0, sizeof factory.ids);
    factory.ids[product] = value.value;
    entry.name = name.text;
    entry.kind = trcTfiEntryProduct;
}

void readComponent(trcTfiEntryFactory& factory, trcTfiEntry& entry)
{
    trcTfiToken name(factory.tokens, trcTfiTokenName, "expected component name");
    trcTfiToken value(factory.tokens, trcTfiTokenValue, "expected component value");
    if (factory.ids[product] == 0)
        fail(factory, "missing product specification");
    factory.ids[component] = value.value;
    factory.ids[klass] = 0;
    factory.ids[function] = 0;
    entry.name = name.text;
    entry.kind = trcTfiEntryComponent;
}

void readClass(trcTfiEntryFactory& factory, trcTfiEntry& entry)
{
    trcTfiToken name(factory.tokens, trcTfiTokenName, "expected class name");
    if (factory.ids[component] == 0)
        fail(factory, "missing component specification");
    if (factory.ids[klass] == 255)
        fail(factory, "too many class specifications");
    ++factory.ids[klass];
    factory.ids[function] = 0;
    entry.name = name.text;
    entry.kind = trcTfiEntryClass;
}

void readFunction(trcTfiEntryFactory& factory, trcTfiEntry& entry, const trcTfiToken& first)
{
    if (factory.ids[klass] == 0)
        fail(factory, "missing class specification");
    if (factory.ids[function] == 255)
        fail(factory, "too many function specifications");
    ++factory.ids[function];
    entry.name = first.text;
    entry.kind = trcTfiEntryFunction;
}

}  // namespace

trcTfiEntryFactory::trcTfiEntryFactory(const char* fileName)
    : tokens(fileName), ids{0, 0, 0, 0}, tfiversionSeen(false), bldlvlSeen(false)
{}

bool trcTfiEntryFactory::isEmpty()
{
    tokens.advance();
    return *tokens.cursor == '\0';
}

trcTfiEntry::trcTfiEntry(trcTfiEntryFactory& factory) : ids{0, 0, 0, 0}, kind(trcTfiEntryNone)
{
    if (factory.isEmpty())
        throw trcTfiExc(trcTfiExcInternal, "internal error: no more entries in file", factory.file(), factory.line());
    trcTfiToken first(factory.tokens);
    switch (first.type) {
    case trcTfiTokenTfiversion:
        readTfiversion(factory, *this);
        return;
    case trcTfiTokenBldlvl:
        readBldlvl(factory, *this);
        return;
    case trcTfiTokenProduct:
        readProduct(factory, *this);
        break;
    case trcTfiTokenComponent:
        readComponent(factory, *this);
        break;
    case trcTfiTokenClass:
        readClass(factory, *this);
        break;
    case trcTfiTokenName:
        readFunction(factory, *this, first);
        break;
    default:
        fail(factory, "expected 'product', 'component', 'class' or function name");
    }
    std::memcpy(ids, factory.ids, sizeof ids);
}
