/*
 * rqcore e-mail address checking.
 */
#ifndef RQCORE_MAIL_H
#define RQCORE_MAIL_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_END_DECLS

#endif
