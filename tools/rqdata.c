/*
 * rqdata: the operator's tool for the library's data files.
 *
 *   rqdata compile DEFINITION TABLE   compile a definition file into a string table
 *   rqdata list TABLE                 print every key and text, in key order, as a
 *                                     definition file that compiles to the same table
 *   rqdata get TABLE KEY              print the text stored under KEY and a newline
 *   rqdata encode BINARY CODEFILE     write a binary file as a code file
 *   rqdata decode CODEFILE BINARY     turn a code file back into the binary file
 *
 * Exit status: 0 done; 1 bad data (a file that cannot be read or written, a
 * malformed definition file, a damaged table or code file, a key that is not
 * in the table; a failed conversion removes its output file); 2 usage (unknown command, wrong arguments, a key that is not
 * a number).  Messages go to standard error, one line each, naming the file.
 */
#include "rqcore/rqcore.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { EXIT_OK = 0, EXIT_DATA = 1, EXIT_USAGE = 2 };

static const char kUsage[] =
    "usage: rqdata COMMAND ARGUMENTS\n"
    "\n"
    "commands:\n"
    "  compile DEFINITION TABLE   compile a definition file into a string table\n"
    "  list TABLE                 print a table's keys and texts in key order,\n"
    "                             in definition-file form\n"
    "  get TABLE KEY              print the text stored under KEY (decimal or 0x hex),\n"
    "                             followed by a newline\n"
    "  encode BINARY CODEFILE     convert a binary file to a code file\n"
    "  decode CODEFILE BINARY     convert a code file back to a binary file\n"
    "  --help, -h                 print this text\n"
    "  --version                  print the library's and the formats' versions\n"
    "\n"
    "exit status: 0 done, 1 bad data (unreadable, malformed or damaged file,\n"
    "key not found), 2 usage error\n";

static int usage(const char *why)
{
    if (why != NULL)
        fprintf(stderr, "rqdata: %s\n", why);
    fputs(kUsage, stderr);
    return EXIT_USAGE;
}

/* Accepts 1 to 4294967295, decimal or 0x hexadecimal, nothing after it. */
static int parseKey(const char *text, U32 *key)
{
    char *end = NULL;
    unsigned long long v;
    if (text[0] == '\0' || text[0] == '-' || text[0] == '+' || text[0] == ' ')
        return 0;
    errno = 0;
    v = strtoull(text, &end, 0);
    if (errno != 0 || *end != '\0' || v == 0 || v > 0xFFFFFFFFull)
        return 0;
    *key = (U32)v;
    return 1;
}

/* What an operator should read for a string-table status. */
static const char *ldstrWhat(U32 rc)
{
    switch (rc) {
    case LDSTR_ERR_OPEN_READ:
        return "cannot open the file";
    case LDSTR_ERR_READ_HEADER:
        return "not a string table: shorter than its header";
    case LDSTR_ERR_READ_SEEK:
    case LDSTR_ERR_READ_TABLE:
        return "not a string table, or a damaged one: its hash table is missing or unsound";
    case LDSTR_ERR_LOAD_ABSENT:
        return "key not found";
    case LDSTR_ERR_LOAD_SEEK:
    case LDSTR_ERR_LOAD_MARKER:
    case LDSTR_ERR_LOAD_TEXT:
        return "damaged string table: a text lies past the end of the file";
    case LDSTR_ERR_HT_MEMORY:
    case LDSTR_ERR_CAT_MEMORY:
        return "out of memory";
    default:
        return "cannot read the string table";
    }
}

static int tableFailure(const char *path, U32 rc)
{
    fprintf(stderr, "rqdata: %s: %s (0x%X)\n", path, ldstrWhat(rc), (unsigned)rc);
    return EXIT_DATA;
}

static int cmdCompile(const char *definition, const char *table)
{
    char report[LDSTR_REPORT_SIZE];
    U32 rc = DX_LdStrCreate(definition, table, report);
    size_t n;
    const char *what = report;
    if (rc == 0)
        return EXIT_OK;
    /* The library's report reads "ERROR: <what> \n": keep the what. */
    if (strncmp(what, "ERROR: ", 7) == 0)
        what += 7;
    n = strlen(what);
    while (n > 0 && (what[n - 1] == '\n' || what[n - 1] == ' '))
        --n;
    fprintf(stderr, "rqdata: %s: %.*s (0x%X)\n", definition, (int)n, n > 0 ? what : "cannot compile",
            (unsigned)rc);
    return EXIT_DATA;
}

/* Opens a table for reading, with the file's size to check stored lengths by. */
static U32 openTable(DX_LDSTR *h, const char *path, U32 *fileSize)
{
    U32 rc;
    memset(h, 0, sizeof *h);
    rc = DX_LdStrOpen(h, path, 0, LDSTR_MODE_READ);
    if (rc == 0 && FileSizeGet(path, fileSize) != 0)
        rc = LDSTR_ERR_READ_HEADER;
    return rc;
}

