/*
 * rqcore content encodings: base64 and quoted-printable.
 */
#ifndef RQCORE_ENCODE_H
#define RQCORE_ENCODE_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_END_DECLS

#endif
