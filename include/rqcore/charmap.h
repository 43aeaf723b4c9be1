/*
 * rqcore character-set names and the charmap configuration.
 */
#ifndef RQCORE_CHARMAP_H
#define RQCORE_CHARMAP_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_END_DECLS

#endif
