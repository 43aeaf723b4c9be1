// String tables from arbitrary files: opened for reading (every key listed
// and loaded, with and without a suffix, and appended), then opened for
// update, changed, closed and read back.  A table that this library wrote
// must always reopen; any leak, crash or sanitizer report is a finding.
#include "rqcore/ldstr.h"
#include "rqsis/rqsis_test.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Keys {
    std::vector<U32> keys;
    static U32 visit(void *context, U32 key, U32 /*length*/)
    {
        Keys *k = static_cast<Keys *>(context);
        if (k->keys.size() < 64)
            k->keys.push_back(key);
        return 0;
    }
};

void readAll(const char *path, size_t fileSize, Keys *keys)
{
    DX_LDSTR h;
    if (DX_LdStrOpen(&h, path, 0, LDSTR_MODE_READ) != 0)
        return;
    DX_LdStrForEach(&h, Keys::visit, keys);
    // Stored texts lie inside the file: the file's size and the suffix bound
    // every buffer.
    std::vector<char> buffer(fileSize + 8);
    for (U32 key : keys->keys) {
        U32 length = 0;
        if (DX_LdStrTextLength(&h, key, &length) != 0 || length > fileSize)
            std::abort();
        U32 rc = DX_LdStrLoad(&h, key, buffer.data(), "sfx", 3);
        if (rc == 0 && std::strlen(buffer.data()) > length + 3)
            std::abort();
        char dest[16] = "";
        DX_LdStrLoadCat(&h, key, dest, nullptr, 8);
        if (h.error != 0)
            break;
    }
    char small[4];
    DX_LdStrLoad(&h, 0, small, nullptr, 0);
    if (DX_LdStrClose(&h) != 0)
        DX_LdStrRelease(&h);
}

void update(const char *path, const Keys &keys)
{
    DX_LDSTR h;
    if (DX_LdStrOpen(&h, path, 0, LDSTR_MODE_UPDATE) != 0)
        return;
    for (size_t i = 0; i < keys.keys.size(); i += 2)
        DX_LdStrDeleteFrom(&h, keys.keys[i]);
    for (U32 key = 0xF0000000u; key < 0xF0000010u; ++key)
        DX_LdStrAddTo(&h, key, 0, "added");
    if (DX_LdStrClose(&h) != 0) {
        DX_LdStrRelease(&h);
        return;
    }
    if (DX_LdStrOpen(&h, path, 0, LDSTR_MODE_READ) != 0)
        std::abort();  // what close wrote must reopen
    char buffer[16];
    for (U32 key = 0xF0000000u; key < 0xF0000010u; ++key) {
        U32 rc = DX_LdStrLoad(&h, key, buffer, nullptr, 0);
        if (rc != 0 && rc != LDSTR_ERR_LOAD_ABSENT)
            std::abort();
    }
    DX_LdStrClose(&h);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 64 * 1024)
        return 0;
    static const std::string path = "/tmp/fuzz_ldstr_" + std::to_string(getpid());
    uint64_t blocksBefore = 0, bytesBefore = 0;
    SIS_TestLiveGet(&blocksBefore, &bytesBefore);
    FILE *f = std::fopen(path.c_str(), "wb");
    if (f == nullptr)
        return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    Keys keys;
    readAll(path.c_str(), size, &keys);
    update(path.c_str(), keys);
    uint64_t blocksAfter = 0, bytesAfter = 0;
    SIS_TestLiveGet(&blocksAfter, &bytesAfter);
    if (blocksAfter != blocksBefore) {
        std::fprintf(stderr, "leaked %llu blocks\n", static_cast<unsigned long long>(blocksAfter - blocksBefore));
        std::abort();
    }
    return 0;
}