/* Loads one key's text into a fresh buffer (free with free()).  A stored
 * length is untrusted: one longer than the whole file is refused before any
 * buffer is sized by it. */
static U32 loadText(DX_LDSTR *h, U32 fileSize, U32 key, char **text, U32 *length)
{
    char *buffer;
    U32 rc = DX_LdStrTextLength(h, key, length);
    if (rc != 0)
        return rc;
    if (*length >= fileSize)
        return LDSTR_ERR_LOAD_TEXT;
    buffer = (char *)malloc((size_t)*length + 1);
    if (buffer == NULL)
        return LDSTR_ERR_HT_MEMORY;
    rc = DX_LdStrLoad(h, key, buffer, NULL, 0);
    if (rc != 0) {
        free(buffer);
        return rc;
    }
    *text = buffer;
    return 0;
}

struct KeyList {
    U32 *keys;
    U32 count;
    U32 room;
};

static U32 collectKey(void *context, U32 key, U32 length)
{
    struct KeyList *list = (struct KeyList *)context;
    (void)length;
    if (list->count == list->room)
        return LDSTR_ERR_READ_TABLE; /* more used slots than the header counts */
    list->keys[list->count++] = key;
    return 0;
}

static int compareKeys(const void *a, const void *b)
{
    U32 x = *(const U32 *)a, y = *(const U32 *)b;
    return (x > y) - (x < y);
}

/* Writes a text in definition-file form: escapes for the backslash and for
 * control bytes, \s for a leading blank; other bytes as they are. */
static void printEscaped(const char *text, U32 length)
{
    U32 i;
    for (i = 0; i < length; ++i) {
        unsigned char c = (unsigned char)text[i];
        if (c == '\\')
            fputs("\\\\", stdout);
        else if (c == '\n')
            fputs("\\n", stdout);
        else if (c == '\r')
            fputs("\\r", stdout);
        else if (c == '\t')
            fputs("\\t", stdout);
        else if (c == ' ' && i == 0)
            fputs("\\s", stdout);
        else if (c < 0x20 || c == 0x7F)
            printf("\\x%02X", c);
        else
            putchar(c);
    }
}

static int cmdList(const char *path)
{
    DX_LDSTR h;
    struct KeyList list = {NULL, 0, 0};
    U32 rc, i, fileSize = 0;
    int status = EXIT_OK;
    rc = openTable(&h, path, &fileSize);
    if (rc != 0) {
        DX_LdStrRelease(&h);
        return tableFailure(path, rc);
    }
    list.room = h.count;
    list.keys = (U32 *)malloc(((size_t)h.count + 1) * sizeof(U32));
    if (list.keys == NULL) {
        DX_LdStrRelease(&h);
        return tableFailure(path, LDSTR_ERR_HT_MEMORY);
    }
    rc = DX_LdStrForEach(&h, collectKey, &list);
    if (rc != 0) {
        free(list.keys);
        DX_LdStrRelease(&h);
        return tableFailure(path, rc);
    }
    qsort(list.keys, list.count, sizeof(U32), compareKeys);
    printf("# %s: %u keys\n[strings]\n", path, (unsigned)list.count);
    for (i = 0; i < list.count; ++i) {
        char *text = NULL;
        U32 length = 0;
        rc = loadText(&h, fileSize, list.keys[i], &text, &length);
        if (rc != 0) {
            fflush(stdout);
            fprintf(stderr, "rqdata: %s: key %u: %s (0x%X)\n", path, (unsigned)list.keys[i], ldstrWhat(rc),
                    (unsigned)rc);
            status = EXIT_DATA;
            continue;
        }
        printf("%u = ", (unsigned)list.keys[i]);
        printEscaped(text, length);
        putchar('\n');
        free(text);
    }
    free(list.keys);
    DX_LdStrRelease(&h);
    return status;
}

static int cmdGet(const char *path, const char *keyText)
{
    DX_LDSTR h;
    U32 key = 0, rc, length = 0, fileSize = 0;
    char *text = NULL;
    if (!parseKey(keyText, &key)) {
        fprintf(stderr, "rqdata: bad key \"%s\": a number from 1 to 4294967295 (decimal or 0x hex)\n", keyText);
        return EXIT_USAGE;
    }
    rc = openTable(&h, path, &fileSize);
    if (rc == 0)
        rc = loadText(&h, fileSize, key, &text, &length);
    DX_LdStrRelease(&h);
    if (rc == LDSTR_ERR_LOAD_ABSENT) {
        fprintf(stderr, "rqdata: %s: key %u not found\n", path, (unsigned)key);
        return EXIT_DATA;
    }
    if (rc != 0)
        return tableFailure(path, rc);
    fwrite(text, 1, length, stdout);
    putchar('\n');
    free(text);
    return EXIT_OK;
}

