// The rqdata command-line tool, run as an operator runs it: every command,
// bad files and usage errors, with their exit codes and messages.
#include "rqtest.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <sys/wait.h>

namespace {

#ifdef RQDATA_TOOL

struct Outcome {
    int status;
    std::string out, err;
};

class Tool : public ::testing::Test {
protected:
    rqtest::TempDir dir;

    std::string file(const std::string &name) const { return dir.file(name); }

    void write(const std::string &name, const std::string &bytes) const
    {
        std::ofstream(file(name), std::ios::binary) << bytes;
    }
    // Arguments are single words here: no quoting is needed.
    Outcome run(const std::string &arguments) const
    {
        std::string cmd = std::string(RQDATA_TOOL) + " " + arguments + " >" + file("stdout") + " 2>" + file("stderr");
        int raw = std::system(cmd.c_str());
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, rqtest::readFile(file("stdout")), rqtest::readFile(file("stderr"))};
    }
};

const char kDefinition[] =
    "# labels of the mail screens\n"
    "[mail]\n"
    "1001 = Inbox\n"
    "1002 = Caf\\xC3\\xA9 menu\\n\n"
    "0x3F0 = tab\\there \\\\ back\n"
    "[errors]\n"
    "2001 = \\s indented\n"
    "7 = ctl\\x01x\n";

TEST_F(Tool, CompileListGetRoundTrip)
{
    write("def", kDefinition);
    Outcome r = run("compile " + file("def") + " " + file("t"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");

    r = run("list " + file("t"));
    ASSERT_EQ(r.status, 0) << r.err;
    // Key order, escapes only where the definition file needs them.
    const std::string body = "[strings]\n"
                             "7 = ctl\\x01x\n"
                             "1001 = Inbox\n"
                             "1002 = Caf\xC3\xA9 menu\\n\n"
                             "1008 = tab\\there \\\\ back\n"
                             "2001 = \\s indented\n";
    EXPECT_EQ(r.out, "# " + file("t") + ": 5 keys\n" + body);

    // The listing is itself a definition file that compiles to the same table.
    write("relisted", r.out);
    ASSERT_EQ(run("compile " + file("relisted") + " " + file("t2")).status, 0);
    EXPECT_EQ(run("list " + file("t2")).out, "# " + file("t2") + ": 5 keys\n" + body);

    struct Case { const char *key; int status; const char *out; } const cases[] = {
        {"1002", 0, "Caf\xC3\xA9 menu\n\n"}, {"0x3F0", 0, "tab\there \\ back\n"},
        {"2001", 0, "  indented\n"},  // \s keeps the first blank, the second is plain text
        {"5", 1, ""}, {"4294967295", 1, ""},  // absent
        {"0", 2, ""},  // key 0 cannot be stored: a usage error, not a lookup
        {"4294967296", 2, ""}, {"12x", 2, ""}, {"-1", 2, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.key);
        r = run("get " + file("t") + " " + c.key);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err.empty(), c.status == 0) << r.err;
    }
    EXPECT_NE(run("get " + file("t") + " 5").err.find("key 5 not found"), std::string::npos);
}

TEST_F(Tool, BadFilesNameTheFileAndGiveOne)
{
    write("def", kDefinition);
    ASSERT_EQ(run("compile " + file("def") + " " + file("t")).status, 0);
    std::string table = rqtest::readFile(file("t"));
    ASSERT_GT(table.size(), 12u);
    write("short", table.substr(0, 7));  // cut inside the header
    write("zero", std::string(table).replace(4, 4, 4, '\0'));  // a slot count of 0
    write("cut", table.substr(0, table.size() - 5));  // the table runs past the end
    // Key 1001's stored length forged: past the file, and absurdly long.
    auto forged = [&](U32 length) {
        std::string t = table;
        U32 w[2], key = 0;  // table offset, slot count
        std::memcpy(w, t.data(), 8);
        for (U32 at = w[0]; at < w[0] + 12 * w[1] && at + 12 <= t.size(); at += 12)
            if (std::memcpy(&key, t.data() + at + 4, 4), key == 1001)
                std::memcpy(t.data() + at + 8, &length, 4);
        return t;
    };
    write("long", forged(static_cast<U32>(table.size())));
    write("huge", forged(0xFFFFFFFFu));
    write("nosection", "1 = x\n");
    write("twice", "[s]\n1 = x\n1 = y\n");

    struct Case {
        std::string arguments, named, message;  // the file the message names, part of the message
    } const cases[] = {
        {"list " + file("missing"), file("missing"), "cannot open"},
        {"list " + file("short"), file("short"), "shorter than its header"},
        {"list " + file("zero"), file("zero"), "not a string table"},
        {"get " + file("cut") + " 1001", file("cut"), "not a string table"},
        {"get " + file("long") + " 1001", file("long"), "past the end of the file"},
        {"get " + file("huge") + " 1001", file("huge"), "past the end of the file"},
        {"list " + file("huge"), file("huge"), "key 1001: damaged string table"},
        {"compile " + file("missing") + " " + file("o"), file("missing"), "Cannot read definition file"},
        {"compile " + file("nosection") + " " + file("o"), file("nosection"), "Missing section declarator"},
        {"compile " + file("twice") + " " + file("o"), file("twice"), "line 3: key 1 defined twice"},
        {"compile " + file("def") + " " + file("nodir/o"), file("def"), "Cannot create table file"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.arguments);
        Outcome r = run(c.arguments);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.out.find("1001 = "), std::string::npos) << "no text from a bad record";
        EXPECT_EQ(r.err.rfind("rqdata: " + c.named + ": ", 0), 0u) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    }
}

