// Error records.  (Placeholder until the error log lands: records are
// dropped, as they are while logging is not enabled.)

#define RQ_SOURCE_TAG "src/lib/core/lib/misc/errlog_record"
#include "internal/rq_mem.h"
#include "rqcore/log.h"

extern "C" RQ_API void WriteErrLog(U32, U32, const char *) noexcept
{
}
