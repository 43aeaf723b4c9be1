// Shared test helpers: live-block accounting and the allocation-failure sweep.
#ifndef RQTEST_H
#define RQTEST_H

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "rqcore/types.h"

namespace rqtest {

struct Live {
    uint64_t blocks = 0;
    uint64_t bytes = 0;
};

Live live();

// A description of every live block (for failure messages).
std::string liveReport();

// Fails the current test if the live blocks at the end of the scope differ
// from those at its start.
class LeakCheck {
public:
    LeakCheck();
    ~LeakCheck();
    LeakCheck(const LeakCheck &) = delete;
    LeakCheck &operator=(const LeakCheck &) = delete;

private:
    Live start_;
};

// The allocation-failure sweep.  Runs `op` with its 1st allocation failing,
// then its 2nd, and so on, until a run completes with no injected failure.
// `op` performs the operation and releases everything it built, returning
// the operation's status.  After every failed run `onFailure(status)` makes
// the test's assertions on the status, and the sweep itself checks that no
// block stayed live.  Returns the number of allocations of the successful
// run.
int allocationSweep(const std::function<U32()> &op, const std::function<void(U32)> &onFailure,
                    int limit = 100000);

// Convenience: every failed run must return exactly `expected`.
int allocationSweep(const std::function<U32()> &op, U32 expected, int limit = 100000);

// Fills a buffer with junk so that code which appends instead of writing,
// or does not terminate, is caught.
void fillJunk(void *buffer, size_t size);

// Reads a whole file into a string ("" if it cannot be read), and writes
// one (replacing it) with exactly these bytes.
std::string readFile(const std::string &path);
void writeFile(const std::string &path, const std::string &bytes);

// The standard output of a shell command ("" when it cannot be run), and a
// text split into its lines (line ends dropped).
std::string commandOutput(const std::string &command);
std::vector<std::string> splitLines(const std::string &text);

// A fresh empty directory under the system's temporary directory, removed
// with its contents when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// A glibc iconv(3) conversion, the independent reference for the charset
// converters.
class Iconv {
public:
    Iconv(const std::string &from, const std::string &to);
    ~Iconv();
    Iconv(const Iconv &) = delete;
    Iconv &operator=(const Iconv &) = delete;
    bool ok() const;
    // The whole input converted, or nothing when iconv refuses any of it.
    std::optional<std::string> operator()(const std::string &input) const;

private:
    void *cd_;
};

// UTF-16 text as its little-endian bytes, and back.
std::string toUcs2(const std::u16string &s);
std::u16string fromUcs2(const std::string &bytes);

}  // namespace rqtest

#endif
