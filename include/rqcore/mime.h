/*
 * rqcore MIME messages: the model, the parser and the generator.
 */
#ifndef RQCORE_MIME_H
#define RQCORE_MIME_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_END_DECLS

#endif
