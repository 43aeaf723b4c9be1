// Shared pieces of the encode family: the base64 kernels, used by the
// encoded-word functions as well as the public base64 calls.
#ifndef RQCORE_SRC_LIB_ENCODE_ENCODE_INTERNAL_H
#define RQCORE_SRC_LIB_ENCODE_ENCODE_INTERNAL_H

#include "rqcore/types.h"

#include <cstddef>

namespace rq::encode {

// Writes the 4*ceil(length/3) base64 characters of `in` to `out` (no NUL).
size_t base64EncodeInto(const unsigned char *in, size_t length, char *out) noexcept;

// Decodes `length` base64 characters into `out`, which has room for
// (length/4)*3 + 6 bytes, with the rules of ENCODE_convertFromBase64;
// returns the bytes written and the status in *status.
size_t base64DecodeInto(const unsigned char *text, size_t length, unsigned char *out, U32 *status) noexcept;

}  // namespace rq::encode

#endif
