// Internal to librqcore: the bounded byte sink shared by the code-table
// sources.
#ifndef RQ_CODE_INTERNAL_H
#define RQ_CODE_INTERNAL_H

#include "rqcore/code.h"

#include <cstddef>

namespace rq::code {

// Writes into a buffer of a known size and remembers whether anything did
// not fit, so that one test after a loop replaces a test per caller.
class Sink {
public:
    Sink(U8 *p, size_t size) noexcept : p_(p), size_(size) {}
    void put(U8 b) noexcept
    {
        if (n_ < size_)
            p_[n_] = b;
        else
            full_ = true;
        ++n_;
    }
    size_t length() const noexcept { return n_; }
    bool overflowed() const noexcept { return full_; }

private:
    U8 *p_;
    size_t size_;
    size_t n_ = 0;
    bool full_ = false;
};

// Unpacks length bytes into a sink; false when the data ends inside an escape.
bool unpackInto(const U8 *in, size_t length, Sink &out) noexcept;

}  // namespace rq::code

#endif
