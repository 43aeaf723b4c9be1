/*
 * rqcore profiles: reading configuration files.
 */
#ifndef RQCORE_PROFILES_H
#define RQCORE_PROFILES_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_END_DECLS

#endif
