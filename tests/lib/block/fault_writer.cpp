// A traced program for the fault tests, built with the facility's sources
// and a hook before every store of the ring's structure: it writes records
// "fault n=<n>" and, before the given store of its last record, stops
// itself (as under a debugger or Ctrl-Z) or dies (as when killed).
//   fault_writer <records> stop|die <store>
#include <kelvo/trace.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace kelvo {

long storesLeft = -1;
bool dieThere = false;

void areaStoreHook()
{
    if (storesLeft == 0) {
        storesLeft = -1;
        if (dieThere)
            _exit(9);
        raise(SIGSTOP);
        return;
    }
    if (storesLeft > 0)
        --storesLeft;
}

}  // namespace kelvo

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    long count = std::atol(argv[1]);
    kelvo::dieThere = std::strcmp(argv[2], "die") == 0;
    for (long n = 0; n < count; ++n) {
        if (n == count - 1)
            kelvo::storesLeft = std::atol(argv[3]);
        char text[32];
        int length = std::snprintf(text, sizeof text, "fault n=%ld", n);
        if (trcWrite(1, 30, 2, 3, 4, 5, nullptr, text, static_cast<unsigned>(length)) != 0)
            return 3;
    }
    return 0;
}
