// The library frame: the start-up object that brings the platform layer up
// with the library and down at unload, the banner and the release function.

#define RQ_SOURCE_TAG "src/lib/core/prod/shlib/rqcore/frame_init"
#include "internal/rq_mem.h"
#include "rqcore/frame.h"

namespace {

constexpr char kVersionId[] = "\nVarnelLibrary:rqcore version:007.000.5180.0 date:20050629\n";

// Counts how many times the platform layer was started through this object;
// the destructor ends it exactly that many times.
class CinitUnicode {
public:
    CinitUnicode() noexcept = default;
    ~CinitUnicode()
    {
        while (started_ != 0) {
            SIS_InitEnd(nullptr);
            --started_;
        }
    }
    CinitUnicode(const CinitUnicode &) = delete;
    CinitUnicode &operator=(const CinitUnicode &) = delete;

    U32 run() noexcept
    {
        if (started_ != 0)
            return 0;
        U32 rc = SIS_InitBegin(nullptr);
        ++started_;
        return rc;
    }

private:
    U32 started_ = 0;
};

// Not locked: runInitCode runs during loading, before any thread can call
// into the library.
CinitUnicode initObject;
const U32 initResult = runInitCode();

}  // namespace

extern "C" {

RQ_API U32 runInitCode(void) noexcept
{
    return initObject.run();
}

RQ_API U32 RQCORE_free(void *block) noexcept
{
    return RQ_FREE(block);
}

RQ_API const char *GetRqCoreVerID(void) noexcept
{
    (void)initResult;
    return kVersionId;
}

}  // extern "C"
