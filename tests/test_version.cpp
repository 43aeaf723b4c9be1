// Version labels: the order of the checks, the free text and the ordering key.
#include "rqtest.h"

#include "rqcore/version.h"

#include <cstring>
#include <string>

TEST(Version, SplitChecksInOrder)
{
    // Each label fails at the first check it breaks: null, dots, length,
    // letter, major, minor.
    std::string long138 = "B.05.12 " + std::string(130, 'x');
    std::string long137 = "B.05.12 " + std::string(129, 'x');
    struct Case { const char *label; U32 status; U32 letter, major, minor; const char *text; } cases[] = {
        {"B.05.12 first release", 0, 1, 5, 12, "first release"}, {"b.05.12", 0, 1, 5, 12, ""},
        {"Z.99.00\t \tx y\r\nz", 0, 25, 99, 0, "x y"}, {"a.00.07\nnext", 0, 0, 0, 7, ""}, {"A.01.02x", 0, 0, 1, 2, "x"},
        {long137.c_str(), 0, 1, 5, 12, nullptr}, {nullptr, 0x15406, 0, 0, 0, nullptr},
        {"B.5.12", 0x15404, 0, 0, 0, nullptr},  // the dots come first, at fixed places
        {"", 0x15404, 0, 0, 0, nullptr}, {"B.05", 0x15404, 0, 0, 0, nullptr}, {"B-05.12", 0x15404, 0, 0, 0, nullptr},
        {long138.c_str(), 0x15405, 0, 0, 0, nullptr}, {"1.05.12", 0x15403, 0, 0, 0, nullptr},
        {"[.05.12", 0x15403, 0, 0, 0, nullptr}, {"{.05.12", 0x15403, 0, 0, 0, nullptr},
        {"B.5x.12", 0x15402, 0, 0, 0, nullptr}, {"B. 5.12", 0x15402, 0, 0, 0, nullptr},
        {"B.05.1", 0x15401, 0, 0, 0, nullptr}, {"B.05.", 0x15401, 0, 0, 0, nullptr},
        {"B.05.1a", 0x15401, 0, 0, 0, nullptr}, {"@.xx.1", 0x15403, 0, 0, 0, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.label ? std::string(c.label).substr(0, 20) : "(null)");
        U32 letter = 77, major = 77, minor = 77;
        char text[DX_VERSION_TEXT_SIZE];
        std::memset(text, 'J', sizeof text);
        EXPECT_EQ(DX_VersionSplit(0, c.label, &letter, &major, &minor, text), c.status);
        if (c.status != 0) {
            EXPECT_EQ(letter * 10000 + major * 100 + minor, 77u * 10101u);  // nothing written
            EXPECT_EQ(text[0], 'J');
            continue;
        }
        EXPECT_EQ(letter, c.letter);
        EXPECT_EQ(major, c.major);
        EXPECT_EQ(minor, c.minor);
        if (c.text != nullptr)
            EXPECT_STREQ(text, c.text);
        else
            EXPECT_EQ(std::strlen(text), 127u);  // 129 characters of text cut to fit
        for (size_t i = std::strlen(text); i < sizeof text; ++i)
            ASSERT_EQ(text[i], '\0') << i;  // zero-filled behind the text
    }
    EXPECT_EQ(DX_VersionSplit(0, "B.05.12", nullptr, nullptr, nullptr, nullptr), 0u);
}

TEST(Version, CompareByLetterMajorMinor)
{
    struct Case { const char *a, *b; U32 status, result; } cases[] = {
        {"A.99.99", "B.00.00", 0, 0xFFFFFFFFu}, {"B.05.12", "b.05.12 any text", 0, 0},
        {"b.06.00", "B.05.99", 0, 1},           {"C.01.02", "C.01.01", 0, 1},
        {"B.5.12", "x", 0x15404, 0x5A},         {"B.05.12", "B.05.1", 0x15401, 0x5A},
        {"B.5.12", "B.05.1", 0x15404, 0x5A},    // a's error first
        {nullptr, "B.05.12", 0x15406, 0x5A},    {"B.05.12", nullptr, 0x15406, 0x5A},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.a ? c.a : "(null)") + " vs " + (c.b ? c.b : "(null)"));
        U32 result = 0x5A;
        EXPECT_EQ(DX_VersionCompare(0, c.a, c.b, &result), c.status);
        EXPECT_EQ(result, c.result);
    }
    EXPECT_EQ(DX_VersionCompare(0, "A.00.00", "A.00.01", nullptr), 0u);
}
