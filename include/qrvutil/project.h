/*
 * qrvutil project document: one XML file holding a project's clip-list and
 * edit-decision-list file names, a copy of each of those files, and a set of
 * named settings.
 *
 * File layout (printed by TinyXML):
 *   <?xml version="1.0" ?>
 *   <ClipList FileName="..." Data="..." />
 *   <EdlList EdlName="..." Data="..." />
 *   <Settings key="value" ... />
 * The three elements sit side by side at the top level; there is no single
 * root element, and recorded projects depend on that shape.
 */
#ifndef QRVUTIL_PROJECT_H
#define QRVUTIL_PROJECT_H

#include "export.h"

#ifdef __cplusplus

#include <tinyxml.h>

/* Longest path held by the object, terminator included. */
#define QRV_PROJECT_PATH_MAX 1024

class QRV_API CKXProjectToXML {
public:
    CKXProjectToXML();
    ~CKXProjectToXML();
    CKXProjectToXML(const CKXProjectToXML &) = delete;
    CKXProjectToXML &operator=(const CKXProjectToXML &) = delete;

    /* Loads a project file; restores a missing clip-list or EDL file from the
     * copy in the project (beside the project file). 1 loaded, 0 failed. */
    unsigned char LoadXMLFile(char *path);
    /* Writes the document to the stored project path. 1 saved, 0 failed. */
    int SaveXMLFile();

    /* Paths longer than 1023 characters are cut to 1023. Getters copy the
     * stored path, terminator included, into a caller buffer of
     * QRV_PROJECT_PATH_MAX bytes. Every call returns 0. */
    int SetXMLName(char *name);
    int GetXMLName(char *out);
    /* Also stores the path in the document and copies the file's text into
     * it; a missing or empty file leaves the previous copy. */
    int SetClipFile(char *path);
    int GetClipFile(char *out);
    int SetEDLName(char *path);
    int GetEDLName(char *out);

    int SetConfigString(char *key, char *value);
    /* Copies the setting's text into `out`, which the caller sizes; writes
     * nothing when `out` is null or the setting is missing. */
    int GetConfigString(char *key, char *out);
    int SetConfigDWORD(char *key, unsigned value);
    /* The setting read as a decimal number; 0 when it is missing. */
    unsigned GetConfigDWORD(char *key);

private:
    TiXmlElement *boundElement(int part);
    void rebindElements();
    void setListFile(int part, char *pathBuffer, const char *path);
    void restoreListFile(int part, char *pathBuffer);

    char m_xmlName[QRV_PROJECT_PATH_MAX];
    char m_clipFile[QRV_PROJECT_PATH_MAX];
    char m_edlName[QRV_PROJECT_PATH_MAX];
    TiXmlDocument *m_document;
    TiXmlElement *m_clipList;
    TiXmlElement *m_edlList;
    TiXmlElement *m_settings;
};

#endif /* __cplusplus */

#endif
