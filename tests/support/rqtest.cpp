#include "rqtest.h"

#include "rqcore/encode.h"
#include "rqsis/rqsis_test.h"

#include <iconv.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace rqtest {

Live live()
{
    // The encoded-word converters kept between calls are released first:
    // they are a cache, not a leak.
    ENCODE_ReleaseCachedConverters();
    Live l;
    SIS_TestLiveGet(&l.blocks, &l.bytes);
    return l;
}

std::string liveReport()
{
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    if (out == nullptr)
        return "(no report)";
    SIS_TestLiveReport(out);
    std::fclose(out);
    std::string report(text, size);
    std::free(text);
    return report;
}

LeakCheck::LeakCheck() : start_(live()) {}

LeakCheck::~LeakCheck()
{
    Live end = live();
    EXPECT_EQ(end.blocks, start_.blocks) << "blocks leaked:\n" << liveReport();
    EXPECT_EQ(end.bytes, start_.bytes);
}

int allocationSweep(const std::function<U32()> &op, const std::function<void(U32)> &onFailure, int limit)
{
    for (int n = 0; n < limit; ++n) {
        Live before = live();
        SIS_TestFailAfter(n);
        U32 status = op();
        bool fired = SIS_TestFailFired() != 0;
        SIS_TestFailAfter(-1);
        Live after = live();
        SCOPED_TRACE("allocation " + std::to_string(n + 1) + " failed");
        EXPECT_EQ(after.blocks, before.blocks) << "blocks leaked:\n" << liveReport();
        if (!fired)
            return n;
        onFailure(status);
        if (::testing::Test::HasFailure())
            return n;
    }
    ADD_FAILURE() << "operation still allocating after " << limit << " allocations";
    return limit;
}

int allocationSweep(const std::function<U32()> &op, U32 expected, int limit)
{
    return allocationSweep(op, [expected](U32 status) { EXPECT_EQ(status, expected); }, limit);
}

void fillJunk(void *buffer, size_t size)
{
    std::memset(buffer, 0xA5, size);
}

std::string readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

void writeFile(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string commandOutput(const std::string &command)
{
    std::string out;
    FILE *p = popen(command.c_str(), "r");
    if (p == nullptr)
        return out;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, p)) > 0)
        out.append(buffer, n);
    pclose(p);
    return out;
}

std::vector<std::string> splitLines(const std::string &text)
{
    std::vector<std::string> v;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos)
            end = text.size();
        v.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return v;
}

TempDir::TempDir()
{
    const char *base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/rqtest.XXXXXX";
    std::string buffer = pattern;
    if (mkdtemp(buffer.data()) != nullptr)
        path_ = buffer;
}

TempDir::~TempDir()
{
    if (!path_.empty()) {
        std::string command = "rm -rf '" + path_ + "'";
        if (std::system(command.c_str()) != 0)
            std::fprintf(stderr, "could not remove %s\n", path_.c_str());
    }
}

Iconv::Iconv(const std::string &from, const std::string &to) : cd_(iconv_open(to.c_str(), from.c_str())) {}

Iconv::~Iconv()
{
    if (ok())
        iconv_close(static_cast<iconv_t>(cd_));
}

bool Iconv::ok() const { return static_cast<iconv_t>(cd_) != reinterpret_cast<iconv_t>(-1); }

std::optional<std::string> Iconv::operator()(const std::string &input) const
{
    iconv_t cd = static_cast<iconv_t>(cd_);
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    std::string out(input.size() * 8 + 16, '\0');
    char *in = const_cast<char *>(input.data()), *o = out.data();
    size_t inLeft = input.size(), outLeft = out.size();
    if (iconv(cd, &in, &inLeft, &o, &outLeft) == static_cast<size_t>(-1) ||
        iconv(cd, nullptr, nullptr, &o, &outLeft) == static_cast<size_t>(-1))
        return std::nullopt;
    out.resize(out.size() - outLeft);
    return out;
}

std::string toUcs2(const std::u16string &s)
{
    return std::string(reinterpret_cast<const char *>(s.data()), s.size() * 2);
}

std::u16string fromUcs2(const std::string &bytes)
{
    std::u16string s(bytes.size() / 2, u'\0');
    std::memcpy(s.data(), bytes.data(), s.size() * 2);
    return s;
}

}  // namespace rqtest
