// Code tables: information lines, blocks on streams and whole files.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/code_file"
#include "internal/rq_mem.h"

#include "code_internal.h"

#include <cstdio>

namespace {

constexpr size_t kTotalDigits = 8;

bool writeAll(FILE *stream, const void *bytes, size_t n) noexcept
{
    return n == 0 || std::fwrite(bytes, 1, n, stream) == n;
}

bool readAll(FILE *stream, void *bytes, size_t n) noexcept
{
    return n == 0 || std::fread(bytes, 1, n, stream) == n;
}

}  // namespace

extern "C" {

RQ_API U32 DX_CodeWriteInfo(const DX_CODE_STATE *state, FILE *stream) noexcept
{
    if (state == nullptr || stream == nullptr)
        return DX_CODE_ERR_NULL;
    char line[DX_CODE_INFO_SIZE] = {'\n', '\n', state->version, ' ', state->type, ' '};
    DX_CodeToHex(state->count, line + 6, 4);
    line[10] = ' ';
    DX_CodeToHex(state->checksum, line + 11, 4);
    line[15] = '\n';
    return writeAll(stream, line, sizeof line) ? 0u : static_cast<U32>(DX_CODE_ERR_WRITE);
}

RQ_API U32 DX_CodeReadInfo(DX_CODE_STATE *state, FILE *stream) noexcept
{
    if (state == nullptr || stream == nullptr)
        return DX_CODE_ERR_NULL;
    char line[DX_CODE_INFO_SIZE];
    if (!readAll(stream, line, sizeof line))
        return DX_CODE_ERR_READ;
    // Only the version is checked; the other fields are taken as they stand
    // and checked by the decoding that uses them.
    if (line[2] != DX_CODE_VERSION)
        return DX_CODE_ERR_VERSION;
    state->version = line[2];
    state->type = line[4];
    state->count = static_cast<U16>(DX_CodeFromHex(line + 6, 4));
    state->checksum = static_cast<U16>(DX_CodeFromHex(line + 11, 4));
    return 0;
}

RQ_API U32 DX_CodeWrite(DX_CODE_STATE *state, FILE *stream, const void *data, U16 length, U16 *count) noexcept
{
    if (state == nullptr || stream == nullptr)
        return DX_CODE_ERR_NULL;
    char chars[DX_CODE_CHARS];
    U8 packing[DX_CODE_PACKING];
    U16 n = sizeof chars;
    U32 status = DX_CodeToChar(state, data, length, chars, &n, packing, sizeof packing);
    if (status != 0)
        return status;
    status = DX_CodeWriteInfo(state, stream);
    if (status == 0 && !writeAll(stream, chars, n))
        status = DX_CODE_ERR_WRITE;
    if (status == 0 && count != nullptr)
        *count = n;
    return status;
}

RQ_API U32 DX_CodeRead(DX_CODE_STATE *state, FILE *stream, void *output, U16 *capacity, U16 *count) noexcept
{
    if (state == nullptr || stream == nullptr || output == nullptr || capacity == nullptr)
        return DX_CODE_ERR_NULL;
    U32 status = DX_CodeReadInfo(state, stream);
    if (status == 0 && state->count > DX_CODE_CHARS)
        status = DX_CODE_ERR_COUNT;  // more than any block written here
    char chars[DX_CODE_CHARS];
    if (status == 0 && !readAll(stream, chars, state->count))
        status = DX_CODE_ERR_READ;
    if (status != 0) {
        *capacity = 0;
        return status;
    }
    U8 scratch[DX_CODE_PACKING];
    status = DX_CodeToBin(state, chars, state->count, output, capacity, scratch, sizeof scratch);
    if (status == 0 && count != nullptr)
        *count = state->count;
    return status;
}

RQ_API U32 DX_CodeBinFileToCharFile(const char *binaryPath, const char *textPath) noexcept
{
    if (binaryPath == nullptr || textPath == nullptr)
        return DX_CODE_ERR_NULL;
    rq::File binary(std::fopen(binaryPath, "rb"));
    if (!binary)
        return DX_CODE_ERR_BINARY_FILE;
    rq::File text(std::fopen(textPath, "wb"));
    if (!text)
        return DX_CODE_ERR_TEXT_FILE;
    char total[kTotalDigits + 1] = {'0', '0', '0', '0', '0', '0', '0', '0', '\n'};
    if (!writeAll(text.get(), total, kTotalDigits))
        return DX_CODE_ERR_WRITE;
    U32 sum = 0;
    U8 piece[DX_CODE_PIECE];
    DX_CODE_STATE state{};
    for (;;) {
        size_t got = std::fread(piece, 1, sizeof piece, binary.get());
        if (got < sizeof piece && std::ferror(binary.get()))
            return DX_CODE_ERR_READ;
        U16 count = 0;
        U32 status = DX_CodeWrite(&state, text.get(), piece, static_cast<U16>(got), &count);
        if (status != 0)
            return status;
        sum += count;
        // A file whose length is a multiple of 256 ends with an empty block.
        if (got < sizeof piece)
            break;
    }
    // The total's newline lands on the first information line's first
    // byte, a newline already.
    DX_CodeToHex(sum, total, kTotalDigits);
    if (std::fseek(text.get(), 0, SEEK_SET) != 0 || !writeAll(text.get(), total, sizeof total))
        return DX_CODE_ERR_WRITE;
    FILE *done = text.release();
    return std::fclose(done) == 0 ? 0u : static_cast<U32>(DX_CODE_ERR_WRITE);
}

RQ_API U32 DX_CodeCharFileToBinFile(const char *textPath, const char *binaryPath) noexcept
{
    if (textPath == nullptr || binaryPath == nullptr)
        return DX_CODE_ERR_NULL;
    rq::File text(std::fopen(textPath, "rb"));
    rq::File binary(std::fopen(binaryPath, "wb"));
    // Both are opened before either is tested, and the text file's failure
    // wins: callers rely on this order, the reverse of the other direction.
    U32 status = 0;
    if (!binary)
        status = DX_CODE_ERR_BINARY_FILE;
    if (!text)
        status = DX_CODE_ERR_TEXT_FILE;
    if (status != 0)
        return status;
    char digits[kTotalDigits];
    if (!readAll(text.get(), digits, sizeof digits))
        return DX_CODE_ERR_READ;
    U32 total = DX_CodeFromHex(digits, kTotalDigits);
    // Every block read takes at least its 16-byte information line from
    // the file, so a total the blocks never reach ends at the file's end.
    U32 seen = 0;
    DX_CODE_STATE state{};
    U8 piece[DX_CODE_PIECE];
    while (seen < total) {
        U16 length = sizeof piece;
        U16 count = 0;
        status = DX_CodeRead(&state, text.get(), piece, &length, &count);
        if (status != 0)
            return status;
        if (!writeAll(binary.get(), piece, length))
            return DX_CODE_ERR_WRITE;
        seen += count;
    }
    FILE *done = binary.release();
    return std::fclose(done) == 0 ? 0u : static_cast<U32>(DX_CODE_ERR_WRITE);
}

}  // extern "C"
