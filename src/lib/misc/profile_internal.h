// Internal to the profile reader: the line reader and the value syntax that
// the file getters, the section readers and the in-memory profile share.
#ifndef RQ_PROFILE_INTERNAL_H
#define RQ_PROFILE_INTERNAL_H

#include "rqcore/profiles.h"

#include <cstddef>
#include <string_view>

namespace rq::profile {

// One read of the line buffer yields at most this many characters; the rest
// of a longer physical line comes back as a line of its own.
constexpr size_t kLineBuffer = 215;
constexpr size_t kLineMax = kLineBuffer - 1;
constexpr U32 kRawListValue = 799;  // the list getters' value buffer

inline bool isBlank(char c) { return c == ' ' || c == '\t'; }

// Reads a file piece by piece as the product's line buffer did (each piece
// up to and including its newline, at most `limit` characters), from large
// blocks, with no allocation.  A NUL byte ends the piece's text as the
// C string functions see it.
class LineReader {
public:
    explicit LineReader(int fd, size_t limit = kLineMax) noexcept : fd_(fd), limit_(limit) {}
    ~LineReader();
    LineReader(const LineReader &) = delete;
    LineReader &operator=(const LineReader &) = delete;

    // The next piece into line (kLineBuffer bytes), NUL-terminated; false at
    // the end of the file.
    bool next(char *line) noexcept;

private:
    bool fill() noexcept;

    int fd_;
    size_t limit_;
    size_t pos_ = 0;
    size_t end_ = 0;
    bool eof_ = false;
    char block_[16384];
};

// Opens a profile for reading; -1 when it cannot be opened.
int openProfile(const char *path) noexcept;

// Reads a value that starts right after a key line's "=".  `more` supplies
// the continuation lines of a brace block (nullptr: none).  dst has room for
// cap bytes (cap >= 1); the result is always terminated.
U32 parseValue(const char *text, LineReader *more, char *dst, size_t cap) noexcept;

// Section header test of the key getters: "[", blanks, name, blanks, "]".
bool headerMatches(const char *line, std::string_view section) noexcept;

// Reads lines into `line` up to and including the header of `section`;
// false when the file ends first.
bool skipToSection(LineReader &reader, char *line, const char *section) noexcept;

// Key test: blanks, key, blanks, "=".  Returns the text after "=" or nullptr.
const char *keyMatches(const char *line, std::string_view key) noexcept;

// The enumerating readers' filter: false for comments and lines with nothing
// to read.
bool significant(const char *line) noexcept;

// Copies at most cap-1 characters of src and terminates.
void copyBounded(char *dst, size_t cap, const char *src) noexcept;

// Writes the error record of a duplicate section or key.
void logDuplicate(U32 code) noexcept;

}  // namespace rq::profile

#endif
