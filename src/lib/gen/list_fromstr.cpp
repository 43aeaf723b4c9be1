// Building a list from a delimited text, and the number conversion it uses.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/list_fromstr"
#include "internal/rq_mem.h"

#include "rqcore/lists.h"

#include <cstring>

namespace {

int hexDigit(char c) noexcept
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

// The end of the field that starts at p: the first record separator, field
// separator or NUL.
char *fieldEnd(char *p, char recordSeparator, char fieldSeparator) noexcept
{
    while (*p != '\0' && *p != recordSeparator && *p != fieldSeparator)
        ++p;
    return p;
}

// One field into a zeroed scratch block of size + 1 bytes, the way the list
// will copy it: a text cut at size bytes, a number as a U32 (its first size
// bytes when size is below 4).  Copying first keeps the list from reading a
// declared size past the end of a short field.
void putField(U8 *scratch, U32 size, U16 type, const char *field, bool atEnd) noexcept
{
    std::memset(scratch, 0, size + 1);
    if (type == DX_LIST_FIELD_TEXT) {
        std::memcpy(scratch, field, strnlen(field, size));
        return;
    }
    U32 value = 0;
    // An empty last field has nothing readable after its NUL for the
    // conversion's hexadecimal test; its value is 0 either way.
    if (!(atEnd && field[0] == '\0'))
        FromStrToU32(&value, field);  // the status is dropped: callers rely on the partial value
    std::memcpy(scratch, &value, size < sizeof value ? size : sizeof value);
}

bool knownType(U16 type) noexcept { return type == DX_LIST_FIELD_TEXT || type == DX_LIST_FIELD_NUMBER; }

class Scratch {
public:
    ~Scratch()
    {
        if (handle_ != 0)
            DX_ListFree(handle_);
    }
    U32 take(HLIST list, U32 which) noexcept { return DX_ListAlloc(list, &handle_, &address_, which); }
    U8 *get() const noexcept { return static_cast<U8 *>(address_); }

private:
    RQHANDLE handle_ = 0;
    void *address_ = nullptr;
};

}  // namespace

extern "C" {

RQ_API U32 DX_ListCreateFromStr(HLIST *list, U16 idType, U32 idSize, U16 dataType, U32 dataSize, U32 flags,
                                char *text, char recordSeparator, char fieldSeparator) noexcept
{
    U32 status = DX_ListCreate(list, idSize, dataSize, flags, idType == DX_LIST_FIELD_TEXT ? DX_MemStrnCmp : nullptr,
                               dataType == DX_LIST_FIELD_TEXT ? DX_MemStrnCmp : nullptr);
    if (status != 0 || text == nullptr)
        return status;
    Scratch id, data;
    status = id.take(*list, DX_LIST_ALLOC_ID);
    if (status == 0)
        status = data.take(*list, DX_LIST_ALLOC_DATA);
    // With no data, only the identifier's type has to be known.
    bool adds = knownType(idType) && (dataSize == 0 || knownType(dataType));
    char *p = text;
    while (status == 0 && *p != '\0') {
        char *idText = p;
        char *dataText = nullptr;
        p = fieldEnd(p, recordSeparator, fieldSeparator);
        if (dataSize != 0) {
            if (*p != fieldSeparator || *p == '\0')
                return DX_LIST_ERR_TEXT;
            *p++ = '\0';
            dataText = p;
            p = fieldEnd(p, recordSeparator, fieldSeparator);
        }
        if (*p != '\0' && *p == fieldSeparator)
            return DX_LIST_ERR_TEXT;  // a field too many
        bool atEnd = *p == '\0';
        if (!atEnd)
            *p++ = '\0';
        if (!adds)
            continue;  // other type combinations add nothing and report nothing: callers rely on it
        putField(id.get(), idSize, idType, idText, atEnd && dataText == nullptr);
        if (dataText != nullptr)
            putField(data.get(), dataSize, dataType, dataText, atEnd);
        status = DX_ListAddTo(*list, id.get(), dataText != nullptr ? data.get() : nullptr);
    }
    return status;
}

RQ_API U32 FromStrToU32(U32 *value, const char *text) noexcept
{
    if (value == nullptr || text == nullptr)
        return DX_LIST_ERR_TEXT;
    *value = 0;
    // The hexadecimal test looks for a NUL byte, not the digit zero, before
    // the 'x': callers rely on "0x1F" being refused and "\0x1F" read as 31.
    if (text[0] == '\0' && (text[1] == 'x' || text[1] == 'X')) {
        for (const char *p = text + 2; *p != '\0'; ++p) {
            int d = hexDigit(*p);
            if (d < 0)
                return DX_LIST_ERR_TEXT;
            *value = *value * 16u + static_cast<U32>(d);
        }
        return 0;
    }
    for (const char *p = text; *p != '\0'; ++p) {
        if (*p < '0' || *p > '9')
            return DX_LIST_ERR_TEXT;
        *value = *value * 10u + static_cast<U32>(*p - '0');
    }
    return 0;
}

}  // extern "C"
