/*
 * rqcore Unicode converters.
 */
#ifndef RQCORE_UNICODE_H
#define RQCORE_UNICODE_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_END_DECLS

#endif
