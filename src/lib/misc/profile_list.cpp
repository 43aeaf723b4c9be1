// The in-memory profile: the file's kept lines in one zero-filled block of
// its size plus 4 bytes.  The first 4 bytes hold the file size; the lines
// follow, each terminated by a NUL (headers as "[name", keys as "key=value").

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/profile_list"
#include "internal/rq_mem.h"
#include "profile_internal.h"
#include "rqcore/lists.h"

namespace rq::profile {
namespace {

// The block is reached as bytes: the size word, then the lines.
const char *bytes(const DX_PROFILELIST *h) noexcept
{
    return reinterpret_cast<const char *>(h);
}

U32 blockSize(const DX_PROFILELIST *h) noexcept
{
    U32 size = 0;
    std::memcpy(&size, bytes(h), sizeof size);
    return size;
}

constexpr size_t kPieceMax = 213;  // the in-memory reader's piece length

// Appends the kept lines to the block, never past its size minus one.
class Writer {
public:
    Writer(char *data, U32 size) noexcept : data_(data), limit_(size > 0 ? size - 1 : 0) {}
    bool full() const noexcept { return pos_ >= limit_; }
    void put(std::string_view s) noexcept
    {
        for (char c : s) {
            if (full())
                return;
            data_[pos_++] = c;
        }
    }
    void end() noexcept
    {
        if (!full())
            data_[pos_++] = '\0';
    }

private:
    char *data_;
    size_t limit_;
    size_t pos_ = 0;
};

void keepLine(const char *piece, LineReader &reader, Writer &out) noexcept
{
    const char *p = SkipBlanks(piece);
    if (*p == '#' || *p == '\0' || *p == '\r' || *p == '\n')
        return;
    if (*p == '[') {
        std::string_view h(p);
        while (!h.empty() && (h.back() == ' ' || h.back() == '\t' || h.back() == '\n' || h.back() == ']'))
            h.remove_suffix(1);
        out.put(h);  // "[ Mail ]" is kept as "[ Mail"
        out.end();
        return;
    }
    const char *eq = std::strchr(p, '=');
    if (eq == nullptr) {
        out.put(p);  // kept as read, newline included
        out.end();
        return;
    }
    std::string_view key(p, static_cast<size_t>(eq - p));
    while (!key.empty() && (key.back() == ' ' || key.back() == '\t' || key.back() == '\n'))
        key.remove_suffix(1);
    char value[PROFIL_VALUE_SIZE];
    if (parseValue(eq + 1, &reader, value, sizeof value) != 0)
        return;  // a key whose value is malformed is not kept: lookups give the default
    out.put(key);
    out.put("=");
    out.put(value);
    out.end();
}

// Walks the NUL-terminated lines of the block from byte position pos.
class Walk {
public:
    Walk(const DX_PROFILELIST *h, U32 pos) noexcept
        : base_(bytes(h)), end_(blockSize(h) + 4u), pos_(pos < 4 ? 4 : pos)
    {
    }
    // The next line, or nullptr at the end; position() is then past it.
    const char *next() noexcept
    {
        if (pos_ >= end_ || base_[pos_] == '\0')
            return nullptr;
        const char *line = base_ + pos_;
        pos_ += static_cast<U32>(std::strlen(line)) + 1;
        return line;
    }
    U32 position() const noexcept { return pos_; }

private:
    const char *base_;
    U32 end_;
    U32 pos_;
};

// Positions w just past the header "[section"; false if there is none.
bool findSection(Walk &w, const char *section) noexcept
{
    while (const char *line = w.next())
        if (line[0] == '[' && std::strcmp(line + 1, section) == 0)
            return true;
    return false;
}

U32 getValue(DX_PROFILELIST *handle, const char *section, const char *key, const char **value) noexcept
{
    if (handle == nullptr)
        return PROFIL_ERR_BAD_ARGUMENT;
    if (section == nullptr)
        return PROFIL_ERR_NO_SECTION_NAME;
    Walk w(handle, 4);
    if (!findSection(w, section))
        return PROFIL_ERR_NO_SECTION;
    if (key == nullptr)
        return PROFIL_ERR_NO_KEY;
    size_t klen = std::strlen(key);
    while (const char *line = w.next()) {
        if (line[0] == '[')
            break;  // only the first matching section is searched
        if (std::strncmp(line, key, klen) == 0 && line[klen] == '=') {
            *value = line + klen + 1;
            return 0;
        }
    }
    return PROFIL_ERR_NO_KEY;
}

}  // namespace
}  // namespace rq::profile

using namespace rq::profile;

