/*
 * rqcore streams: byte channels over a fixed buffer, a growing buffer or a file.
 */
#ifndef RQCORE_STREAM_H
#define RQCORE_STREAM_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_END_DECLS

#endif
