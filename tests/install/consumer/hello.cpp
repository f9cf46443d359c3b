// A traced program in C++, built against an installed kelvo through
// find_package(kelvo): a scope object around one text record, all three of
// which a running trace must take.
#include <kelvo/trace.hpp>

#include <cstdio>

namespace {

constexpr kelvo::TracePlace cxxMain{7, 1, 1, 2};

int run()
{
    kelvo::TraceScope scope(cxxMain, TRC_EVENT_API_ENTRY, nullptr, "scope");
    const char text[] = "hello from find_package";
    int rc = trcWrite(cxxMain.product, TRC_EVENT_API_PRINTF, cxxMain.component, cxxMain.klass, cxxMain.function, 1,
                      nullptr, text, sizeof text - 1);
    return scope.ret(rc);
}

}  // namespace

int main()
{
    int rc = run();
    if (rc != 0)
        std::printf("hello-cmake: trcWrite gave %d\n", rc);
    return rc == 0 ? 0 : 1;
}
