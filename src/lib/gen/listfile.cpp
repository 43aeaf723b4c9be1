// Saving a list to and loading it from a caller's store, and the version
// query of the list family.

#define RQ_SOURCE_TAG "src/lib/core/lib/gen/listfile"
#include "internal/rq_mem.h"

#include "rqcore/lists.h"

#include <cstring>

namespace {

// One scratch block of the list's identifier or data size (plus one byte),
// released when the owner goes.
class Scratch {
public:
    Scratch() noexcept = default;
    ~Scratch()
    {
        if (handle_ != 0)
            DX_ListFree(handle_);
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    U32 take(HLIST list, U32 which) noexcept { return DX_ListAlloc(list, &handle_, &address_, which); }
    void *get() const noexcept { return address_; }

private:
    RQHANDLE handle_ = 0;
    void *address_ = nullptr;
};

struct Sizes {
    U32 id = 0;
    U32 data = 0;
};

U32 takeScratch(HLIST list, Scratch &id, Scratch &data, Sizes &sizes) noexcept
{
    U32 status = DX_ListGetIdSize(list, &sizes.id);
    if (status == 0)
        status = DX_ListGetDataSize(list, &sizes.data);
    if (status == 0)
        status = id.take(list, DX_LIST_ALLOC_ID);
    if (status == 0)
        status = data.take(list, DX_LIST_ALLOC_DATA);
    return status;
}

}  // namespace

extern "C" {

RQ_API U32 DX_ListFileWrite(HLIST list, const DX_LIST_STORE *store, U32 mode) noexcept
{
    // The check names readRecord, not writeRecord: callers rely on a store
    // without a writer passing it, so it stays.
    if (list == 0 || store == nullptr || store->open == nullptr || store->close == nullptr ||
        store->readRecord == nullptr)
        return DX_LIST_ERR_WRITE_ARGUMENT;
    if (mode != DX_LIST_STORE_WRITE && mode != DX_LIST_STORE_APPEND)
        return DX_LIST_ERR_WRITE_MODE;
    Scratch id, data;
    Sizes sizes;
    U32 status = takeScratch(list, id, data, sizes);
    if (status != 0)
        return status;
    status = store->open(store->context, mode);
    if (status != 0)
        return status;
    for (status = DX_ListGetFirst(list, id.get(), data.get()); status == 0;
         status = DX_ListGetNext(list, id.get(), data.get())) {
        // Without a writer the walk has nothing to hand the records to.
        if (store->writeRecord == nullptr)
            return DX_LIST_ERR_WRITE_ARGUMENT;
        status = store->writeRecord(store->context, id.get(), sizes.id, data.get(), sizes.data);
        if (status != 0)
            return status;
    }
    if (status != DX_LIST_END)
        return status;
    return store->close(store->context);
}

RQ_API U32 DX_ListFileRead(HLIST list, const DX_LIST_STORE *store) noexcept
{
    if (store == nullptr || store->open == nullptr || store->close == nullptr || store->readRecord == nullptr)
        return DX_LIST_ERR_READ_ARGUMENT;
    Scratch id, data;
    Sizes sizes;
    U32 status = takeScratch(list, id, data, sizes);
    if (status != 0)
        return status;
    status = store->open(store->context, DX_LIST_STORE_READ);
    if (status != 0)
        return status;
    U8 *idBytes = static_cast<U8 *>(id.get());
    U8 *dataBytes = static_cast<U8 *>(data.get());
    for (;;) {
        // The byte past each record stays NUL, so a string list never reads
        // past a record that the store filled to the brim.
        std::memset(idBytes, 0, sizes.id + 1);
        std::memset(dataBytes, 0, sizes.data + 1);
        status = store->readRecord(store->context, idBytes, sizes.id, dataBytes, sizes.data);
        if (status == DX_LIST_STORE_END)
            break;
        if (status == 0)
            status = DX_ListAddLast(list, idBytes, dataBytes);
        if (status != 0)
            return status;
    }
    return store->close(store->context);
}

RQ_API U32 DX_ListGetVersion(U32 *letter, U32 *major, U32 *minor, char *name, char *version) noexcept
{
    // The minor number 5 and the text's "06" disagree; callers rely on both
    // exactly as they are.
    if (letter != nullptr)
        *letter = 'A';
    if (major != nullptr)
        *major = 1;
    if (minor != nullptr)
        *minor = 5;
    if (name != nullptr)
        name[0] = '\0';
    if (version != nullptr)
        std::memcpy(version, "A.01.06", sizeof "A.01.06");
    return 0;
}

}  // extern "C"