static const char *codeWhat(U32 rc)
{
    switch (rc) {
    case DX_CODE_ERR_WRITE:
        return "short write";
    case DX_CODE_ERR_READ:
        return "truncated code file";
    case DX_CODE_ERR_CHARACTER:
        return "damaged code file: a character outside the code alphabet";
    case DX_CODE_ERR_CHECKSUM:
        return "damaged code file: checksum mismatch";
    case DX_CODE_ERR_VERSION:
        return "not a code file, or a damaged one: a block's information line is wrong";
    case DX_CODE_ERR_COUNT:
    case DX_CODE_ERR_DECODE_SPACE:
    case DX_CODE_ERR_DECODE_SIZE:
    case DX_CODE_ERR_DECODE_TYPE:
    case DX_CODE_ERR_UNPACK_SPACE:
    case DX_CODE_ERR_UNPACK_CUT:
        return "damaged code file: a block's count or packing does not fit a block";
    default:
        return "cannot convert";
    }
}

/* In both directions 0x15364 names the binary file and 0x15365 the code
 * file.  A failed conversion leaves no output behind: a half-written file
 * would pass for a good one. */
static int conversionFailure(U32 rc, const char *binary, const char *code, int toCode)
{
    const char *output = toCode ? code : binary;
    int outputUnopened = rc == (toCode ? (U32)DX_CODE_ERR_TEXT_FILE : (U32)DX_CODE_ERR_BINARY_FILE);
    if (rc == DX_CODE_ERR_BINARY_FILE)
        fprintf(stderr, "rqdata: %s: cannot open for %s (0x%X)\n", binary, toCode ? "reading" : "writing",
                (unsigned)rc);
    else if (rc == DX_CODE_ERR_TEXT_FILE)
        fprintf(stderr, "rqdata: %s: cannot open for %s (0x%X)\n", code, toCode ? "writing" : "reading",
                (unsigned)rc);
    else if (rc == DX_CODE_ERR_WRITE)
        fprintf(stderr, "rqdata: %s: short write (0x%X)\n", output, (unsigned)rc);
    else
        fprintf(stderr, "rqdata: %s: %s (0x%X)\n", toCode ? binary : code, codeWhat(rc), (unsigned)rc);
    if (!outputUnopened)
        remove(output);
    return EXIT_DATA;
}

static int cmdEncode(const char *binary, const char *code)
{
    U32 rc = DX_CodeBinFileToCharFile(binary, code);
    return rc == 0 ? EXIT_OK : conversionFailure(rc, binary, code, 1);
}

static int cmdDecode(const char *code, const char *binary)
{
    U32 rc = DX_CodeCharFileToBinFile(code, binary);
    return rc == 0 ? EXIT_OK : conversionFailure(rc, binary, code, 0);
}

struct Command {
    const char *name;
    int arguments;
    int (*run2)(const char *, const char *);
    int (*run1)(const char *);
};

static const struct Command kCommands[] = {
    {"compile", 2, cmdCompile, NULL},
    {"list", 1, NULL, cmdList},
    {"get", 2, cmdGet, NULL},
    {"encode", 2, cmdEncode, NULL},
    {"decode", 2, cmdDecode, NULL},
};

int main(int argc, char **argv)
{
    size_t i;
    char version[16];
    int status;
    if (argc < 2)
        return usage("no command given");
    if (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "help") == 0) {
        fputs(kUsage, stdout);
        return EXIT_OK;
    }
    if (strcmp(argv[1], "--version") == 0) {
        DX_LdStrGetVersion(version, NULL, NULL, NULL);
        printf("rqdata\n%sstring tables %s\n", GetRqCoreVerID() + 1, version);
        return EXIT_OK;
    }
    for (i = 0; i < sizeof kCommands / sizeof kCommands[0]; ++i) {
        const struct Command *c = &kCommands[i];
        if (strcmp(argv[1], c->name) != 0)
            continue;
        if (argc - 2 != c->arguments) {
            fprintf(stderr, "rqdata: %s takes %d argument%s\n", c->name, c->arguments, c->arguments == 1 ? "" : "s");
            return usage(NULL);
        }
        status = c->run1 != NULL ? c->run1(argv[2]) : c->run2(argv[2], argv[3]);
        if (fflush(stdout) != 0 || ferror(stdout)) {
            fprintf(stderr, "rqdata: cannot write standard output\n");
            return EXIT_DATA;
        }
        return status;
    }
    fprintf(stderr, "rqdata: unknown command \"%s\"\n", argv[1]);
    return usage(NULL);
}
