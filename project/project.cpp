// Project document: clip list, edit list and settings kept in one XML file.

#include <qrvutil/host.h>
#include <qrvutil/project.h>

#include "host/xml_parse.h"

#include <cstdlib>
#include <cstring>

namespace {

enum ProjectPart { kClipList, kEdlList, kSettings, kPartCount };

struct PartInfo {
    const char *element;
    const char *pathAttribute; // null for the settings element
};

// In file order: recorded projects list the elements exactly so.
constexpr PartInfo kParts[kPartCount] = {
    {"ClipList", "FileName"},
    {"EdlList", "EdlName"},
    {"Settings", nullptr},
};

constexpr char kDataAttribute[] = "Data";

// Paths are held in fixed buffers; a longer path is cut rather than allowed
// to run past the buffer.
void storePath(char *buffer, const char *path)
{
    std::memset(buffer, 0, QRV_PROJECT_PATH_MAX);
    if (path != nullptr)
        std::memcpy(buffer, path, strnlen(path, QRV_PROJECT_PATH_MAX - 1));
}

// Getters copy unbounded: every stored path fits its buffer (see storePath)
// and the caller's buffer is documented to be as large.
int copyPath(char *out, const char *stored)
{
    std::strcpy(out, stored);
    return 0;
}

// Copies a whole file into the element's "Data" attribute. A file that cannot
// be opened, is empty or yields no bytes leaves the previous copy in place;
// file errors are deliberately silent.
void readFileIntoData(TiXmlElement *element, const char *path)
{
    osHandle file = osCreateFile(path, QRV_ACCESS_READ, QRV_SHARE_READ_WRITE, nullptr,
                                 QRV_OPEN_EXISTING, 0, nullptr);
    if (file == QRV_INVALID_FILE)
        return;
    unsigned size = osGetFileSize(file, nullptr);
    size_t bytes = static_cast<size_t>(size) + 1; // 0 only when it wraps
    char *text = (size != 0 && bytes != 0) ? static_cast<char *>(hostAlloc(bytes)) : nullptr;
    if (text != nullptr) {
        unsigned got = 0;
        osReadFile(file, text, size, &got, nullptr);
        if (got > size)
            got = size;
        if (got != 0) {
            text[got] = '\0';
            element->SetAttribute(kDataAttribute, text);
        }
        hostFree(text);
    }
    osCloseFile(file);
}

// Creates a file holding exactly the text, without a terminator. Never
// overwrites: the file is created new, so an existing one is left alone.
void writeNewFile(const char *path, const char *text)
{
    osHandle file = osCreateFile(path, QRV_ACCESS_WRITE, QRV_SHARE_READ_WRITE, nullptr,
                                 QRV_CREATE_NEW, 0, nullptr);
    if (file == QRV_INVALID_FILE)
        return;
    unsigned written = 0;
    osWriteFile(file, text, static_cast<unsigned>(std::strlen(text)), &written, nullptr);
    osCloseFile(file);
}

// The same file name and extension, in the project file's directory.
void moveBesideProject(char *pathBuffer, const char *projectPath)
{
    char drive[QRV_PROJECT_PATH_MAX], dir[QRV_PROJECT_PATH_MAX];
    char name[QRV_PROJECT_PATH_MAX], ext[QRV_PROJECT_PATH_MAX];
    osSplitPath(projectPath, drive, dir, nullptr, nullptr);
    osSplitPath(pathBuffer, nullptr, nullptr, name, ext);
    // Room for every part plus the separator and dot that osMakePath may add.
    char joined[4 * QRV_PROJECT_PATH_MAX + 4];
    osMakePath(joined, drive, dir, name, ext);
    storePath(pathBuffer, joined);
}

} // namespace

CKXProjectToXML::CKXProjectToXML()
    : m_xmlName(), m_clipFile(), m_edlName(), m_document(new TiXmlDocument),
      m_clipList(new TiXmlElement(kParts[kClipList].element)),
      m_edlList(new TiXmlElement(kParts[kEdlList].element)),
      m_settings(new TiXmlElement(kParts[kSettings].element))
{
    m_document->LinkEndChild(new TiXmlDeclaration("1.0", "", ""));
    m_document->LinkEndChild(m_clipList);
    m_document->LinkEndChild(m_edlList);
    m_document->LinkEndChild(m_settings);
}

CKXProjectToXML::~CKXProjectToXML()
{
    delete m_document;
    m_document = nullptr;
    m_clipList = m_edlList = m_settings = nullptr;
}

// Loading replaces every node of the document, so the element references are
// looked up again: the first top-level element of each name, or null when the
// file lacks it (a missing element reads as empty and is created on the next
// write).
void CKXProjectToXML::rebindElements()
{
    m_clipList = m_document->FirstChildElement(kParts[kClipList].element);
    m_edlList = m_document->FirstChildElement(kParts[kEdlList].element);
    m_settings = m_document->FirstChildElement(kParts[kSettings].element);
}

