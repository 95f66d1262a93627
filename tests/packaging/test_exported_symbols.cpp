// The shared library exports exactly what the public headers declare with
// QRV_API, all in one version node: no internal routine leaks out, and no
// declared call is missing (hidden, misspelt, or left out of the version
// script).
#include <gtest/gtest.h>

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

const std::string kVersionNode = "QRVUTIL_6";

// What the headers declare: free functions and data by name, classes with
// the names of all their members and of those defined out of line.
struct Declared {
    std::set<std::string> functions, data;
    std::map<std::string, std::set<std::string>> members, outOfLine;
};

std::string withoutCommentsAndDirectives(const std::string &text)
{
    static const std::regex comments(R"(/\*[\s\S]*?\*/|//[^\n]*|^[ \t]*#[^\n]*)",
                                     std::regex::multiline);
    return std::regex_replace(text, comments, " ");
}

// The name in front of the first parameter list ("operator*" included).
std::string calledName(const std::string &declaration)
{
    static const std::regex name(R"((operator\s*[^\s(]+|~?[A-Za-z_]\w*)\s*\()");
    std::smatch m;
    return std::regex_search(declaration, m, name)
               ? std::regex_replace(m[1].str(), std::regex(R"(\s)"), "")
               : "";
}

size_t matchingBrace(const std::string &text, size_t open)
{
    int depth = 0;
    for (size_t i = open; i < text.size(); ++i) {
        depth += text[i] == '{' ? 1 : text[i] == '}' ? -1 : 0;
        if (depth == 0)
            return i;
    }
    return std::string::npos;
}

// Member declarations at the class's own level: a declaration ended by ';'
// is defined in the library, one followed by a body is inline.
void readClass(const std::string &name, const std::string &body, Declared *d)
{
    std::set<std::string> &all = d->members[name];
    std::set<std::string> &outOfLine = d->outOfLine[name];
    static const std::regex special(R"(=\s*(delete|default|0)\s*$|^\s*friend\b)");
    std::string piece;
    for (size_t i = 0; i < body.size(); ++i) {
        if (body[i] != ';' && body[i] != '{') {
            piece += body[i];
            continue;
        }
        const std::string member = calledName(piece);
        if (!member.empty()) {
            all.insert(member);
            if (body[i] == ';' && !std::regex_search(piece, special))
                outOfLine.insert(member);
        }
        if (body[i] == '{')
            i = matchingBrace(body, i);
        piece.clear();
    }
}

Declared readHeaders(const std::vector<std::filesystem::path> &dirs)
{
    Declared d;
    static const std::regex marked(R"(\bQRV_API\s+)"), className(R"(^(\w+))"),
        dataName(R"((\w+)\s*(\[[^\]]*\])?\s*$)"), classKeyword(R"(\bclass\s*$)");
    for (const auto &dir : dirs) {
        for (const auto &entry : std::filesystem::directory_iterator(dir)) {
            if (entry.path().extension() != ".h")
                continue;
            std::ifstream in(entry.path());
            const std::string text = withoutCommentsAndDirectives(
                {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()});
            for (std::sregex_iterator it(text.begin(), text.end(), marked), end; it != end; ++it) {
                const size_t from = size_t(it->position() + it->length());
                const std::string rest = text.substr(from);
                std::smatch m;
                const std::string before = text.substr(0, size_t(it->position()));
                if (std::regex_search(before, classKeyword) &&
                    std::regex_search(rest, m, className)) {
                    const size_t open = text.find('{', from);
                    readClass(m[1], text.substr(open + 1, matchingBrace(text, open) - open - 1),
                              &d);
                    continue;
                }
                const std::string declaration = rest.substr(0, rest.find(';'));
                const std::string function = calledName(declaration);
                if (!function.empty())
                    d.functions.insert(function);
                else if (std::regex_search(declaration, m, dataName))
                    d.data.insert(m[1]);
            }
        }
    }
    return d;
}

// A C++ symbol as it reads in source ("CQRVPos::Normalize()"); C names as they are.
std::string demangled(const std::string &name)
{
    int status = 0;
    char *text = abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status);
    const std::string result = status == 0 && text != nullptr ? text : name;
    std::free(text);
    return result;
}

// Demangled names of the library's defined dynamic symbols, each checked to
// carry the one version node. Demangled here, not by nm: not every nm
// demangles a name that carries its version.
std::vector<std::string> exportedSymbols()
{
    const std::string cmd = std::string(QRV_NM) + " -D --defined-only '" + QRV_LIBRARY + "'";
    std::vector<std::string> names;
    FILE *p = popen(cmd.c_str(), "r");
    EXPECT_NE(p, nullptr) << cmd;
    if (p == nullptr)
        return names;
    static const std::regex line(R"(^\S+ (\w) (.*)$)");
    char buf[1024];
    while (std::fgets(buf, sizeof buf, p)) {
        std::string text(buf);
        text.erase(text.find_last_not_of("\r\n") + 1);
        std::smatch m;
        if (!std::regex_match(text, m, line)) {
            ADD_FAILURE() << "unexpected nm line: " << text;
            continue;
        }
        const std::string name = m[2];
        const size_t at = name.find('@');
        const std::string base = name.substr(0, at);
        if (m[1] == "A" && base == kVersionNode)
            continue; // the version node's own symbol
        EXPECT_TRUE(at != std::string::npos && name.substr(at) == "@@" + kVersionNode) << name;
        names.push_back(demangled(base));
    }
    EXPECT_EQ(pclose(p), 0) << cmd;
    return names;
}

TEST(ExportedSymbols, MatchThePublicHeaders)
{
    const Declared declared = readHeaders({QRV_PUBLIC_HEADERS, QRV_GENERATED_HEADERS});
    ASSERT_FALSE(declared.functions.empty());
    ASSERT_FALSE(declared.members.empty());

    static const std::regex classData(R"(^(typeinfo|typeinfo name|vtable) for (\w+)$)"),
        member(R"(^(\w+)::(~?\w+|operator[^(]+)\()"), function(R"(^(operator[^(]+|\w+)(\(.*)?$)");
    std::set<std::string> found;
    for (const std::string &symbol : exportedSymbols()) {
        std::smatch m;
        bool known = false;
        if (std::regex_match(symbol, m, classData)) {
            known = declared.members.count(m[2]) != 0;
        } else if (std::regex_search(symbol, m, member)) {
            const auto cls = declared.members.find(m[1]);
            known = cls != declared.members.end() && cls->second.count(m[2]) != 0;
            found.insert(m[1].str() + "::" + m[2].str());
        } else if (std::regex_match(symbol, m, function)) {
            known = declared.functions.count(m[1]) != 0 ||
                    (!m[2].matched && declared.data.count(m[1]) != 0);
            found.insert(m[1]);
        }
        EXPECT_TRUE(known) << "exported but not declared QRV_API in a public header: " << symbol;
    }

    for (const auto &names : {declared.functions, declared.data}) {
        for (const std::string &name : names)
            EXPECT_TRUE(found.count(name)) << "declared QRV_API but not exported: " << name;
    }
    for (const auto &[cls, members] : declared.outOfLine) {
        for (const std::string &name : members)
            EXPECT_TRUE(found.count(cls + "::" + name))
                << "member declared but not exported: " << cls << "::" << name;
    }
}

} // namespace
