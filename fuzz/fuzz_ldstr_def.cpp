// The definition-file reader: arbitrary definition files compiled into a
// table.  A compile that succeeds has verified every key itself; the table
// must then reopen with as many keys as it names.  Any leak, crash or
// sanitizer report is a finding.
#include "rqcore/ldstr.h"
#include "rqsis/rqsis_test.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 64 * 1024)
        return 0;
    static const std::string def = "/tmp/fuzz_ldstr_def_" + std::to_string(getpid()) + ".txt";
    static const std::string table = "/tmp/fuzz_ldstr_def_" + std::to_string(getpid()) + ".tbl";
    uint64_t blocksBefore = 0, bytesBefore = 0;
    SIS_TestLiveGet(&blocksBefore, &bytesBefore);
    FILE *f = std::fopen(def.c_str(), "wb");
    if (f == nullptr)
        return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    char report[LDSTR_REPORT_SIZE];
    U32 rc = DX_LdStrCreate(def.c_str(), table.c_str(), report);
    if (std::strlen(report) >= LDSTR_REPORT_SIZE || (rc == 0) != (report[0] == '\0'))
        std::abort();
    if (rc == 0) {
        DX_LDSTR h;
        if (DX_LdStrOpen(&h, table.c_str(), 0, LDSTR_MODE_READ) != 0)
            std::abort();
        DX_LdStrClose(&h);
    } else if (rc != LDSTR_ERR_DEFINITION) {
        std::abort();
    }
    std::remove(table.c_str());
    uint64_t blocksAfter = 0, bytesAfter = 0;
    SIS_TestLiveGet(&blocksAfter, &bytesAfter);
    if (blocksAfter != blocksBefore) {
        std::fprintf(stderr, "leaked %llu blocks\n", static_cast<unsigned long long>(blocksAfter - blocksBefore));
        std::abort();
    }
    return 0;
}
