// Arbitrary catalog files through the catalog getters and writers, and
// arbitrary texts, widths and counters through the formatting primitives and
// the message formatter.  A catalog that loads and writes without error must
// read back with the same values; any mismatch, leak of a platform block,
// crash or sanitizer report is a finding.
#include "rqcore/lists.h"
#include "rqcore/nls.h"
#include "rqcore/profiles.h"
#include "fuzz_support.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string tempPath(const char *pattern)
{
    std::string name = pattern;
    int fd = mkstemp(name.data());
    if (fd >= 0)
        close(fd);
    return name;
}

const std::string &inputPath()
{
    static const std::string path = tempPath("/tmp/fuzz_nls_in.XXXXXX");
    return path;
}

const std::string &outputPath()
{
    static const std::string path = tempPath("/tmp/fuzz_nls_out.XXXXXX");
    return path;
}

void check(bool ok, const char *what)
{
    if (!ok) {
        std::fprintf(stderr, "mismatch: %s\n", what);
        std::abort();
    }
}

// Every value of a and its elements, looked up in b.
void sameValues(HLIST a, HLIST b)
{
    char section[NLS_SECTION_NAME_SIZE];
    char key[PROFIL_KEY_NAME_SIZE];
    char value[NLS_VALUE_SIZE];
    char again[NLS_VALUE_SIZE];
    HLIST keys = 0;
    for (U32 rc = DX_ListGetFirst(a, section, &keys); rc == 0; rc = DX_ListGetNext(a, section, &keys)) {
        for (U32 k = DX_ListGetFirst(keys, key, value); k == 0; k = DX_ListGetNext(keys, key, value)) {
            check(DX_NLSGet(b, again, sizeof again, section, key) == 0, "key lost");
            check(std::strcmp(value, again) == 0, "value changed");
        }
    }
}

// The catalog read section by section, from the section names in file order.
U32 perSection(const std::string &path, HLIST *cat)
{
    HLIST names = 0;
    U32 rc = DX_GetProfileSections(path.c_str(), &names);
    if (rc != 0)
        return rc == PROFIL_ERR_DUP_SECTION ? U32{NLS_ERR_DUP_SECTION} : rc;
    HLIST inOrder = 0;
    DX_ListCreate(&inOrder, PROFIL_SECTION_NAME_SIZE, 0, 0x20, nullptr, nullptr);
    char name[PROFIL_SECTION_NAME_SIZE];
    for (U32 w = DX_ListGetFirst(names, name, nullptr); w == 0; w = DX_ListGetNext(names, name, nullptr))
        DX_ListAddFirst(inOrder, name, nullptr);
    rc = DX_NLSListCreateFromSections(cat, NLS_MODE_PRIORITY, path.c_str(), inOrder);
    DX_ListDestroy(&names);
    DX_ListDestroy(&inOrder);
    return rc;
}

void catalog(const std::string &path)
{
    HLIST cat = 0;
    HLIST reference = 0;
    U32 rc = DX_NLSListCreate(&cat, NLS_MODE_PRIORITY, path.c_str());
    check(perSection(path, &reference) == rc, "one-pass and per-section loads disagree");
    if (rc != 0)
        return;
    U32 a = 0, b = 0;
    DX_ListGetElemNum(cat, &a);
    DX_ListGetElemNum(reference, &b);
    check(a == b, "section counts differ");
    sameValues(cat, reference);
    sameValues(reference, cat);
    DX_NLSListDestroy(&reference);
    static const char *const kSections[] = {"datef", "timef", "S", ""};
    static const char *const kKeys[] = {"day", "DAY", "k", ""};
    char out[NLS_VALUE_SIZE];
    for (const char *s : kSections)
        for (const char *k : kKeys) {
            DX_NLSGet(cat, out, sizeof out, s, k);
            for (U32 i : {0u, 1u, 6u, 11u, 0xFFFFFFFFu})
                DX_NLSGetElement(cat, out, i % 7 + 1, s, k, i);
            const char *args[] = {"a", "bb", nullptr};
            DX_NLSFormat(cat, out, 17, s, k, args, 3);
        }
    if (DX_NLSWriteToAFile(cat, outputPath().c_str()) == 0) {
        HLIST back = 0;
        check(DX_NLSListCreate(&back, NLS_MODE_PLAIN, outputPath().c_str()) == 0, "written catalog does not load");
        sameValues(cat, back);
        DX_NLSListDestroy(&back);
    }
    DX_NLSListDestroy(&cat);
}

// Any value the writer accepts reads back unchanged, alone and as a list.
void writeValue(const std::string &text)
{
    if (text.size() >= NLS_VALUE_SIZE)
        return;
    HLIST cat = 0, names = 0;
    DX_ListCreate(&names, PROFIL_SECTION_NAME_SIZE, 0, 0x20, nullptr, nullptr);
    U32 rc = DX_NLSListCreateFromSections(&cat, NLS_MODE_PLAIN, outputPath().c_str(), names);
    DX_ListDestroy(&names);
    if (rc != 0)
        return;
    DX_NLSAddSection(cat, "s");
    std::string list = "{" + text + "}";
    bool plain = DX_NLSAddEntry(cat, "s", "k", text.c_str()) == 0;
    bool braced = DX_NLSAddEntry(cat, "s", "l", list.c_str()) == 0;
    if ((plain || braced) && DX_NLSWriteToAFile(cat, outputPath().c_str()) == 0) {
        HLIST back = 0;
        check(DX_NLSListCreate(&back, NLS_MODE_PLAIN, outputPath().c_str()) == 0, "written value does not load");
        sameValues(cat, back);
        DX_NLSListDestroy(&back);
    }
    DX_NLSListDestroy(&cat);
}

void primitives(const uint8_t *data, size_t size, const std::string &text)
{
    if (size < 6)
        return;
    S16 width = static_cast<S16>(data[0] | data[1] << 8);
    U32 places = (data[2] | data[3] << 8) % 512u;
    char buffer[513];
    U32 remaining = places;
    char *end = DX_FormatWriteStrF(buffer, &remaining, text.c_str() + 4, width);
    check(end >= buffer && end <= buffer + places && *end == '\0', "field overflows");
    remaining = places;
    DX_FormatWriteU32F(buffer, &remaining, static_cast<U32>(data[4]) * 0x01010101u, width);
    S16 s = 0;
    U16 u = 0;
    DX_FormatReadS16(text.c_str(), &s);
    DX_FormatReadU16(text.c_str(), &u);
    U32 argSize = data[5] % 40u;
    const char *next = DX_FormatArgumentGet(text.c_str() + 4, buffer, argSize, "d");
    check(next >= text.c_str() + 4 && next <= text.c_str() + text.size(), "argument walks out");
    const char *args[] = {"x", "", "zz", "www", nullptr, "v", "u", "t", "s"};
    U32 need = 0;
    U32 rc = FormatSizeGet(text.c_str(), args, data[5] % 10u, &need);
    U32 got = FormatPrint(buffer, places + 1, text.c_str(), args, data[5] % 10u);
    check(rc == 0 ? (got == 0) == (need <= places + 1) : got == rc, "size and print disagree");
    if (got == 0)
        check(std::strlen(buffer) + 1 == need, "size wrong");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 16 * 1024)
        return 0;
    fuzz::LeakGuard leaks;
    if (!fuzz::writeInput(inputPath().c_str(), data, size))
        return 0;
    catalog(inputPath());
    std::string text(reinterpret_cast<const char *>(data), size);
    text.resize(std::strlen(text.c_str()));
    text.append(4, '\0');
    primitives(data, size, text);
    writeValue(text.c_str());
    return 0;
}
