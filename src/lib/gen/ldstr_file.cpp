// Loaded string table files: open in one of three modes, add, load, delete
// and close.  The table lives in memory between open and close; in read mode
// the file is also mapped, so that a lookup costs no system call.
#define RQ_SOURCE_TAG "src/lib/core/lib/gen/ldstr_file"
#include "internal/rq_mem.h"

#include "ldstr_internal.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>

namespace {

using namespace rq::ldstr;

constexpr U32 kBitLoad = 0x1;
constexpr U32 kBitChange = 0x2;

// Offsets a 32-bit long can seek to; beyond them the seek fails on every
// target alike.
constexpr U32 kSeekLimit = 0x7FFFFFFFu;

struct OpenCodes {
    U32 open, header, seek, table;
};

bool seekTo(FILE *f, U32 offset) noexcept
{
    return offset <= kSeekLimit && std::fseek(f, static_cast<long>(offset), SEEK_SET) == 0;
}

bool tell(FILE *f, U32 *pos) noexcept
{
    long p = std::ftell(f);
    if (p < 0 || static_cast<unsigned long>(p) > 0xFFFFFFFFul)
        return false;
    *pos = static_cast<U32>(p);
    return true;
}

void unmap(DX_LDSTR *h) noexcept
{
    if (h->map != nullptr)
        munmap(const_cast<unsigned char *>(h->map), h->mapSize);
    h->map = nullptr;
    h->mapSize = 0;
}

// Frees what the handle holds and closes its file; returns fclose's result.
int releaseAll(DX_LDSTR *h) noexcept
{
    int rc = 0;
    if (h->file != nullptr)
        rc = std::fclose(h->file);
    h->file = nullptr;
    if (h->table != nullptr)
        RQ_FREE(h->table);
    h->table = nullptr;
    if (h->catBuffer != nullptr)
        RQ_FREE(h->catBuffer);
    h->catBuffer = nullptr;
    unmap(h);
    return rc;
}

// Reads the header and the table of an existing file (modes 1 and 6).  The
// table is checked against the file's size before anything is allocated.
U32 readExisting(DX_LDSTR *h, const OpenCodes &c, uint64_t *fileSize) noexcept
{
    U32 header[3];
    if (std::fread(header, 1, sizeof header, h->file) != sizeof header)
        return c.header;
    const U32 tableOffset = header[0], slots = header[1], count = header[2];
    struct stat st;
    if (fstat(fileno(h->file), &st) != 0 || st.st_size < 0)
        return c.table;
    *fileSize = static_cast<uint64_t>(st.st_size);
    if (!seekTo(h->file, tableOffset))
        return c.seek;
    if (!sizeFits(slots) || tableOffset < kHeaderSize ||
        static_cast<uint64_t>(tableOffset) + static_cast<uint64_t>(slots) * kSlotSize > *fileSize)
        return c.table;
    if (U32 rc = DX_LdStrHTCreate(slots, &h->table); rc != 0)
        return rc;
    if (std::fread(h->table, kSlotSize, slots, h->file) != slots || !soundTable(h->table, slots, count))
        return c.table;
    h->slots = slots;
    h->count = count;
    h->writePos = tableOffset;
    return 0;
}

U32 openFile(DX_LDSTR *h, const char *path, U32 mode) noexcept
{
    switch (mode) {
    case LDSTR_MODE_READ: {
        h->file = path != nullptr ? std::fopen(path, "rb") : nullptr;
        if (h->file == nullptr)
            return LDSTR_ERR_OPEN_READ;
        uint64_t size = 0;
        const OpenCodes c{LDSTR_ERR_OPEN_READ, LDSTR_ERR_READ_HEADER, LDSTR_ERR_READ_SEEK, LDSTR_ERR_READ_TABLE};
        if (U32 rc = readExisting(h, c, &size); rc != 0)
            return rc;
        // Records are read from a mapping when the system gives one; the
        // stdio path below stays for files that cannot be mapped.
        if (size <= 0xFFFFFFFFu) {
            void *m = mmap(nullptr, static_cast<size_t>(size), PROT_READ, MAP_PRIVATE, fileno(h->file), 0);
            if (m != MAP_FAILED)
                h->map = static_cast<const unsigned char *>(m);
            h->mapSize = static_cast<U32>(size);
        } else {
            h->mapSize = 0xFFFFFFFFu;
        }
        return 0;
    }
    case LDSTR_MODE_CREATE: {
        h->file = path != nullptr ? std::fopen(path, "wb") : nullptr;
        if (h->file == nullptr)
            return LDSTR_ERR_OPEN_CREATE;
        const U32 header[3] = {0, 2, 0};
        if (std::fwrite(header, 1, sizeof header, h->file) != sizeof header)
            return LDSTR_ERR_CREATE_HEADER;
        if (U32 rc = DX_LdStrHTCreate(2, &h->table); rc != 0)
            return rc;
        h->slots = 2;
        if (!tell(h->file, &h->writePos))
            return LDSTR_ERR_CREATE_TELL;
        return 0;
    }
    case LDSTR_MODE_UPDATE: {
        h->file = path != nullptr ? std::fopen(path, "rb+") : nullptr;
        if (h->file == nullptr)
            return LDSTR_ERR_OPEN_UPDATE;
        uint64_t size = 0;
        const OpenCodes c{LDSTR_ERR_OPEN_UPDATE, LDSTR_ERR_UPD_HEADER, LDSTR_ERR_UPD_SEEK, LDSTR_ERR_UPD_TABLE};
        if (U32 rc = readExisting(h, c, &size); rc != 0)
            return rc;
        // The write position stays at the old table: the first record added
        // overwrites it and close writes the table anew after the records.
        if (std::fseek(h->file, 0, SEEK_END) != 0)
            return LDSTR_ERR_UPD_SEEK_END;
        return 0;
    }
    default:
        return LDSTR_ERR_MODE;
    }
}

// Finds the key's record and checks that it lies inside the file.
U32 findRecord(const DX_LDSTR *h, U32 key, DX_LDSTR_SLOT *slot) noexcept
{
    if (DX_LdStrHTFind(key, slot, h->table, h->slots) != 0)
        return LDSTR_ERR_LOAD_ABSENT;
    return 0;
}

// Reads the record into buffer and terminates it; nothing is written to the
// buffer when the record does not lie whole inside the file.
U32 readRecord(DX_LDSTR *h, const DX_LDSTR_SLOT &slot, char *buffer) noexcept
{
    if (slot.offset > kSeekLimit)
        return LDSTR_ERR_LOAD_SEEK;
    if (slot.offset >= h->mapSize)
        return LDSTR_ERR_LOAD_MARKER;
    const uint64_t end = static_cast<uint64_t>(slot.offset) + 1u + slot.length;
    if (h->map != nullptr) {
        if (h->map[slot.offset] == 0)
            return LDSTR_ERR_LOAD_ABSENT;
        if (end > h->mapSize)
            return LDSTR_ERR_LOAD_TEXT;
        std::memcpy(buffer, h->map + slot.offset + 1, slot.length);
    } else {
        if (!seekTo(h->file, slot.offset))
            return LDSTR_ERR_LOAD_SEEK;
        int marker = std::fgetc(h->file);
        if (marker == EOF)
            return LDSTR_ERR_LOAD_MARKER;
        if (marker == 0)
            return LDSTR_ERR_LOAD_ABSENT;
        if (end > h->mapSize || std::fread(buffer, 1, slot.length, h->file) != slot.length)
            return LDSTR_ERR_LOAD_TEXT;
    }
    buffer[slot.length] = '\0';
    return 0;
}

U32 loadChecks(const DX_LDSTR *h, const void *buffer) noexcept
{
    if (h == nullptr || h->error != 0)
        return LDSTR_ERR_LOAD_STATE;
    if ((h->mode & kBitLoad) == 0)
        return LDSTR_ERR_LOAD_MODE;
    if (buffer == nullptr)
        return LDSTR_ERR_LOAD_BUFFER;
    return 0;
}

U32 addRecord(DX_LDSTR *h, U32 key, const char *text) noexcept
{
    const size_t len = std::strlen(text);
    if (len > 0xFFFFFFFFu - 1u)
        return LDSTR_ERR_ADD_WRITE;
    if (!seekTo(h->file, h->writePos))
        return LDSTR_ERR_ADD_SEEK;
    U32 offset = 0;
    if (!tell(h->file, &offset))
        return LDSTR_ERR_ADD_TELL;
    if (std::fputc(kMarker, h->file) == EOF || std::fwrite(text, 1, len, h->file) != len)
        return LDSTR_ERR_ADD_WRITE;
    if (!tell(h->file, &h->writePos))
        return LDSTR_ERR_ADD_TELL_END;
    if (U32 rc = DX_LdStrHTAdd(offset, key, static_cast<U32>(len), h->table, h->slots); rc != 0)
        return rc == LDSTR_ERR_HT_PRESENT ? LDSTR_ERR_ADD_DUP : rc;
    ++h->count;
    if (h->count > static_cast<U32>(static_cast<uint64_t>(h->slots) * 19u * 5u / 100u)) {
        if (U32 rc = DX_LdStrHTCopy(h->table, &h->table, h->slots, h->slots * 2u); rc != 0)
            return rc;
        h->slots *= 2u;
    }
    return 0;
}

}  // namespace