TEST_F(Tool, EncodeDecodeRoundTrip)
{
    // Sizes around the 256-byte pieces, packable runs and incompressible bytes.
    const size_t sizes[] = {0, 1, 255, 256, 257, 512, 1500};
    for (size_t size : sizes) {
        for (int packable = 0; packable < 2; ++packable) {
            SCOPED_TRACE(std::to_string(size) + (packable ? " runs" : " mixed"));
            std::string bytes(size, '\0');
            U32 x = 12345;
            for (size_t i = 0; i < size; ++i) {
                x = x * 1103515245u + 12345u;
                bytes[i] = static_cast<char>(packable ? (i / 40) & 7 : x >> 24);  // includes the escape byte 7
            }
            write("in", bytes);
            Outcome r = run("encode " + file("in") + " " + file("code"));
            ASSERT_EQ(r.status, 0) << r.err;
            std::string code = rqtest::readFile(file("code"));
            ASSERT_GE(code.size(), 8u + 16u);
            EXPECT_EQ(code.substr(8, 4), "\n\n1 ") << "the total, then the first information line";
            EXPECT_EQ(code.find_first_not_of("0123456789ABCDEF"), 8u);
            r = run("decode " + file("code") + " " + file("out"));
            ASSERT_EQ(r.status, 0) << r.err;
            EXPECT_TRUE(rqtest::readFile(file("out")) == bytes);
        }
    }
}

TEST_F(Tool, BadCodeFilesLeaveNoOutput)
{
    std::string bytes(600, '\0');
    for (int i = 0; i < 600; ++i)
        bytes[i] = static_cast<char>(i * 7);
    write("in", bytes);
    ASSERT_EQ(run("encode " + file("in") + " " + file("code")).status, 0);
    const std::string code = rqtest::readFile(file("code"));
    auto at40 = [&](char c) { return std::string(code).replace(40, 1, 1, c); };  // inside the first block
    struct Case {
        std::string arguments, bytes, named;  // bytes are written to "bad" first
        const char *message;
    };
    const std::string decode = "decode " + file("bad") + " " + file("out"), bad = file("bad");
    const Case cases[] = {
        {decode, code.substr(0, 8), bad, "truncated"},
        {decode, code.substr(0, code.size() / 2), bad, "truncated"},
        {decode, "", bad, "truncated"},
        {decode, at40(code[40] == '0' ? '1' : '0'), bad, "checksum"},
        {decode, at40('~'), bad, "outside the code alphabet"},
        {decode, "[s]\n1 = text that is no code file\n", bad, "not a code file"},
        {"decode " + file("missing") + " " + file("out"), code, file("missing"), "cannot open for reading"},
        {"decode " + file("bad") + " " + file("nodir/out"), code, file("nodir/out"), "cannot open for writing"},
        {"encode " + file("missing") + " " + file("out"), code, file("missing"), "cannot open for reading"},
        {"encode " + file("in") + " " + file("nodir/out"), code, file("nodir/out"), "cannot open for writing"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.arguments);
        write("bad", c.bytes);
        std::remove(file("out").c_str());
        Outcome r = run(c.arguments);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err.rfind("rqdata: " + c.named + ": ", 0), 0u) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_FALSE(std::ifstream(file("out")).good()) << "a failed conversion leaves no output";
    }
}

TEST_F(Tool, UsageErrorsAndHelp)
{
    struct Case {
        std::string arguments;
        int status;
        const char *message;  // part of standard error ("" for none)
    } const cases[] = {
        {"", 2, "no command given"}, {"frobnicate x", 2, "unknown command \"frobnicate\""},
        {"list", 2, "list takes 1 argument"}, {"list a b", 2, "list takes 1 argument"},
        {"compile a", 2, "compile takes 2 arguments"}, {"get a", 2, "get takes 2 arguments"},
        {"get a b c", 2, "get takes 2 arguments"}, {"encode a", 2, "encode takes 2 arguments"},
        {"decode a b c", 2, "decode takes 2 arguments"}, {"--help", 0, ""}, {"-h", 0, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.arguments);
        Outcome r = run(c.arguments);
        EXPECT_EQ(r.status, c.status);
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        // The usage text goes to standard output when asked for, else to standard error.
        EXPECT_NE((c.status == 0 ? r.out : r.err).find("usage: rqdata COMMAND"), std::string::npos);
    }
    Outcome v = run("--version");
    EXPECT_EQ(v.status, 0);
    EXPECT_NE(v.out.find("string tables A.01.01"), std::string::npos) << v.out;
}

#else
TEST(Tool, NotBuilt)
{
    GTEST_SKIP() << "rqdata is not part of this build";
}
#endif

}  // namespace
