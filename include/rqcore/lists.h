/*
 * rqcore lists: the DX_List container, its ordering, comparison and selection, and the DX_Mem byte helpers.
 */
#ifndef RQCORE_LISTS_H
#define RQCORE_LISTS_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_END_DECLS

#endif
