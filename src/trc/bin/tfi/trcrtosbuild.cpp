// Turning the entries of one .tfi file into names of the dictionary. A slot
// is free only while it holds the very pointer noName0; the first name to
// reach it stays, whichever file or entry brings a later one.
#include "trcrtosdict.h"
#include "trcrtos.h"

#include "trctfientry.h"
#include "trctfiexc.h"

#include <kelvo/facility.h>

#include <cstdio>
#include <cstring>
#include <new>

namespace {

constexpr char noLevel[] = TRC_NO_VERSION;

// A new table of 256 slots, all holding fill.
template <class T>
T* newTable(T fill)
{
    void* memory = trcNameAllocate(256 * sizeof(T));
    T* table = static_cast<T*>(memory);
    for (int i = 0; i < 256; ++i)
        new (table + i) T(fill);
    return table;
}

// Warns on standard error when the file's build level does not match the
// product's version in the trace; reading goes on either way.
void checkProduct(const char* fileName, const char* bldlvl, const trcHeader_t* header, unsigned p)
{
    if (trcIsProdVersionOK(bldlvl, header, static_cast<int>(p)) == 0)
        return;
    const char* level = trcGetBldLvl(bldlvl);
    if (std::strcmp(level, noLevel) == 0)
        level = "not specified";
    std::fprintf(stderr, "file %s: incorrect bldlvl, it is <%s>.  It should be %8.8s\n", fileName, level,
                 header->prodVersion[p]);
}

void addProduct(const trcTfiEntry& e)
{
    unsigned p = e.ids[0];
    if (trcNameProd[p] != noName0)
        return;
    trcNameProd[p] = strNew(e.name);
    trcNameComp[p] = newTable<const char*>(noName0);
    trcNameClass[p] = newTable<const char**>(noName1);
    trcNameFnc[p] = newTable<const char***>(noName2);
}

void addComponent(const trcTfiEntry& e)
{
    unsigned p = e.ids[0], c = e.ids[1];
    if (trcNameComp[p][c] != noName0)
        return;
    trcNameComp[p][c] = strNew(e.name);
    trcNameClass[p][c] = newTable<const char*>(noName0);
    trcNameFnc[p][c] = newTable<const char**>(noName1);
}

void addClass(const trcTfiEntry& e)
{
    unsigned p = e.ids[0], c = e.ids[1], k = e.ids[2];
    if (trcNameClass[p][c][k] != noName0)
        return;
    trcNameClass[p][c][k] = strNew(e.name);
    trcNameFnc[p][c][k] = newTable<const char*>(noName0);
}

void addFunction(const trcTfiEntry& e)
{
    unsigned p = e.ids[0], c = e.ids[1], k = e.ids[2], f = e.ids[3];
    if (trcNameFnc[p][c][k][f] != noName0)
        return;
    trcNameFnc[p][c][k][f] = strNew(e.name);
}

void apply(const trcTfiEntry& e, const char* fileName, const char* bldlvl, const trcHeader_t* header)
{
    switch (e.kind) {
    case trcTfiEntryProduct:
        checkProduct(fileName, bldlvl, header, e.ids[0]);
        addProduct(e);
        break;
    case trcTfiEntryComponent:
        addComponent(e);
        break;
    case trcTfiEntryClass:
        addClass(e);
        break;
    case trcTfiEntryFunction:
        addFunction(e);
        break;
    default:
        break;
    }
}

}  // namespace

int trcIsProdVersionOK(const char* bldlvl, const trcHeader_t* header, int product)
{
    const char* version = header->prodVersion[static_cast<unsigned>(product) & 0xFF];
    if (std::strcmp(bldlvl, sUnexpandedSign) == 0)
        return 1;
    if (std::strncmp(version, sUnexpandedSign, TRC_TEXT8) == 0)
        return 1;
    if (std::strncmp(version, noLevel, TRC_TEXT8) == 0)
        return 0;
    if (std::strncmp(version, trcGetBldLvl(bldlvl), TRC_TEXT8) == 0)
        return 0;
    return 1;
}

void trcTfiBuildit(const char* fileName, const trcHeader_t* header)
{
    trcTfiEntryFactory factory(fileName);
    trcTfiEntry version(factory);
    if (version.kind > trcTfiEntryFunction || version.ids[version.kind] != 1)
        throw trcTfiExc(trcTfiExcSyntax, "Wrong tfiversion; should be 1", factory.file(), factory.line());
    trcTfiEntry level(factory);
    while (!factory.isEmpty()) {
        trcTfiEntry entry(factory);
        apply(entry, fileName, level.name, header);
    }
}
