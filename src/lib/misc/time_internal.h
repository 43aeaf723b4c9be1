// Internal to librqcore: what the time files share.
#ifndef RQ_MISC_TIME_INTERNAL_H
#define RQ_MISC_TIME_INTERNAL_H

#include "rqcore/time.h"

namespace rq::time {

constexpr U32 kSecondsPerDay = 86400;

// A null record is refused with the date family's code: the time functions
// hand their date part on, where the date functions would refuse it.
constexpr U32 kNullRecord = DX_DATE_ERR_NULL;

// Sets *date to 1 January 1991, the epoch of day and time IDs.
U32 epochDate(DX_DATE *date) noexcept;

// The time ID of *time counted in `unit` seconds (1 or 60).
U32 timeIdOf(DX_TIME *time, U32 *timeId, U32 unit) noexcept;

}  // namespace rq::time

#endif
