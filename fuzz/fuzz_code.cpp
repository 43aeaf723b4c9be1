// Code tables: decoding arbitrary text against a plain model of the
// alphabet, unpacking arbitrary bytes against a model of the escapes,
// block round trips, and reading whole code files from arbitrary bytes.
#include "rqcore/cksum.h"
#include "rqcore/code.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

bool same(const void *a, const void *b, size_t n) { return n == 0 || std::memcmp(a, b, n) == 0; }

using Bytes = std::vector<uint8_t>;

void check(bool ok)
{
    if (!ok)
        std::abort();
}

// Characters to bytes, one value at a time; false for a bad character or
// two newlines in a row.
bool modelDecode(const uint8_t *p, size_t n, Bytes &out, U16 &sum)
{
    uint32_t bits = 0;
    int nbits = 0, values = 0;
    bool newline = false;
    sum = 0;
    for (size_t i = 0; i < n; ++i) {
        if (p[i] == '\n') {
            if (newline)
                return false;
            newline = true;
            sum = DX_CksumAdd(sum, '\n');
            continue;
        }
        newline = false;
        if (p[i] < '0' || p[i] > 'o')
            return false;
        uint8_t v = static_cast<uint8_t>(p[i] - '0');
        sum = DX_CksumAdd(sum, v);
        bits = (bits << 6) | v;
        nbits += 6;
        ++values;
        if (nbits >= 8) {
            nbits -= 8;
            out.push_back(static_cast<uint8_t>(bits >> nbits));
        }
    }
    if (values % 4 == 1)  // one value alone still gives a byte
        out.push_back(static_cast<uint8_t>(bits << 2));
    return true;
}

// false when the data ends inside an escape.
bool modelUnpack(const uint8_t *p, size_t n, Bytes &out)
{
    for (size_t i = 0; i < n; ++i) {
        if (p[i] != 7) {
            out.push_back(p[i]);
        } else if (i + 1 >= n) {
            return false;
        } else if (p[i + 1] == 1) {
            out.push_back(7);
            ++i;
        } else if (i + 2 >= n) {
            return false;
        } else {
            out.insert(out.end(), p[i + 1], p[i + 2]);
            i += 2;
        }
    }
    return true;
}

const std::string &tempPath(const char *name)
{
    static std::string paths[2];
    std::string &p = paths[name[0] == 'b'];
    if (p.empty())
        p = "/tmp/fuzz_code_" + std::to_string(getpid()) + "_" + name;
    return p;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    size_t n = size < 60000 ? size : 60000;
    U16 count = static_cast<U16>(n);

    // Decoding straight into the output, checked by the model.
    {
        Bytes expected;
        U16 sum = 0;
        bool valid = modelDecode(data, n, expected, sum);
        DX_CODE_STATE state{'1', '-', count, sum, 0, 0};
        Bytes out(n + 16);
        U16 cap = static_cast<U16>(out.size() > 65535 ? 65535 : out.size());
        U32 status = DX_CodeToBin(&state, reinterpret_cast<const char *>(data), count, out.data(), &cap, nullptr, 0);
        if (valid) {
            check(status == 0 && cap == expected.size() && same(out.data(), expected.data(), cap));
            // The same text with a wrong checksum is refused.
            state.checksum = static_cast<U16>(sum ^ 1);
            cap = static_cast<U16>(out.size() > 65535 ? 65535 : out.size());
            check(DX_CodeToBin(&state, reinterpret_cast<const char *>(data), count, out.data(), &cap, nullptr, 0) ==
                  DX_CODE_ERR_CHECKSUM);
        } else {
            check(status == DX_CODE_ERR_CHARACTER && cap == 0);
        }
    }

    // Unpacking arbitrary bytes into a tight buffer.
    {
        Bytes expected;
        bool whole = modelUnpack(data, n, expected);
        Bytes out(600);
        U16 cap = static_cast<U16>(out.size());
        U32 status = DX_CodeUnpack(data, count, out.data(), &cap);
        U32 needed = static_cast<U32>(count) * 10000u / 17000u + 10u;
        if (needed > out.size() || (whole && expected.size() > out.size()))
            check(status == DX_CODE_ERR_UNPACK_SPACE && cap == 0);
        else if (!whole)
            check((status == DX_CODE_ERR_UNPACK_CUT || status == DX_CODE_ERR_UNPACK_SPACE) && cap == 0);
        else
            check(status == 0 && cap == expected.size() && same(out.data(), expected.data(), cap));
    }

    // A block round trip, packed and not.
    {
        size_t m = n < 4000 ? n : 4000;
        for (bool packed : {false, true}) {
            DX_CODE_STATE state{};
            std::string chars(m * 3 + 16, '\0');
            Bytes packing(m * 2 + 16), back(m + 16), scratch(m * 2 + 16);
            U16 cap = static_cast<U16>(chars.size());
            check(DX_CodeToChar(&state, data, static_cast<U16>(m), chars.data(), &cap,
                                packed ? packing.data() : nullptr, static_cast<U16>(packing.size())) == 0);
            U16 got = static_cast<U16>(back.size());
            check(DX_CodeToBin(&state, chars.data(), cap, back.data(), &got, packed ? scratch.data() : nullptr,
                               static_cast<U16>(scratch.size())) == 0);
            check(got == m && same(back.data(), data, m));
        }
    }

    // The bytes as a whole code file.
    {
        FILE *f = std::fopen(tempPath("code").c_str(), "wb");
        check(f != nullptr);
        check(std::fwrite(data, 1, size, f) == size);
        std::fclose(f);
        U32 status = DX_CodeCharFileToBinFile(tempPath("code").c_str(), tempPath("bin").c_str());
        check(status == 0 || (status >= DX_CODE_ERR_DECODE_SPACE && status <= DX_CODE_ERR_COUNT));
    }
    return 0;
}
