// Fuzzes the e-mail address checker: it always ends, and a failure's offset
// lies inside the text.
#include "rqcore/mail.h"

#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);
    text = text.c_str();  // the checker takes a NUL-terminated text
    U32 offset = 0;
    U32 status = CheckEMailAddress(text.c_str(), &offset);
    if (status != 0 && offset > text.size())
        std::abort();
    if (status == 0 && offset != 0)
        std::abort();
    return 0;
}
