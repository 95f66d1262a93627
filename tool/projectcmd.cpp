// project dump: a project document's clip list, edit list and settings.
#include "commands.h"
#include "failure.h"
#include "files.h"
#include "output.h"

#include <qrvutil/project.h>

#include <CLI/CLI.hpp>
#include <tinyxml.h>

#include <vector>

namespace qrvtool {

namespace {

const char *attributeOf(const TiXmlDocument &doc, const char *element, const char *attribute)
{
    const TiXmlElement *e = doc.FirstChildElement(element);
    const char *value = e ? e->Attribute(attribute) : nullptr;
    return value ? value : "";
}

void runDump(const std::string &path, const Output &output)
{
    // The document as the library loads it (a missing list file is restored
    // from the copy in the project, as the recorders do on opening it).
    CKXProjectToXML project;
    std::vector<char> pathText(path.begin(), path.end());
    pathText.push_back('\0');
    if (pathText.size() > QRV_PROJECT_PATH_MAX)
        throw InputError(path, "", "path too long");
    TiXmlDocument doc;
    if (!doc.LoadFile(path.c_str()))
        throw InputError(path, atLine(static_cast<unsigned>(doc.ErrorRow())),
                         std::string("not a project document: ") + doc.ErrorDesc());
    if (!project.LoadXMLFile(pathText.data()))
        throw InputError(path, "", "not a project document");
    char clipFile[QRV_PROJECT_PATH_MAX] = {};
    char edlName[QRV_PROJECT_PATH_MAX] = {};
    project.GetClipFile(clipFile);
    project.GetEDLName(edlName);

    // The setting names are the attributes of the Settings element; their
    // values come through the library.
    Json settings = Json::object();
    if (const TiXmlElement *e = doc.FirstChildElement("Settings"))
        for (const TiXmlAttribute *a = e->FirstAttribute(); a; a = a->Next()) {
            std::vector<char> key(a->Name(), a->Name() + std::strlen(a->Name()) + 1);
            std::vector<char> value(std::strlen(a->Value()) + 1, '\0');
            project.GetConfigString(key.data(), value.data());
            settings[a->Name()] = value.data();
        }
    output.document(
        {{"file", path},
         {"clip_list", {{"file_name", clipFile}, {"data", attributeOf(doc, "ClipList", "Data")}}},
         {"edl_list", {{"edl_name", edlName}, {"data", attributeOf(doc, "EdlList", "Data")}}},
         {"settings", settings}});
}

} // namespace

void addProjectCommands(CLI::App &project, Output &output)
{
    static std::string path;
    CLI::App *dump = project.add_subcommand("dump", "print a project's lists and settings");
    dump->add_option("FILE", path, "project document")->required();
    output.addJsonFlag(dump);
    dump->callback([&output] { runDump(path, output); });
}

} // namespace qrvtool
