// Internal to librqcore: the list header and element layout shared by the
// list sources, and the lock guards that pair every MemLock with MemUnlock.
//
// Element block: [next handle, U32][data][padding to 4][identifier], plus 8
// spare bytes.  For string data the data part is the stored text with its
// NUL, so the identifier's offset differs from element to element.  In
// fixed-layout lists on 64-bit targets the spare bytes hold the successor's
// address (see hintOffset).
#ifndef RQ_LIST_INTERNAL_H
#define RQ_LIST_INTERNAL_H

#include "internal/rq_handle.h"
#include "rqcore/frame.h"
#include "rqcore/lists.h"

#include <cstdint>
#include <cstring>

namespace rq::list {

struct Header {
    RQHANDLE first;
    RQHANDLE prev;     // element before current (0: current is first, or none)
    RQHANDLE current;  // current == prev (non-zero) marks a deleted current element
    RQHANDLE last;
    U32 flags;
    U32 dataSize;
    U32 idSize;
    U32 count;
    DX_LIST_CMPFCT idCmp;
    DX_LIST_CMPFCT dataCmp;
    // Where handles are table indices: the address of `current`'s block as
    // the last step of a walk found it, so that the next step starts from it
    // rather than from the table.  Only ever a guess (see landedAt); the
    // code that moves `current` elsewhere need not refresh it.
    U8 *currentAt;
};

constexpr U32 kElementSlack = 8;

// One lock of a handle's block, released when the guard goes.  The hidden
// forms of MemLock/MemUnlock: the lookup inlines into every walk.
template <typename T>
class Locked {
public:
    explicit Locked(RQHANDLE h) noexcept : p_(static_cast<T *>(rq::handle::lock(h))) {}
    ~Locked()
    {
        if (p_ != nullptr)
            rq::handle::unlock();
    }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;
    T *get() const noexcept { return p_; }
    T *operator->() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

private:
    T *p_;
};

using HeaderLock = Locked<Header>;
using ElementLock = Locked<U8>;

// Stored length of a text bounded by `cap` bytes: strlen + 1, at most cap.
inline U32 textLength(const void *text, U32 cap) noexcept
{
    if (cap == 0)
        return 0;
    size_t n = strnlen(static_cast<const char *>(text), cap);
    return n < cap ? static_cast<U32>(n) + 1 : cap;
}

inline U32 pad4(U32 n) noexcept { return (4u - (n & 3u)) & 3u; }

inline RQHANDLE nextOf(const U8 *e) noexcept
{
    RQHANDLE n;
    std::memcpy(&n, e, sizeof n);
    return n;
}

inline void setNext(U8 *e, RQHANDLE n) noexcept { std::memcpy(e, &n, sizeof n); }

// The 8 spare bytes after a fixed-layout element (neither identifier nor
// data a text) hold, where handles are table indices, the address of the
// element its link names.  A walk reads the successor through it, so it
// waits on one load per element rather than on the handle's table slot and
// then the element; the slot is still read and compared, so a hint that is
// stale (or not written, zero) only costs the lookup it would have taken.
// 0: the list's elements carry no hint.
inline U32 hintOffset(const Header &h) noexcept
{
#if UINTPTR_MAX == 0xFFFFFFFFu
    (void)h;
    return 0;  // a handle is the address: nothing to look up
#else
    if ((h.flags & (DX_LIST_STRING_ID | DX_LIST_STRING_DATA)) != 0)
        return 0;
    return 4 + h.dataSize + pad4(h.dataSize) + h.idSize;
#endif
}

inline void setHint(U32 offset, U8 *e, const void *target) noexcept
{
    if (offset != 0)
        std::memcpy(e + offset, &target, sizeof target);
}

// Writes e's link to `n` and, where the list keeps them, the hint with it.
inline void setNext(const Header &h, U8 *e, RQHANDLE n) noexcept
{
    setNext(e, n);
    setHint(hintOffset(h), e, rq::handle::lock(n));
}

// The lookup behind a hint that does not hold.  Out of line, so that the
// compiler keeps the branch (a conditional move would wait on both loads).
[[gnu::noinline, gnu::cold]] inline U8 *lookUp(RQHANDLE next) noexcept
{
    return static_cast<U8 *>(rq::handle::lock(next));
}

// The block of `next`, the link of element e; null where MemLock gives null.
inline U8 *follow(U32 offset, const U8 *e, RQHANDLE next) noexcept
{
    U8 *real = static_cast<U8 *>(rq::handle::lock(next));
    if (offset != 0) {
        U8 *hint;
        std::memcpy(&hint, e + offset, sizeof hint);
        // An opaque copy: the compiler cannot replace it by `real` where the
        // two compare equal, so the walk goes on from the hint while the
        // comparison completes.
        U8 *ahead = hint;
        __asm__("" : "+r"(ahead));
        if (__builtin_expect(hint == real, 1))
            return ahead;
        return lookUp(next);
    }
    return real;
}

// The block of h.current, read through h.currentAt when it holds: the
// table lookup is still made and compared, but the walk goes on from the
// remembered address meanwhile (the same opaque copy as in follow).
inline U8 *landedAt(const Header &h) noexcept
{
    U8 *real = static_cast<U8 *>(rq::handle::lock(h.current));
#if UINTPTR_MAX == 0xFFFFFFFFu
    return real;
#else
    U8 *guess = h.currentAt;
    U8 *ahead = guess;
    __asm__("" : "+r"(ahead));
    if (__builtin_expect(guess == real && guess != nullptr, 1))
        return ahead;
    return lookUp(h.current);
#endif
}

// Fixed-size items with nothing to bound: the identifier sits at one
// offset in every element.
inline bool fixedLayout(const Header &h) noexcept
{
    return (h.flags & (DX_LIST_STRING_ID | DX_LIST_STRING_DATA)) == 0;
}

inline U8 *dataOf(U8 *e) noexcept { return e + 4; }
inline const U8 *dataOf(const U8 *e) noexcept { return e + 4; }

inline U32 storedDataLength(const Header &h, const U8 *e) noexcept
{
    if ((h.flags & DX_LIST_STRING_DATA) != 0)
        return textLength(dataOf(e), h.dataSize);
    return h.dataSize;
}

inline U32 idOffset(const Header &h, const U8 *e) noexcept
{
    U32 n = storedDataLength(h, e);
    return 4 + n + pad4(n);
}

inline U8 *idOf(const Header &h, U8 *e) noexcept { return e + idOffset(h, e); }
inline const U8 *idOf(const Header &h, const U8 *e) noexcept { return e + idOffset(h, e); }

// Identifier, then data when both data pointers are given.
inline S32 cellCompare(const Header &h, const void *idA, const void *dataA, const void *idB,
                       const void *dataB) noexcept
{
    S32 c = h.idCmp(idA, idB, h.idSize);
    if (c != 0 || dataA == nullptr || dataB == nullptr)
        return c;
    return h.dataCmp(dataA, dataB, h.dataSize);
}

// The walks compare on every element.  For the two default compare
// functions of fixed-size items the order is computed in line, with the
// very results the functions give; any other function is called.
struct S32Order {
    S32 operator()(const void *a, const void *b, U32) const noexcept
    {
        S32 x, y;
        std::memcpy(&x, a, sizeof x);
        std::memcpy(&y, b, sizeof y);
        return x < y ? -1 : (x > y ? 1 : 0);
    }
};

struct ByteOrder {
    S32 operator()(const void *a, const void *b, U32 n) const noexcept
    {
        const unsigned char *pa = static_cast<const unsigned char *>(a);
        const unsigned char *pb = static_cast<const unsigned char *>(b);
        if (n == 4) {
            U32 x, y;
            std::memcpy(&x, a, sizeof x);
            std::memcpy(&y, b, sizeof y);
            if (x == y)
                return 0;
            // Both targets are little-endian: the lowest differing bit is
            // in the first differing byte.
            unsigned k = static_cast<unsigned>(__builtin_ctz(x ^ y)) >> 3;
            return static_cast<S32>(pa[k]) - static_cast<S32>(pb[k]);
        }
        if (n == 0 || std::memcmp(a, b, n) == 0)
            return 0;
        while (*pa == *pb) {
            ++pa;
            ++pb;
        }
        return static_cast<S32>(*pa) - static_cast<S32>(*pb);
    }
};

struct CallOrder {
    DX_LIST_CMPFCT fn;
    S32 operator()(const void *a, const void *b, U32 n) const noexcept { return fn(a, b, n); }
};

// Calls body with the order object standing for `fn`.
template <typename Body>
inline auto withOrder(DX_LIST_CMPFCT fn, Body &&body) noexcept
{
    if (fn == DX_MemS32Cmp)
        return body(S32Order{});
    if (fn == DX_MemCmp)
        return body(ByteOrder{});
    return body(CallOrder{fn});
}

// cellCompare with the list's two functions resolved once.
template <typename IdOrder, typename DataOrder>
struct CellOrder {
    const Header &h;
    IdOrder idOrder;
    DataOrder dataOrder;
    S32 operator()(const void *idA, const void *dataA, const void *idB, const void *dataB) const noexcept
    {
        S32 c = idOrder(idA, idB, h.idSize);
        if (c != 0 || dataA == nullptr || dataB == nullptr)
            return c;
        return dataOrder(dataA, dataB, h.dataSize);
    }
};

template <typename Body>
inline auto withCellOrder(const Header &h, Body &&body) noexcept
{
    return withOrder(h.idCmp, [&](auto idOrder) noexcept {
        return withOrder(h.dataCmp, [&](auto dataOrder) noexcept {
            return body(CellOrder<decltype(idOrder), decltype(dataOrder)>{h, idOrder, dataOrder});
        });
    });
}

// Copies `size` bytes of a fixed-size item; the common 32-bit item is
// copied in line rather than by a call into the C library.
inline void copyFixed(void *dest, const void *src, U32 size) noexcept
{
    if (size == 4)
        std::memcpy(dest, src, 4);
    else if (size != 0)
        std::memcpy(dest, src, size);
}

// Copies an identifier or data item as the list stores it: a bounded text
// (zero-filled to `size`) or `size` bytes.
inline void copyItem(void *dest, const void *src, U32 size, bool text) noexcept
{
    if (text)
        DX_MemStrnCopy(dest, src, size);
    else
        copyFixed(dest, src, size);
}

// Copies an element's identifier and data out to the caller's buffers.
inline void readElement(const Header &h, const U8 *e, void *idOut, void *dataOut) noexcept
{
    if (fixedLayout(h)) {
        if (idOut != nullptr)
            copyFixed(idOut, e + 4 + h.dataSize + pad4(h.dataSize), h.idSize);
        if (dataOut != nullptr)
            copyFixed(dataOut, dataOf(e), h.dataSize);
        return;
    }
    if (idOut != nullptr)
        copyItem(idOut, idOf(h, e), h.idSize, (h.flags & DX_LIST_STRING_ID) != 0);
    if (dataOut != nullptr && h.dataSize != 0)
        copyItem(dataOut, dataOf(e), h.dataSize, (h.flags & DX_LIST_STRING_DATA) != 0);
}

// Finds the first element matching `id` (and `refData` when given) by a
// walk over the chain; the header stays locked by the caller.  Returns false
// with *lockFailed set when an element could not be locked.
bool findElement(const Header &h, const void *id, const void *refData, RQHANDLE *before, RQHANDLE *found,
                 bool *lockFailed) noexcept;

// Writes data, then the identifier after the data as now stored; a null
// pointer leaves that part as it is.  The element must have room.
void writeContents(const Header &h, U8 *e, const void *id, const void *data) noexcept;

// Builds an element holding (id, data) linked to `next`: 0 or an element code.
U32 makeElement(const Header &h, RQHANDLE *element, const void *id, const void *data, RQHANDLE next) noexcept;

// Unlinks `e` (whose predecessor is `before`) from the chain and frees it,
// keeping first, last, the walking position and the count right.  Returns
// false when an element could not be locked.
bool unlinkElement(Header &h, RQHANDLE before, RQHANDLE e) noexcept;

// Links the new element `e` (already pointing at `before`'s successor) after
// `before` (0: at the front), keeping first, last, position and count right.
bool linkElement(Header &h, RQHANDLE before, RQHANDLE e) noexcept;

// The add operations on a locked header, shared by the checked and
// unchecked public forms and by the ordered insert.
U32 addFirst(Header &h, const void *id, const void *data) noexcept;
U32 alwaysAddLast(Header &h, const void *id, const void *data) noexcept;
U32 addSorted(Header &h, const void *id, const void *data) noexcept;

}  // namespace rq::list

#endif
