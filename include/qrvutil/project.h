/**
 * @file
 * The project document (C++ only): one XML file holding a project's clip-list
 * and edit-decision-list file names, a copy of each of those files, and a set
 * of named settings. Files are read and written through the host services;
 * file errors are silent, as each call states.
 *
 * File layout (printed by TinyXML):
 * @verbatim
   <?xml version="1.0" ?>
   <ClipList FileName="..." Data="..." />
   <EdlList EdlName="..." Data="..." />
   <Settings key="value" ... />
   @endverbatim
 * The three elements sit side by side at the top level; there is no single
 * root element, and recorded projects depend on that shape.
 */
#ifndef QRVUTIL_PROJECT_H
#define QRVUTIL_PROJECT_H

#include "export.h"

#ifdef __cplusplus

#include <tinyxml.h>

/** Longest path held by the object, terminator included. */
#define QRV_PROJECT_PATH_MAX 1024

/** One project document in memory, with the three paths it names. Not
 *  copyable; one object per thread at a time. */
class QRV_API CKXProjectToXML {
  public:
    /** An empty document: declaration, ClipList, EdlList, Settings; empty paths. */
    CKXProjectToXML();
    /** Deletes the document. */
    ~CKXProjectToXML();
    CKXProjectToXML(const CKXProjectToXML &) = delete;
    CKXProjectToXML &operator=(const CKXProjectToXML &) = delete;

    /** Loads a project file and takes the clip-list and EDL paths from it.
     *  A listed file that is missing where the project names it is looked for
     *  beside the project file, and when missing there too, written there
     *  (create-new) from the copy held in the project; the path found stays
     *  in the object, so GetClipFile() may then give the neighbouring path.
     *  Returns 1 loaded, 0 failed (the restoring never changes the result). */
    unsigned char LoadXMLFile(char *path);
    /** Writes the document to the stored project path. 1 saved, 0 failed. */
    int SaveXMLFile();

    /* Paths longer than 1023 characters are cut to 1023. Getters copy the
     * stored path, terminator included, into a caller buffer of
     * QRV_PROJECT_PATH_MAX bytes. Every call returns 0. */

    /** Stores the project path used by SaveXMLFile(). Returns 0. */
    int SetXMLName(char *name);
    /** Copies the project path into `out` (QRV_PROJECT_PATH_MAX bytes). Returns 0. */
    int GetXMLName(char *out);
    /** Stores the clip-list path, also in the document, and copies the file's
     *  whole text into the document; a missing or empty file leaves the
     *  previous copy. Returns 0. */
    int SetClipFile(char *path);
    /** Copies the clip-list path into `out` (QRV_PROJECT_PATH_MAX bytes). Returns 0. */
    int GetClipFile(char *out);
    /** As SetClipFile(), for the EDL file. Returns 0. */
    int SetEDLName(char *path);
    /** Copies the EDL path into `out` (QRV_PROJECT_PATH_MAX bytes). Returns 0. */
    int GetEDLName(char *out);

    /** Sets a named setting (an attribute of Settings); a null value is
     *  stored as empty, a null key ignored. Returns 0. */
    int SetConfigString(char *key, char *value);
    /** Copies the setting's text into `out`, which the caller sizes (settings
     *  have no length limit); writes nothing when `out` is null or the setting
     *  is missing. Returns 0 either way. */
    int GetConfigString(char *key, char *out);
    /** Stores a number as signed decimal text: values above 2^31 - 1 appear
     *  in the file as negative numbers, which GetConfigDWORD() reads back.
     *  Returns 0. */
    int SetConfigDWORD(char *key, unsigned value);
    /** The setting read as a decimal number, like atoi ("12abc" gives 12);
     *  0 when it is missing. */
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
