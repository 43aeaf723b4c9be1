// Memory streams: a caller's fixed buffer, or a buffer the library grows as
// it is written and keeps current in the caller's pointer variable.

#define RQ_SOURCE_TAG "src/lib/core/lib/mime/stream_char"
#include "internal/rq_mem.h"
#include "rqcore/stream.h"

#include <cstdint>

namespace {

struct CharState {
    char *data;
    char **bufferVar;  // the caller's variable (growing kind), else null
    U32 capacity;
    U32 position;
    U32 growth;
    U32 spare;
};

constexpr U32 kFixedGrowth = 512;

void trace(const STREAM *s, const char *name) noexcept
{
    if ((s->flags & STREAM_TRACE) != 0)
        STREAM_trace(name);
}

CharState *stateOf(STREAM *s) noexcept
{
    return static_cast<CharState *>(s->privateData);
}

U32 STREAM_char_init(STREAM *s, void *privateData) noexcept
{
    if (s == nullptr)
        return STREAM_ERR_NULL;
    trace(s, "STREAM_char_init()");
    if (privateData == nullptr)
        return STREAM_ERR_CORRUPT;
    s->privateData = privateData;
    return 0;
}

U32 STREAM_char_destroy(STREAM *s) noexcept
{
    if (s == nullptr)
        return STREAM_ERR_NULL;
    trace(s, "STREAM_char_destroy()");
    CharState *st = stateOf(s);
    if (st == nullptr)
        return STREAM_ERR_CORRUPT;
    // The data belongs to the caller in both kinds; only the state goes.
    RQ_FREE(st);
    s->privateData = nullptr;
    return 0;
}

// Copies while bytes remain and the position is inside the capacity, then
// terminates the text when there is room.
U32 copyIn(CharState *st, const char *bytes, U32 length, U32 *written, bool growing) noexcept
{
    U32 room = st->capacity - st->position;
    U32 n = length < room ? length : room;
    std::memcpy(st->data + st->position, bytes, n);
    st->position += n;
    // A growing buffer always has one byte beyond its capacity for the NUL.
    if (st->position < st->capacity || growing)
        st->data[st->position] = '\0';
    if (written != nullptr)
        *written = n;
    return 0;
}

U32 STREAM_char_write(STREAM *s, const char *bytes, U32 length, U32 *written) noexcept
{
    if (s == nullptr || bytes == nullptr)
        return STREAM_ERR_NULL;
    trace(s, "STREAM_char_write()");
    CharState *st = stateOf(s);
    if (st == nullptr)
        return STREAM_ERR_CORRUPT;
    if (st->position >= st->capacity)
        return STREAM_EOF;
    return copyIn(st, bytes, length, written, false);
}

U32 STREAM_char_write_grow(STREAM *s, const char *bytes, U32 length, U32 *written) noexcept
{
    if (s == nullptr || bytes == nullptr)
        return STREAM_ERR_NULL;
    trace(s, "STREAM_char_write()");
    CharState *st = stateOf(s);
    if (st == nullptr)
        return STREAM_ERR_CORRUPT;
    // The buffer grows only when the write starts at the end: a write that
    // starts with room left copies what fits and reports the short count;
    // writers loop on the count, so they rely on this.
    if (st->position >= st->capacity) {
        U32 step = length > st->growth ? length + 10 : st->growth;
        uint64_t newCapacity = uint64_t{st->capacity} + step;
        if (newCapacity >= UINT32_MAX || newCapacity + 1 > SIZE_MAX)
            return STREAM_ERR_NOMEM;
        auto *bigger = static_cast<char *>(RQ_REALLOC(st->data, static_cast<size_t>(newCapacity) + 1));
        if (bigger == nullptr)
            return STREAM_ERR_NOMEM;
        std::memset(bigger + st->capacity, 0, step + 1);
        st->data = bigger;
        st->capacity = static_cast<U32>(newCapacity);
        *st->bufferVar = bigger;
    }
    return copyIn(st, bytes, length, written, true);
}

U32 STREAM_char_read(STREAM *s, char *buffer, U32 size, U32 *count) noexcept
{
    if (s == nullptr || buffer == nullptr)
        return STREAM_ERR_NULL;
    trace(s, "STREAM_char_read()");
    CharState *st = stateOf(s);
    if (st == nullptr)
        return STREAM_ERR_CORRUPT;
    if (st->position >= st->capacity)
        return STREAM_EOF;
    const char *data = st->data;
    U32 pos = st->position;
    const U32 cap = st->capacity;
    U32 copied = 0;
    bool terminate = false;
    if ((s->flags & STREAM_LINE_MODE) == 0) {
        U32 room = cap - pos;
        copied = size < room ? size : room;
        std::memcpy(buffer, data + pos, copied);
        pos += copied;
        terminate = pos >= cap;
    } else {
        while (copied < size && pos < cap) {
            char c = data[pos++];
            if (c == '\r' || c == '\n') {
                // The peek for the LF of a CR LF stays inside the data.
                if (c == '\r' && pos < cap && data[pos] == '\n')
                    ++pos;
                terminate = true;
                break;
            }
            buffer[copied++] = c;
        }
        if (pos >= cap)
            terminate = true;
    }
    // Stopping at the capacity or a line end terminates the text; a read
    // that fills `size` bytes stores nothing more.
    if (terminate && copied < size)
        buffer[copied] = '\0';
    st->position = pos;
    if (count != nullptr)
        *count = copied;
    return 0;
}

U32 STREAM_char_seek(STREAM *s, S32 offset, U32 whence, U32 *previous) noexcept
{
    if (s == nullptr)
        return STREAM_ERR_NULL;
    trace(s, "STREAM_char_seek()");
    CharState *st = stateOf(s);
    if (st == nullptr)
        return STREAM_ERR_CORRUPT;
    if (previous != nullptr)
        *previous = st->position;
    int64_t target = 0;
    switch (whence) {
    case STREAM_SEEK_SET:
        target = offset;
        break;
    case STREAM_SEEK_CUR:
        target = int64_t{st->position} + offset;
        break;
    case STREAM_SEEK_END:
        // Moves back from the current position, not from the capacity: with
        // offset 0 it only reports the position, which the MIME part uses to
        // learn how much a freshly written stream holds.
        if (offset > 0)
            return 1;
        target = int64_t{st->position} + offset;
        break;
    default:
        return STREAM_ERR_NOT_ALLOWED;
    }
    if (target < 0 || target > int64_t{st->capacity})
        return 1;
    st->position = static_cast<U32>(target);
    return 0;
}

}  // namespace