extern "C" {

RQ_API U32 DX_ProfileListOpen(DX_PROFILELIST **handleOut, const char *path) noexcept
{
    if (handleOut == nullptr)
        return PROFIL_ERR_BAD_ARGUMENT;
    if (path == nullptr)
        return PROFIL_ERR_NO_FILE_NAME;
    rq::Fd fd(openProfile(path));
    if (!fd.ok())
        return PROFIL_ERR_OPEN;
    int64_t size = SIS_CrtLSeek(fd.get(), 0, SEEK_END);
    if (size < 0 || size > 0x7FFFFFF0)
        return PROFIL_ERR_SIZE;
    if (SIS_CrtLSeek(fd.get(), 0, SEEK_SET) != 0)
        return PROFIL_ERR_SEEK;
    auto *block = static_cast<char *>(RQ_CALLOC(1, static_cast<size_t>(size) + 4));
    if (block == nullptr)
        return PROFIL_ERR_NO_MEMORY;
    U32 fileSize = static_cast<U32>(size);
    std::memcpy(block, &fileSize, sizeof fileSize);
    Writer out(block + 4, fileSize);
    LineReader reader(fd.get(), kPieceMax);
    char piece[kLineBuffer];
    while (!out.full() && reader.next(piece))
        keepLine(piece, reader, out);
    *handleOut = reinterpret_cast<DX_PROFILELIST *>(block);
    return 0;
}

RQ_API U32 DX_ProfileListGetStr(DX_PROFILELIST *handle, const char *section, const char *key, char *dst, U32 len,
                                const char *dflt) noexcept
{
    const char *value = nullptr;
    U32 rc = getValue(handle, section, key, &value);
    copyBounded(dst, len, rc == 0 ? value : dflt);
    return rc;
}

RQ_API U32 DX_ProfileListGetU32(DX_PROFILELIST *handle, const char *section, const char *key, U32 *out,
                                U32 dflt) noexcept
{
    if (out == nullptr)
        return PROFIL_ERR_BAD_ARGUMENT;
    const char *value = nullptr;
    U32 rc = getValue(handle, section, key, &value);
    U32 parsed = 0;
    if (rc == 0)
        rc = MapParsestringErrorToProfilError(GetUnsigned32FromStr(value, &parsed));
    *out = rc == 0 ? parsed : dflt;
    return rc;
}

RQ_API U32 DX_ProfileListGetSection(DX_PROFILELIST *handle, U32 *cursor, char *dst, U32 len) noexcept
{
    if (handle == nullptr || cursor == nullptr)
        return PROFIL_ERR_BAD_ARGUMENT;
    Walk w(handle, *cursor);
    while (const char *line = w.next()) {
        if (line[0] == '[') {
            copyBounded(dst, len, line + 1);
            *cursor = w.position();
            return 0;
        }
    }
    *cursor = w.position();
    return DX_LIST_END;
}

RQ_API U32 DX_ProfileListGetKeyword(DX_PROFILELIST *handle, U32 *cursor, const char *section, char *keyDst,
                                    U32 keyLen, char *valDst, U32 valLen) noexcept
{
    if (handle == nullptr || cursor == nullptr)
        return PROFIL_ERR_BAD_ARGUMENT;
    Walk w(handle, *cursor);
    if (*cursor == 0) {
        if (section == nullptr)
            return PROFIL_ERR_NO_SECTION_NAME;
        if (!findSection(w, section))
            return PROFIL_ERR_NO_SECTION;
    }
    while (const char *line = w.next()) {
        if (line[0] == '[')
            break;
        const char *eq = std::strchr(line, '=');
        if (eq == nullptr)
            continue;
        if (keyDst != nullptr && keyLen > 0) {
            size_t n = static_cast<size_t>(eq - line);
            if (n > keyLen - 1)
                n = keyLen - 1;
            std::memcpy(keyDst, line, n);
            keyDst[n] = '\0';
        }
        copyBounded(valDst, valLen, eq + 1);
        *cursor = w.position();
        return 0;
    }
    return DX_LIST_END;  // the cursor stays where the walk ended
}

RQ_API U32 DX_IsAProfileListSection(DX_PROFILELIST *handle, const char *section, U32 *found) noexcept
{
    if (handle == nullptr || found == nullptr)
        return PROFIL_ERR_BAD_ARGUMENT;
    if (section == nullptr)
        return PROFIL_ERR_NO_SECTION_NAME;
    Walk w(handle, 4);
    *found = findSection(w, section) ? 1 : 0;
    return 0;
}

RQ_API U32 DX_ProfileListClose(DX_PROFILELIST **handle) noexcept
{
    if (handle == nullptr)
        return PROFIL_ERR_BAD_ARGUMENT;
    if (*handle != nullptr)
        RQ_FREE(*handle);
    *handle = nullptr;
    return 0;
}

}  // extern "C"