U32 DX_LdStrOpen(DX_LDSTR *handle, const char *path, U32 /*ignored*/, U32 mode) noexcept
{
    if (handle == nullptr) {
        switch (mode) {
        case LDSTR_MODE_READ: return LDSTR_ERR_OPEN_READ;
        case LDSTR_MODE_CREATE: return LDSTR_ERR_OPEN_CREATE;
        case LDSTR_MODE_UPDATE: return LDSTR_ERR_OPEN_UPDATE;
        default: return LDSTR_ERR_MODE;
        }
    }
    std::memset(handle, 0, sizeof *handle);
    handle->mode = mode;
    handle->path = path;
    U32 rc = openFile(handle, path, mode);
    if (rc != 0) {
        releaseAll(handle);
        handle->writePos = 0;
        handle->slots = 0;
        handle->count = 0;
    }
    handle->error = rc != 0 ? 1u : 0u;
    return rc;
}

U32 DX_LdStrAddTo(DX_LDSTR *handle, U32 key, U32 /*ignored*/, const char *text) noexcept
{
    if (handle == nullptr || handle->error != 0)
        return LDSTR_ERR_ADD_STATE;
    if ((handle->mode & kBitChange) == 0)
        return LDSTR_ERR_ADD_MODE;
    if (text == nullptr)
        return LDSTR_ERR_ADD_WRITE;
    U32 rc = addRecord(handle, key, text);
    // A key already present leaves only dead bytes behind: the handle stays
    // usable.  Anything else may have left the file or table half done.
    if (rc != 0 && rc != LDSTR_ERR_ADD_DUP)
        handle->error = 1;
    return rc;
}