extern "C" {

RQ_API U32 STREAM_attachToBuffer(STREAM **out, char *buffer, U32 size, U32 flags) noexcept
{
    if (out == nullptr || buffer == nullptr)
        return STREAM_ERR_NULL;
    auto *st = static_cast<CharState *>(RQ_CALLOC(1, sizeof(CharState)));
    if (st == nullptr)
        return STREAM_ERR_NOMEM;
    st->data = buffer;
    st->capacity = size;
    st->growth = kFixedGrowth;
    U32 status = STREAM_new(out, flags, STREAM_KIND_MEMORY, STREAM_char_init, STREAM_char_destroy, STREAM_char_read,
                            STREAM_char_write, STREAM_char_seek, st);
    if (status == STREAM_ERR_NOMEM || status == STREAM_ERR_NULL)
        RQ_FREE(st);
    return status;
}

RQ_API U32 STREAM_attachToGrowingBuffer(STREAM **out, char **bufferVar, U32 initialSize, U32 flags) noexcept
{
    if (out == nullptr || bufferVar == nullptr)
        return STREAM_ERR_NULL;
    if (initialSize >= UINT32_MAX || size_t{initialSize} + 1 == 0)
        return STREAM_ERR_NOMEM;
    rq::Block<CharState> st(RQ_CALLOC(1, sizeof(CharState)));
    if (!st)
        return STREAM_ERR_NOMEM;
    rq::Block<char> data(RQ_CALLOC(size_t{initialSize} + 1, 1));
    if (!data)
        return STREAM_ERR_NOMEM;
    st.get()->data = data.get();
    st.get()->bufferVar = bufferVar;
    st.get()->capacity = initialSize;
    st.get()->growth = initialSize;
    U32 status = STREAM_new(out, flags, STREAM_KIND_MEMORY, STREAM_char_init, STREAM_char_destroy, STREAM_char_read,
                            STREAM_char_write_grow, STREAM_char_seek, st.get());
    if (status == STREAM_ERR_NOMEM || status == STREAM_ERR_NULL)
        return status;  // nothing was handed out: both blocks go
    st.release();
    *bufferVar = data.release();
    return status;
}

}  // extern "C"
