/*
 * A program outside the source tree, built against an installed rqcore (by
 * consumer.sh, once through pkg-config and once through find_package): it
 * converts Windows-31J text with the installed character-set maps, encodes the
 * result in base64, and asks the platform layer for the process id.
 *
 * Usage: consumer <datadir>   (pkg-config --variable=datadir rqcore)
 */
#include <rqcore/rqcore.h>
#include <rqsis/rqsis.h>

#include <stdio.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    char maps[4096];
    UNICODE_CONVERTER *in = NULL;
    UNICODE_CONVERTER *out = NULL;
    char *utf8 = NULL;
    char *base64 = NULL;
    const char *end = NULL;
    const unsigned char *p;
    uint32_t pid = 0;
    U32 status;

    if (argc != 2) {
        fprintf(stderr, "usage: consumer <datadir>\n");
        return 2;
    }
    snprintf(maps, sizeof maps, "%s/charmaps", argv[1]);
    /* "Nihon" in Windows-31J, a name that only the installed charmap.config
     * knows, with its map file MSCP932.MAP. */
    status = CHARMAP_setConfigDirectory(maps);
    if (status == 0)
        status = UNICODE_Initialize(0);
    if (status == 0)
        status = UNICODE_AutoConverterCreate(0, &in, maps, "Windows-31J");
    if (status == 0)
        status = UNICODE_AutoConverterCreate(0, &out, maps, "UTF-8");
    if (status == 0)
        status = UNICODE_FullyAutoConvert(0, 0, in, "\x93\xfa\x96\x7b", out, &utf8, &end);
    printf("convert: 0x%X\n", (unsigned)status);
    if (status == 0) {
        printf("utf-8:");
        for (p = (const unsigned char *)utf8; *p != '\0'; ++p)
            printf(" %02x", *p);
        printf("\n");
        status = ENCODE_convertToBase64(utf8, 6, &base64);
        printf("base64: 0x%X %s\n", (unsigned)status, status == 0 ? base64 : "");
    }
    printf("sis pid: %s\n", SIS_ProcessIdGet(&pid) == 0 && pid == (uint32_t)getpid() ? "ok" : "wrong");
    RQCORE_free(base64);
    UNICODE_BufferFree((void **)&utf8);
    if (in != NULL)
        UNICODE_AutoConverterDestroy(0, &in);
    if (out != NULL)
        UNICODE_AutoConverterDestroy(0, &out);
    return status == 0 ? 0 : 1;
}
