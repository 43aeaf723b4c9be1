// Internal to librqcore: the checksum over a run of bytes, shared by the
// array and file checksums and the code tables.
#ifndef RQ_CKSUM_INTERNAL_H
#define RQ_CKSUM_INTERNAL_H

#include "rqcore/cksum.h"

#include <cstddef>

namespace rq::cksum {

// The checksum c carried over n bytes from p, first to last.
U16 update(U16 c, const U8 *p, size_t n) noexcept;
// The same over the n bytes from p taken last to first.
U16 updateBackward(U16 c, const U8 *p, size_t n) noexcept;

}  // namespace rq::cksum

#endif
