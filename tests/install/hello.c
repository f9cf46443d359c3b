/* A traced program in C, built against an installed kelvo through
 * pkg-config: one printf record, which a running trace must take. */
#include <kelvo/trace.h>

#include <stdio.h>

int main(void)
{
    int rc;

    trcSetProdVersion(7, "inst.1");
    rc = trcWritef(7, TRC_EVENT_API_PRINTF, 1, 1, 1, 1, NULL, "hello from %s", "pkg-config");
    if (rc != 0) {
        printf("hello-pc: trcWritef gave %d\n", rc);
        return 1;
    }
    return 0;
}
