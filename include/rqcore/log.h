/*
 * rqcore error log: records addressed to errlog ids, appended to log files.
 */
#ifndef RQCORE_LOG_H
#define RQCORE_LOG_H

#include "types.h"

RQ_BEGIN_DECLS

/* One error record for `errlogId`: "ERROR CODE -> 0x<code>" and `message`.
 * Never fails towards the caller. */
RQ_API void WriteErrLog(U32 errlogId, U32 code, const char *message) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