// The element a setter writes to, created when the loaded file lacks it. A
// created element goes before the first later part present, so the file keeps
// its ClipList, EdlList, Settings order.
TiXmlElement *CKXProjectToXML::boundElement(int part)
{
    TiXmlElement *CKXProjectToXML::*const slots[kPartCount] = {
        &CKXProjectToXML::m_clipList, &CKXProjectToXML::m_edlList, &CKXProjectToXML::m_settings};
    TiXmlElement *&slot = this->*slots[part];
    if (slot != nullptr)
        return slot;

    TiXmlElement created(kParts[part].element);
    for (int later = part + 1; later < kPartCount && slot == nullptr; ++later) {
        TiXmlElement *next = this->*slots[later];
        if (next != nullptr)
            slot = m_document->InsertBeforeChild(next, created)->ToElement();
    }
    if (slot == nullptr)
        slot = m_document->LinkEndChild(created.Clone())->ToElement();
    return slot;
}

unsigned char CKXProjectToXML::LoadXMLFile(char *path)
{
    storePath(m_clipFile, nullptr);
    storePath(m_edlName, nullptr);
    storePath(m_xmlName, path);
    // Read with zero bytes after the text, so that a file ending inside a
    // multi-byte character is not read past.
    bool loaded = qrv::host::loadXmlFile(m_document, m_xmlName, TIXML_DEFAULT_ENCODING);
    rebindElements();
    restoreListFile(kClipList, m_clipFile);
    restoreListFile(kEdlList, m_edlName);
    return loaded ? 1 : 0;
}

// Finds a listed file: where the project names it, else beside the project
// file (projects are moved as a folder). When neither exists the file is
// recreated beside the project from the copy held in the document. The path
// found stays in the object.
void CKXProjectToXML::restoreListFile(int part, char *pathBuffer)
{
    const TiXmlElement *element = part == kClipList ? m_clipList : m_edlList;
    if (element == nullptr)
        return;
    storePath(pathBuffer, element->Attribute(kParts[part].pathAttribute));
    // A project that never named the file has nothing to look for.
    if (pathBuffer[0] == '\0' || osFileExists(pathBuffer))
        return;

    moveBesideProject(pathBuffer, m_xmlName);
    if (osFileExists(pathBuffer))
        return;
    const char *data = element->Attribute(kDataAttribute);
    if (data != nullptr && data[0] != '\0')
        writeNewFile(pathBuffer, data);
}

int CKXProjectToXML::SaveXMLFile() { return m_document->SaveFile(m_xmlName) ? 1 : 0; }

int CKXProjectToXML::SetXMLName(char *name)
{
    storePath(m_xmlName, name);
    return 0;
}

int CKXProjectToXML::GetXMLName(char *out) { return copyPath(out, m_xmlName); }

// SetClipFile and SetEDLName are this one operation over their own part.
void CKXProjectToXML::setListFile(int part, char *pathBuffer, const char *path)
{
    storePath(pathBuffer, path);
    TiXmlElement *element = boundElement(part);
    element->SetAttribute(kParts[part].pathAttribute, pathBuffer);
    readFileIntoData(element, pathBuffer);
}

int CKXProjectToXML::SetClipFile(char *path)
{
    setListFile(kClipList, m_clipFile, path);
    return 0;
}

int CKXProjectToXML::GetClipFile(char *out) { return copyPath(out, m_clipFile); }

int CKXProjectToXML::SetEDLName(char *path)
{
    setListFile(kEdlList, m_edlName, path);
    return 0;
}

int CKXProjectToXML::GetEDLName(char *out) { return copyPath(out, m_edlName); }

int CKXProjectToXML::SetConfigString(char *key, char *value)
{
    if (key != nullptr)
        boundElement(kSettings)->SetAttribute(key, value != nullptr ? value : "");
    return 0;
}

int CKXProjectToXML::GetConfigString(char *key, char *out)
{
    const char *value = (m_settings != nullptr && key != nullptr) ? m_settings->Attribute(key)
                                                                  : nullptr;
    if (out != nullptr && value != nullptr)
        std::strcpy(out, value);
    return 0;
}

// Numbers are stored as signed decimal text, so values above 2^31 - 1 appear
// in the file as negative numbers; GetConfigDWORD turns them back.
int CKXProjectToXML::SetConfigDWORD(char *key, unsigned value)
{
    char text[QRV_INTEGER_TEXT_SIZE];
    intToString(static_cast<int>(value), text, 10);
    return SetConfigString(key, text);
}

// Reads like atoi (leading blanks, sign, digits up to the first non-digit;
// "12abc" gives 12) but without atoi's undefined result on overflow.
unsigned CKXProjectToXML::GetConfigDWORD(char *key)
{
    const char *value = (m_settings != nullptr && key != nullptr) ? m_settings->Attribute(key)
                                                                  : nullptr;
    return value != nullptr ? static_cast<unsigned>(std::strtoll(value, nullptr, 10)) : 0;
}
