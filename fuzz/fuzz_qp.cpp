// Quoted-printable: the decoder's fast path against a plain model of its
// rules, encoder round trips and the 76-column limit of wrapped output.
#include "rqcore/encode.h"
#include "rqcore/frame.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void check(bool ok)
{
    if (!ok)
        std::abort();
}

int hex(unsigned char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

bool blank(unsigned char c)
{
    return c == ' ' || c == '\t';
}

void trim(std::string &out, size_t floor, U32 lineLength)
{
    size_t t = out.size();
    while (t > floor && blank(static_cast<unsigned char>(out[t - 1])))
        --t;
    if (lineLength == 0 || out.size() - t <= lineLength)
        out.resize(t);
}

std::string model(const std::string &in, U32 lineLength)
{
    std::string out;
    size_t floor = 0, i = 0, n = in.size();
    while (i < n) {
        unsigned char c = static_cast<unsigned char>(in[i]);
        if (c == '\r' || c == '\n') {
            trim(out, floor, lineLength);
            out += static_cast<char>(c);
            floor = out.size();
            ++i;
        } else if (c != '=') {
            out += static_cast<char>(c);
            ++i;
        } else if (i + 2 < n && hex(static_cast<unsigned char>(in[i + 1])) >= 0 &&
                   hex(static_cast<unsigned char>(in[i + 2])) >= 0) {
            out += static_cast<char>(hex(static_cast<unsigned char>(in[i + 1])) * 16 +
                                     hex(static_cast<unsigned char>(in[i + 2])));
            floor = out.size();
            i += 3;
        } else {
            size_t j = i + 1;
            while (j < n && blank(static_cast<unsigned char>(in[j])))
                ++j;
            if (j == n) {
                floor = out.size();
                i = n;
            } else if (in[j] == '\n') {
                floor = out.size();
                i = j + 1;
            } else if (in[j] == '\r') {
                floor = out.size();
                i = j + 1 < n && in[j + 1] == '\n' ? j + 2 : j + 1;
            } else {
                out += '=';
                ++i;
            }
        }
    }
    trim(out, floor, lineLength);
    return out;
}

// The buffer-size estimate, one byte at a time with its step-backs.
U32 sizeModel(const std::string &in)
{
    auto literal = [](unsigned char c) { return c == 0x09 || (c >= 0x20 && c <= 0x7E && c != 0x3D); };
    uint64_t size = 3;
    U32 column = 0;
    for (size_t i = 0; i < in.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(in[i]);
        if (!literal(c)) {
            size += 3;
            column += 3;
            if (column > 75) {
                size -= blank(c) ? 2 : 3;
                size += 2;
                column = 0;
                --i;
            }
        } else {
            size += 1;
            column += 1;
            if (column == 76) {
                size += 2;
                column = 0;
                if (blank(c)) {
                    --i;
                    continue;
                }
            }
            if (i + 1 == in.size() && blank(c))
                size += 1;
        }
    }
    return static_cast<U32>(size);
}

std::string decode(const std::string &text, U32 lineLength)
{
    char *out = nullptr;
    U32 length = 0;
    check(ENCODE_fromQP(text.data(), static_cast<U32>(text.size()), &out, &length, lineLength) == 0);
    check(out[length] == '\0');
    std::string s(out, length);
    RQCORE_free(out);
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    U32 lineLength = data[0] % 8;
    U32 flags = data[0] & 6;
    std::string text(reinterpret_cast<const char *>(data + 1), size - 1);

    check(decode(text, lineLength) == model(text, lineLength));
    check(enc_qpGetReqBufferSize(text.data(), static_cast<U32>(text.size()), nullptr) == sizeModel(text));

    char *out = nullptr;
    U32 length = 0;
    check(ENCODE_toQP(text.data(), static_cast<U32>(text.size()), &out, &length, flags) == 0);
    check(length >= 1 && out[length - 1] == '\0');
    std::string encoded(out, length - 1);
    RQCORE_free(out);
    // Without wrapping, a blank at the very end stays literal and a reader
    // takes it for transport padding; wrapped output protects it.
    bool endsBlank = !text.empty() && blank(static_cast<unsigned char>(text.back()));
    if ((flags & ENCODE_QP_LITERAL_CRLF) == 0 && ((flags & ENCODE_QP_WRAP) != 0 || !endsBlank))
        check(decode(encoded, 0) == text);
    if ((flags & ENCODE_QP_LITERAL_CRLF) == 0 && (flags & ENCODE_QP_WRAP) != 0) {
        size_t start = 0, end;
        while ((end = encoded.find("\r\n", start)) != std::string::npos) {
            check(end - start <= 76);
            start = end + 2;
        }
        check(encoded.size() - start <= 76);
    }

    std::string cut = text.substr(0, text.find('\0'));
    U32 column = data[0];
    check(ENCODE_convertToQuotedPrintable(cut.c_str(), &out, &column) == 0);
    check(column >= 1 || cut.empty());
    RQCORE_free(out);
    check(ENCODE_convertFromQuotedPrintable(cut.c_str(), &out, &length) == 0);
    check(std::string(out, length) == model(cut, 0));
    RQCORE_free(out);
    return 0;
}
