// The exported dynamic symbols of both libraries are exactly the functions
// and variables that the public headers declare, each under VERS_1.
#include "rqtest.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>

namespace {

std::set<std::string> declared(const std::string &dir, const std::string &macro)
{
    std::set<std::string> names;
    std::regex decl("^\\s*" + macro + "\\b[^;(]*\\b([A-Za-z_]\\w*)\\s*[(;\\[]");
    for (const auto &entry : std::filesystem::directory_iterator(dir)) {
        if (entry.path().extension() != ".h")
            continue;
        std::ifstream in(entry.path());
        std::string line;
        std::smatch m;
        while (std::getline(in, line))
            if (std::regex_search(line, m, decl))
                names.insert(m[1]);
    }
    return names;
}

struct Exported {
    std::set<std::string> names;
    std::set<std::string> unversioned;
};

Exported exported(const std::string &library)
{
    Exported result;
    std::string command = "readelf --dyn-syms --wide '" + library + "'";
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return result;
    char line[1024];
    // "  12: 00001234  42 FUNC GLOBAL DEFAULT 12 DX_ListCreate@@VERS_1"
    std::regex row("^\\s*\\d+:\\s+\\S+\\s+\\S+\\s+(\\w+)\\s+(\\w+)\\s+\\w+\\s+(\\w+)\\s+(\\S+)");
    while (std::fgets(line, sizeof line, pipe) != nullptr) {
        std::cmatch m;
        std::string text(line);
        if (!std::regex_search(line, m, row))
            continue;
        std::string type = m[1], bind = m[2], section = m[3], name = m[4];
        if (section == "UND" || bind == "LOCAL")
            continue;  // imports, and the null entry
        if (section == "ABS" && name == "VERS_1@@VERS_1")
            continue;  // the version definition itself
        if (section == "ABS" && name.rfind("VERS_1", 0) == 0)
            continue;
        auto at = name.find("@@VERS_1");
        if (at == std::string::npos || at + 8 != name.size())
            result.unversioned.insert(name);
        else
            result.names.insert(name.substr(0, at));
    }
    pclose(pipe);
    return result;
}

void expectExactExports(const std::string &library, const std::string &headers, const std::string &macro)
{
    std::set<std::string> want = declared(headers, macro);
    Exported got = exported(library);
    ASSERT_FALSE(want.empty());
    ASSERT_FALSE(got.names.empty()) << "could not read the symbols of " << library;
    for (const auto &name : got.unversioned)
        ADD_FAILURE() << name << " is exported without @@VERS_1";
    for (const auto &name : got.names)
        if (!want.count(name))
            ADD_FAILURE() << name << " is exported but declared in no public header";
    for (const auto &name : want)
        if (!got.names.count(name))
            ADD_FAILURE() << name << " is declared but not exported";
}

TEST(Exports, RqcoreExportsExactlyItsPublicInterface)
{
    expectExactExports(RQCORE_LIBRARY, RQ_SOURCE_DIR "/include/rqcore", "RQ_API");
}

TEST(Exports, RqsisExportsExactlyItsPublicInterface)
{
    expectExactExports(RQSIS_LIBRARY, RQ_SOURCE_DIR "/include/rqsis", "SIS_API");
}

}  // namespace
