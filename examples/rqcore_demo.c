/* rqcore demo: the library's banner and its memory handles. */
#include "rqcore/rqcore.h"

#include <stdio.h>
#include <string.h>

int main(void)
{
    printf("library:%s", GetRqCoreVerID());
    RQHANDLE h = MemAlloc(32);
    if (h == 0)
        return 1;
    char *p = MemLock(h);
    strcpy(p, "hello from a 32-bit handle");
    printf("handle %u holds \"%s\"\n", (unsigned)h, p);
    MemUnlock();
    MemFree(h);
    return 0;
}
