/* Every public header compiles as C99 and links from a C program. */
#include "rqcore/rqcore.h"
#include "rqcore/date.h"
#include "rqcore/version.h"
#include "rqcore/tz.h"
#include "rqsis/rqsis.h"
#include "rqcore/time.h"

#include <time.h> /* still the C library's header */

#include <stdio.h>
#include <string.h>

int main(void)
{
    const char *banner = GetRqCoreVerID();
    RQHANDLE h = MemAlloc(16);
    int ok = banner != NULL && strncmp(banner, "\nVarnelLibrary:rqcore", 21) == 0 && h != 0 &&
             MemLock(h) != NULL && DX_CksumArray(0xFFFF, "123456789", 9) == 0x6F91;
    DX_DATE date;
    U16 dayId = 0;
    U32 letter = 99;
    ok = ok && DX_DateSet(&date, 1, 0, 1991) == 0 && DX_DateGetDayId(&date, &dayId) == 0 && dayId == 1 &&
         DX_VersionSplit(0, "B.05.12", &letter, NULL, NULL, NULL) == 0 && letter == 1;
    {
        DX_TIME t;
        time_t now = time(NULL);
        ok = ok && now > 0 && DX_TimeSetFromTimeId(&t, 86400) == 0 && t.date.day == 2 && t.seconds == 0;
    }
    char field[8];
    U32 places = 5;
    ok = ok && DX_FormatWriteU32F(field, &places, 42u, -4) == field + 4 && strcmp(field, "42  ") == 0;
    HLIST zones = 0;
    U32 type = 0;
    ok = ok && DX_TZCreateTZRulesEmpty(&zones) == 0 &&
         DX_TZGetLocalType(zones, "EST5EDT", &type, 0) == DX_TZ_ERR_NO_ZONE && DX_TZRulesDestroy(&zones) == 0 &&
         zones == 0;
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
