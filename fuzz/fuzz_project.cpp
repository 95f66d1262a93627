// Loading a project document: outside bytes as the project file.
#include <qrvutil/project.h>

#include "fuzz_util.h"

#include <algorithm>

namespace {

fuzz::Scratch &scratch()
{
    static fuzz::Scratch dir;
    return dir;
}

// Every stored path fits the documented buffer with its terminator.
void checkPaths(CKXProjectToXML &project)
{
    int (CKXProjectToXML::*getters[])(char *) = {
        &CKXProjectToXML::GetXMLName, &CKXProjectToXML::GetClipFile, &CKXProjectToXML::GetEDLName};
    for (auto get : getters) {
        std::vector<char> out(QRV_PROJECT_PATH_MAX, 'x');
        FUZZ_CHECK((project.*get)(out.data()) == 0);
        FUZZ_CHECK(std::memchr(out.data(), 0, out.size()) != nullptr);
    }
}

// Saves the loaded document under `name` and returns the file's bytes after
// the XML declaration. The declaration is the parser's own: it prints a
// character reference in it as read and decodes it on the next load, so only
// the rest of the document is compared.
std::string saveAs(CKXProjectToXML &project, const char *name)
{
    std::string path = scratch().path(name);
    project.SetXMLName(&path[0]);
    FUZZ_CHECK(project.SaveXMLFile() == 1);
    std::string text = fuzz::readFile(path);
    const size_t declarationEnd = text.compare(0, 5, "<?xml") == 0 ? text.find("?>")
                                                                   : std::string::npos;
    return declarationEnd == std::string::npos ? text : text.substr(declarationEnd + 2);
}

int finish()
{
    scratch().clear();
    return 0;
}

// Attribute syntax the parser takes without complaint only when it is
// regular: every quote opens after `=` and closes with the same mark.
bool plainMarkup(const uint8_t *data, size_t size)
{
    char open = 0;
    for (size_t i = 0; i < size; ++i) {
        const char c = static_cast<char>(data[i]);
        if (open) {
            if (c == open)
                open = 0;
            else if (c == '"' || c == '\'' || c == '<' || c == '\n' || c == '\r')
                return false;
        } else if (c == '"' || c == '\'') {
            if (i == 0 || data[i - 1] != '=')
                return false;
            open = c;
        }
    }
    return open == 0;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::silenceLibraryLog();
    scratch();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string file = scratch().path("project.xml");
    fuzz::writeFile(file, data, size);
    {
        CKXProjectToXML project;
        const unsigned char loaded = project.LoadXMLFile(&file[0]);
        FUZZ_CHECK(loaded == 0 || loaded == 1);
        checkPaths(project);
        char key[] = "Fuzz";
        std::vector<char> value(size + 1, 'x');
        project.GetConfigString(key, value.data());
        project.GetConfigDWORD(key);
        // The project file itself is only read.
        FUZZ_CHECK(fuzz::readFile(file) == std::string(reinterpret_cast<const char *>(data), size));

        if (loaded == 1) {
            // A loaded document saves, and what it saves loads and saves to
            // the same bytes. Only for ASCII files: a file without an
            // encoding is parsed as UTF-8, where a byte that does not start a
            // valid sequence swallows the bytes after it. Nor for markup the
            // parser reads leniently (an attribute without a name, quotes that
            // do not match): what it saves for those can read back otherwise.
            const std::string first = saveAs(project, "first.xml");
            if (!std::all_of(data, data + size, [](uint8_t b) { return b < 0x80; }))
                return finish();
            if (!plainMarkup(data, size))
                return finish();
            CKXProjectToXML again;
            std::string firstPath = scratch().path("first.xml");
            FUZZ_CHECK(again.LoadXMLFile(&firstPath[0]) == 1);
            checkPaths(again);
            FUZZ_CHECK(saveAs(again, "second.xml") == first);
        }
    }
    return finish();
}
