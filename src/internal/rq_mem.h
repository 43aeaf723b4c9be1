// Internal to librqcore: allocation through the platform's accounting
// allocator, and the small RAII owners that close what a function opened on
// every path out of it.
//
// Each source file defines RQ_SOURCE_TAG before including this header: the
// product's name for the file ("src/lib/core/" followed by the file's path
// under src/, without its extension), which the allocator keeps with every
// block so that a leak names its origin.
#ifndef RQ_INTERNAL_MEM_H
#define RQ_INTERNAL_MEM_H

#include "rqsis/rqsis.h"

#include <fcntl.h>
#include <unistd.h>
#include <cstdio>
#include <cstring>
#include <utility>

#ifndef RQ_SOURCE_TAG
#error "define RQ_SOURCE_TAG before including rq_mem.h"
#endif

#define RQ_VERSION_TAG "NO-VERSION-INFO"

#define RQ_MALLOC(size) SIS_MemMalloc(nullptr, (size), 0, 0, RQ_SOURCE_TAG, RQ_VERSION_TAG, __LINE__)
#define RQ_CALLOC(count, size) \
    SIS_MemCalloc(nullptr, (count), (size), 0, 0, RQ_SOURCE_TAG, RQ_VERSION_TAG, __LINE__)
#define RQ_REALLOC(block, size) \
    SIS_MemRealloc(nullptr, (block), (size), 0, 0, RQ_SOURCE_TAG, RQ_VERSION_TAG, __LINE__)
#define RQ_STRDUP(text) SIS_MemStrdup(nullptr, (text), 0, 0, RQ_SOURCE_TAG, RQ_VERSION_TAG, __LINE__)
#define RQ_FREE(block) SIS_MemFree(nullptr, (block), 0, 0, RQ_SOURCE_TAG, RQ_VERSION_TAG, __LINE__)

namespace rq {

// Owns one block of the platform allocator.  release() hands it on.
template <typename T>
class Block {
public:
    Block() noexcept = default;
    explicit Block(void *p) noexcept : p_(static_cast<T *>(p)) {}
    ~Block() { reset(); }
    Block(const Block &) = delete;
    Block &operator=(const Block &) = delete;
    Block(Block &&o) noexcept : p_(o.release()) {}
    Block &operator=(Block &&o) noexcept
    {
        if (this != &o) {
            reset();
            p_ = o.release();
        }
        return *this;
    }

    T *get() const noexcept { return p_; }
    T &operator[](size_t i) const noexcept { return p_[i]; }
    explicit operator bool() const noexcept { return p_ != nullptr; }
    T *release() noexcept { return std::exchange(p_, nullptr); }
    void reset(void *p = nullptr) noexcept
    {
        if (p_ != nullptr)
            SIS_MemFree(nullptr, p_, 0, 0, "src/lib/core/internal/rq_mem", RQ_VERSION_TAG, __LINE__);
        p_ = static_cast<T *>(p);
    }

private:
    T *p_ = nullptr;
};

// Owns a file descriptor.
class Fd {
public:
    Fd() noexcept = default;
    explicit Fd(int fd) noexcept : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    Fd(Fd &&o) noexcept : fd_(o.release()) {}

    int get() const noexcept { return fd_; }
    bool ok() const noexcept { return fd_ >= 0; }
    int release() noexcept { return std::exchange(fd_, -1); }
    // Closes now and reports close(2)'s result; callers that must know
    // whether the data reached the file use this instead of the destructor.
    int close() noexcept
    {
        int rc = fd_ >= 0 ? ::close(fd_) : 0;
        fd_ = -1;
        return rc;
    }
    void reset(int fd = -1) noexcept
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

// Owns a stdio stream.
class File {
public:
    File() noexcept = default;
    explicit File(FILE *f) noexcept : f_(f) {}
    ~File() { reset(); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    FILE *get() const noexcept { return f_; }
    explicit operator bool() const noexcept { return f_ != nullptr; }
    FILE *release() noexcept { return std::exchange(f_, nullptr); }
    void reset(FILE *f = nullptr) noexcept
    {
        if (f_ != nullptr)
            std::fclose(f_);
        f_ = f;
    }

private:
    FILE *f_ = nullptr;
};

// Holds a platform critical section for the life of the guard.
class CriticalSection {
public:
    explicit CriticalSection(SIS_CRITICAL_SECTION *cs) noexcept : cs_(cs) { SIS_SyncCriticalSectionEnter(cs_); }
    ~CriticalSection() { SIS_SyncCriticalSectionLeave(cs_); }
    CriticalSection(const CriticalSection &) = delete;
    CriticalSection &operator=(const CriticalSection &) = delete;

private:
    SIS_CRITICAL_SECTION *cs_;
};

// Runs a callable when the scope ends, unless dismissed.
template <typename F>
class ScopeExit {
public:
    explicit ScopeExit(F f) noexcept : f_(std::move(f)) {}
    ~ScopeExit()
    {
        if (armed_)
            f_();
    }
    ScopeExit(const ScopeExit &) = delete;
    ScopeExit &operator=(const ScopeExit &) = delete;
    void dismiss() noexcept { armed_ = false; }

private:
    F f_;
    bool armed_ = true;
};

}  // namespace rq

#endif