U32 DX_LdStrLoad(DX_LDSTR *handle, U32 key, char *buffer, const char *suffix, U32 length) noexcept
{
    if (U32 rc = loadChecks(handle, buffer); rc != 0)
        return rc;
    DX_LDSTR_SLOT slot;
    if (U32 rc = findRecord(handle, key, &slot); rc != 0)
        return rc;
    if (U32 rc = readRecord(handle, slot, buffer); rc != 0)
        return rc;
    if (suffix != nullptr)
        std::strncat(buffer, suffix, length);
    return 0;
}

U32 DX_LdStrLoadCat(DX_LDSTR *handle, U32 key, char *destination, const char *suffix, U32 length) noexcept
{
    if (handle == nullptr || handle->error != 0)
        return LDSTR_ERR_CAT_STATE;
    U32 rc = destination == nullptr ? static_cast<U32>(LDSTR_ERR_LOAD_BUFFER) : 0u;
    if (rc == 0) {
        // The buffer is length bytes, or more when the stored text and the
        // suffix would not fit: a file's lengths never overrun it.
        uint64_t size = length;
        DX_LDSTR_SLOT slot;
        if ((handle->mode & kBitLoad) != 0 && findRecord(handle, key, &slot) == 0) {
            uint64_t need = static_cast<uint64_t>(slot.length) + 1u;
            if (suffix != nullptr)
                need += strnlen(suffix, length);
            if (need > size)
                size = need;
        }
        void *p = size <= SIZE_MAX ? RQ_CALLOC(static_cast<size_t>(size == 0 ? 1 : size), 1) : nullptr;
        if (p == nullptr) {
            rc = LDSTR_ERR_CAT_MEMORY;
        } else {
            // The buffer stays allocated after the call (callers counting live
            // blocks see it); the handle frees it at the next call or at close.
            if (handle->catBuffer != nullptr)
                RQ_FREE(handle->catBuffer);
            handle->catBuffer = static_cast<char *>(p);
            rc = DX_LdStrLoad(handle, key, handle->catBuffer, suffix, length);
            if (rc == 0)
                std::strncat(destination, handle->catBuffer, length);
        }
    }
    if (rc != 0 && rc != LDSTR_ERR_LOAD_ABSENT)
        handle->error = 1;
    return rc;
}

