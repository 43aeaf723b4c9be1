// Internal to librqcore: what the character-set name files share.
#ifndef RQ_CHARMAP_INTERNAL_H
#define RQ_CHARMAP_INTERNAL_H

#include "rqcore/charmap.h"

#include "rqsis/rqsis.h"

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <unistd.h>

namespace rq::charmap {

// One row of the static table: a squished alias and the set it names.
struct Row {
    std::string_view alias;
    U32 id;
    std::string_view canonical;
    U32 type;
};

// First row whose alias equals the squished name, or null.
const Row *findByAlias(std::string_view squished) noexcept;
// First row with the identifier, or null.
const Row *findById(U32 id) noexcept;

// The squishing rule, byte by byte: upper-case letters and digits kept,
// lower-case letters raised, anything else dropped (returns 0).
constexpr char squishByte(unsigned char c) noexcept
{
    if ((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
        return static_cast<char>(c);
    if (c >= 'a' && c <= 'z')
        return static_cast<char>(c - 'a' + 'A');
    return 0;
}

// Squishes at most `limit` bytes of `name` into `out` (room for limit + 1)
// and returns the squished length.
size_t squishInto(const char *name, size_t limit, char *out) noexcept;

// Copies text into a caller's buffer of `len` bytes: at most len-1
// characters, always terminated; nothing when len is 0.
void copyOut(char *out, int len, std::string_view text) noexcept;

// What one "charmap.config" entry gives.
struct ConfigEntry {
    char canonical[65];
    U32 id;
    char mapFile[69];
    U32 type;
};

// The key of a configuration lookup: a squished name, or an identifier.
struct ConfigKey {
    std::string_view squished;
    U32 id;
    bool byId;
};

// Reads "charmap.config" of the configuration directory and fills `entry`
// from the first line that matches.  0, CHARMAP_ERR_NO_CONFIG (no directory
// or the file cannot be opened, the latter logged) or
// CHARMAP_ERR_NOT_IN_CONFIG.
U32 configLookup(const ConfigKey &key, ConfigEntry *entry) noexcept;

// The one critical section of the family: it guards the configuration
// directory and the process locale while a lookup reads them.
SIS_CRITICAL_SECTION *familySection() noexcept;

// Hands each line of a descriptor to onLine(line, length) without its line
// end, cut to `Max` bytes and terminated; the rest of a longer line is
// skipped.  Stops early when onLine returns true, and returns whether it
// did.  A read error ends the walk as the end of the file would.
template <size_t Max, typename F>
bool forEachLine(int fd, F &&onLine) noexcept
{
    char chunk[4096];
    char line[Max + 1];
    size_t n = 0;
    bool pending = false;  // bytes seen since the last line end
    for (;;) {
        ssize_t got = ::read(fd, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        for (ssize_t i = 0; i < got; ++i) {
            char c = chunk[i];
            if (c == '\n') {
                line[n] = 0;
                if (onLine(line, n))
                    return true;
                n = 0;
                pending = false;
            } else {
                pending = true;
                if (n < Max)
                    line[n++] = c;
            }
        }
    }
    if (pending) {
        line[n] = 0;
        return onLine(line, n);
    }
    return false;
}

}  // namespace rq::charmap

#endif
