/* Every public header compiles as C99 and links from a C program. */
#include "rqcore/rqcore.h"
#include "rqsis/rqsis.h"

#include <stdio.h>
#include <string.h>

int main(void)
{
    const char *banner = GetRqCoreVerID();
    RQHANDLE h = MemAlloc(16);
    int ok = banner != NULL && strncmp(banner, "\nVarnelLibrary:rqcore", 21) == 0 && h != 0 &&
             MemLock(h) != NULL && DX_CksumArray(0xFFFF, "123456789", 9) == 0x6F91;
    char ldstrVersion[8];
    U32 ldstrLetter = 0;
    ok = ok && DX_LdStrGetVersion(ldstrVersion, &ldstrLetter, NULL, NULL) == 0 && ldstrLetter == 88 &&
         sizeof(DX_LDSTR_SLOT) == 12;
    char pathCopy[8];
    ZOL_TIMER timer;
    ZOL_TimerStart(&timer);
    ok = ok && ZOL_fullpath(pathCopy, "a/b", sizeof pathCopy) == pathCopy && ZOL_PathCmp(pathCopy, "a/b") == 0 &&
         sizeof(ZOL_TIMER) == 40;
    MemUnlock();
    MemFree(h);
    printf("%s\n", ok ? "1 passed, 0 failed" : "0 passed, 1 failed");
    return ok ? 0 : 1;
}