U32 DX_LdStrDeleteFrom(DX_LDSTR *handle, U32 key) noexcept
{
    if (handle != nullptr && (handle->mode & kBitChange) == 0)
        return LDSTR_ERR_DEL_MODE;
    if (handle == nullptr || handle->error != 0)
        return LDSTR_ERR_DEL_STATE;
    return DX_LdStrHTDelete(key, &handle->table, &handle->slots, &handle->count);
}

U32 DX_LdStrClose(DX_LDSTR *handle) noexcept
{
    // A handle in error is not closed: callers rely on the file staying open
    // (DX_LdStrRelease closes it).
    if (handle == nullptr || handle->error != 0)
        return LDSTR_ERR_CLOSE_STATE;
    U32 rc = 0;
    if ((handle->mode & kBitChange) != 0 && handle->file != nullptr) {
        const U32 header[3] = {handle->writePos, handle->slots, handle->count};
        if (!seekTo(handle->file, handle->writePos))
            rc = LDSTR_ERR_CLOSE_SEEK;
        else if (std::fwrite(handle->table, kSlotSize, handle->slots, handle->file) != handle->slots)
            rc = LDSTR_ERR_CLOSE_TABLE;
        else if (std::fseek(handle->file, 0, SEEK_SET) != 0 ||
                 std::fwrite(header, 1, sizeof header, handle->file) != sizeof header)
            rc = LDSTR_ERR_CLOSE_HEADER;
        if (rc != 0) {
            handle->error = 1;
            return rc;
        }
    }
    if (releaseAll(handle) != 0) {
        handle->error = 1;
        return LDSTR_ERR_CLOSE;
    }
    return 0;
}

void DX_LdStrRelease(DX_LDSTR *handle) noexcept
{
    if (handle == nullptr)
        return;
    releaseAll(handle);
    std::memset(handle, 0, sizeof *handle);
}

U32 DX_LdStrTextLength(const DX_LDSTR *handle, U32 key, U32 *length) noexcept
{
    if (U32 rc = loadChecks(handle, length); rc != 0)
        return rc;
    DX_LDSTR_SLOT slot;
    if (U32 rc = findRecord(handle, key, &slot); rc != 0)
        return rc;
    *length = slot.length;
    return 0;
}

U32 DX_LdStrForEach(const DX_LDSTR *handle, LDSTR_VISITPROCPTR visit, void *context) noexcept
{
    if (U32 rc = loadChecks(handle, reinterpret_cast<const void *>(visit)); rc != 0)
        return rc;
    for (U32 i = 0; i < handle->slots; ++i) {
        const DX_LDSTR_SLOT &s = handle->table[i];
        if (s.key == 0)
            continue;
        if (U32 rc = visit(context, s.key, s.length); rc != 0)
            return rc;
    }
    return 0;
}

U32 DX_LdStrGetVersion(char *version, U32 *letter, U32 *major, U32 *minor) noexcept
{
    if (version != nullptr)
        std::memcpy(version, "A.01.01", 8);
    // The letter X beside the A of the text: callers rely on both as they are.
    if (letter != nullptr)
        *letter = 88;
    if (major != nullptr)
        *major = 1;
    if (minor != nullptr)
        *minor = 1;
    return 0;
}
