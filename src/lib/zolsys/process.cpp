// Running a program without a shell, sleeping in milliseconds, and the
// process's identity and end.

#define RQ_SOURCE_TAG "src/lib/core/lib/zolsys/process"
#include "internal/rq_mem.h"
#include "rqcore/sys.h"

#include <cerrno>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace rq::zolsys {
namespace {

// The program, 18 arguments and the terminating null.
constexpr int kVectorRoom = 20;

}  // namespace
}  // namespace rq::zolsys

extern "C" {

RQ_API S32 ZOL_system(const char *command) noexcept
{
    using rq::zolsys::kVectorRoom;
    if (command == nullptr || command[0] == '\0')
        return 1;
    rq::Block<char> copy(RQ_STRDUP(command));
    if (!copy)
        return -1;

    char *vector[kVectorRoom];
    char *save = nullptr;
    int words = 0;
    S32 result = 0;
    for (char *word = SIS_CrtStrTok(copy.get(), " ", &save); word != nullptr;
         word = SIS_CrtStrTok(nullptr, " ", &save)) {
        if (words == kVectorRoom - 1) {
            // Callers rely on the program still running with the first 18
            // arguments; the -1 tells them words were dropped.
            result = -1;
            break;
        }
        vector[words++] = word;
    }
    if (words == 0)
        return 1;  // only blanks: nothing to run, as for an empty command
    vector[words] = nullptr;

    pid_t child = ::fork();
    if (child < 0)
        return -1;
    if (child == 0) {
        ::execvp(vector[0], vector);
        ::_exit(127);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    // The child's exit status is not returned: reaping it is success.
    return result;
}

RQ_API S32 ZOL_MilliSleep(U32 milliseconds) noexcept
{
    S32 rc = static_cast<S32>(::sleep(milliseconds / 1000));
    U32 rest = milliseconds % 1000;
    if (rest != 0)
        rc = ::usleep(static_cast<useconds_t>(rest) * 1000);
    return rc;
}

RQ_API S32 ZOL_Getpid(void) noexcept
{
    return static_cast<S32>(::getpid());
}

RQ_API void ZOL_Exit(S32 status) noexcept
{
    std::exit(status);
}

RQ_API void ZOL_Abort(void) noexcept
{
    std::abort();
}

}  // extern "C"
