/* MEDIACMD XML validation: whether a text is a command document that the
 * reader reads whole and as meant, and if not, the line and element where it
 * stops making sense. The reader itself accepts far more (it skips what it
 * cannot read); this says what it would skip. */
#include <qrvutil/host.h>
#include <qrvutil/mediacmd_xml.h>
#include <qrvutil/status.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "host/xml_parse.h"
#include "mediacmd/mediacmd_internal.h"
#include "mediacmd/xml_names.h"

using namespace qrv::mediacmd;

namespace {

/* What an element of the document may hold. */
enum class Body : uint8_t {
    Empty,    /* attributes only */
    Command,  /* Cmd: Value, or a command text */
    Point,    /* Position, Start, End: Value, or a timecode text */
    FreeText, /* any text, or none */
    Binary,   /* arbID: hexadecimal pairs */
};

struct ElementRule {
    const char *name;
    Body body;
    bool valued;                /* carries a Value attribute */
    const FlagAttribute *flags; /* flag attributes besides Value */
    size_t flagCount;
    size_t longestText; /* 0: no limit */
};

/* The override-deferred names the reader reads, besides the writer's. */
constexpr FlagAttribute kCmdReaderAttributes[] = {
    {"cfOverideDeferred", cfOverrideDeferred},
    {"cfOverrideDeferred", cfOverrideDeferred},
};

template <size_t N>
constexpr ElementRule valued(const char *name, Body body, const FlagAttribute (&flags)[N])
{
    return {name, body, true, flags, N, 0};
}
constexpr ElementRule valued(const char *name) { return {name, Body::Empty, true, nullptr, 0, 0}; }
constexpr ElementRule textOnly(const char *name, Body body = Body::FreeText, size_t longest = 0)
{
    return {name, body, false, nullptr, 0, longest};
}

/* Every element the writer writes or the reader reads, in document order. */
constexpr ElementRule kElementRules[] = {
    valued("prev"),
    valued("next"),
    valued("list"),
    valued("CmdID"),
    valued("StructSize"),
    valued("Channel"),
    valued("Cmd", Body::Command, kCmdFlagAttributes),
    valued("Speed", Body::FreeText, kSpeedAttributes),
    valued("VideoChannels"),
    valued("AudioChannels"),
    valued("InfoChannels"),
    valued("CmdAlt", Body::Empty, kCmdAltAttributes),
    valued("Position", Body::Point, kPointAttributes),
    valued("Start", Body::Point, kPointAttributes),
    valued("End", Body::Point, kPointAttributes),
    textOnly("ClipID", Body::FreeText, sizeof(MEDIACMD::ClipID) - 1),
    textOnly("UniqueID"),
    textOnly("FileName", Body::FreeText, sizeof(MEDIACMD::FileName) - 1),
    textOnly("arbID", Body::Binary),
    textOnly("MetaTag"),
    textOnly("MetaData"),
    textOnly("PageRequest"),
    textOnly("chanName"),
};
constexpr size_t kRuleCount = sizeof kElementRules / sizeof kElementRules[0];

/* The reason being written: "line L, column C, <name>: what". */
class Verdict {
  public:
    Verdict(char *reason, uint32_t room) : reason_(reason), room_(room)
    {
        if (reason_ && room_)
            reason_[0] = 0;
    }
    int fail(int status, const TiXmlBase *where, const char *name, const char *format, ...)
        __attribute__((format(printf, 5, 6)))
    {
        if (!reason_ || !room_)
            return status;
        int used = where ? std::snprintf(reason_, room_, "line %d, column %d, ", where->Row(),
                                         where->Column())
                         : 0;
        if (used < 0)
            used = 0;
        if (name && static_cast<uint32_t>(used) < room_)
            used += std::snprintf(reason_ + used, room_ - used, "<%s>: ", name);
        if (static_cast<uint32_t>(used) < room_) {
            va_list args;
            va_start(args, format);
            std::vsnprintf(reason_ + used, room_ - used, format, args);
            va_end(args);
        }
        keepToOneLine();
        return status;
    }

  private:
    // Quoted input may hold line breaks and other control bytes; the reason
    // stays one printable line.
    void keepToOneLine()
    {
        for (char *c = reason_; *c; ++c) {
            if (static_cast<unsigned char>(*c) < 0x20 || *c == 0x7F)
                *c = '?';
        }
    }

    char *reason_;
    uint32_t room_;
};

/* A whole decimal integer inside 32 signed bits: QRV_OK, QRV_E_SYNTAX when
 * the text is not one integer, QRV_E_RANGE when it is outside. */
int strictInteger(const char *text, long long *value)
{
    const char *p = text;
    const bool negative = *p == '-';
    if (negative)
        ++p;
    if (*p < '0' || *p > '9')
        return QRV_E_SYNTAX;
    long long magnitude = 0;
    for (; *p >= '0' && *p <= '9'; ++p)
        if (magnitude <= INT32_MAX)
            magnitude = magnitude * 10 + (*p - '0');
    if (*p)
        return QRV_E_SYNTAX;
    *value = negative ? -magnitude : magnitude;
    return *value < INT32_MIN || *value > INT32_MAX ? QRV_E_RANGE : QRV_OK;
}

const ElementRule *findRule(const char *name)
{
    for (const ElementRule &r : kElementRules)
        if (std::strcmp(r.name, name) == 0)
            return &r;
    return nullptr;
}

bool isFlag(const ElementRule &r, const char *name)
{
    for (size_t i = 0; i < r.flagCount; ++i)
        if (std::strcmp(r.flags[i].name, name) == 0)
            return true;
    if (r.body == Body::Point && std::strcmp(name, "IsOffset") == 0)
        return true;
    if (r.body == Body::Command)
        for (const FlagAttribute &a : kCmdReaderAttributes)
            if (std::strcmp(a.name, name) == 0)
                return true;
    return false;
}

bool isTcTypeName(const char *text)
{
    for (const TcTypeName &row : kTcTypeNames)
        if (std::strcmp(row.name, text) == 0)
            return true;
    return false;
}

/* The timecode type a TcType attribute gives the reader, or -1 when it reads
 * none (the writer's names other than "50", "60"... read as no type). */
int readerType(const char *text)
{
    long long value = 0;
    return text && strictInteger(text, &value) == QRV_OK ? static_cast<int>(value) : -1;
}

/* Checks one attribute of an element. */
int checkAttribute(const ElementRule &r, const TiXmlElement *e, const TiXmlAttribute *a, Verdict &v)
{
    const char *name = a->Name();
    const char *text = a->Value();
    long long value = 0;
    if (r.valued && std::strcmp(name, "Value") == 0) {
        const int status = strictInteger(text, &value);
        if (status == QRV_E_SYNTAX)
            return v.fail(status, e, r.name, "Value \"%s\" is not an integer", text);
        if (status == QRV_E_RANGE)
            return v.fail(status, e, r.name, "Value %s is outside 32 bits", text);
        if (r.body == Body::Command && (value < 0 || value > ctSwitch))
            return v.fail(QRV_E_RANGE, e, r.name, "Value %s is not a command code (0 to %d)", text,
                          ctSwitch);
        return QRV_OK;
    }
    if (r.body == Body::Point && std::strcmp(name, "TcType") == 0) {
        if (isTcTypeName(text))
            return QRV_OK;
        const int status = strictInteger(text, &value);
        if (status == QRV_OK && value >= 0 && value <= 255)
            return QRV_OK;
        return v.fail(status == QRV_E_SYNTAX ? QRV_E_SYNTAX : QRV_E_RANGE, e, r.name,
                      "TcType \"%s\" is not a timecode type", text);
    }
    if (r.body == Body::Binary && std::strcmp(name, "Type") == 0) {
        if (std::strcmp(text, "hex") == 0)
            return QRV_OK;
        return v.fail(QRV_E_RANGE, e, r.name, "Type \"%s\" is not hex", text);
    }
    if (r.body == Body::Binary && std::strcmp(name, "length") == 0) {
        const int status = strictInteger(text, &value);
        if (status == QRV_OK && value >= 0 && value <= static_cast<long long>(kAreaSize))
            return QRV_OK;
        return v.fail(status == QRV_E_SYNTAX ? QRV_E_SYNTAX : QRV_E_RANGE, e, r.name,
                      "length \"%s\" is not 0 to %u", text, static_cast<unsigned>(kAreaSize));
    }
    if (isFlag(r, name)) {
        if (std::strcmp(text, "0") == 0 || std::strcmp(text, "1") == 0)
            return QRV_OK;
        return v.fail(QRV_E_RANGE, e, r.name, "%s=\"%s\" is not 0 or 1", name, text);
    }
    return v.fail(QRV_E_SYNTAX, e, r.name, "unknown attribute \"%s\"", name);
}

bool isUpperHex(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); }

int checkBinary(const ElementRule &r, const TiXmlElement *e, const char *text, Verdict &v)
{
    long long length = 0;
    if (const char *given = e->Attribute("length"))
        strictInteger(given, &length);
    const size_t digits = std::strlen(text);
    for (size_t i = 0; i < digits; ++i)
        if (!isUpperHex(text[i]))
            return v.fail(QRV_E_SYNTAX, e, r.name,
                          "character %zu of the data is not a hexadecimal digit", i + 1);
    if (digits < static_cast<size_t>(2 * length))
        return v.fail(QRV_E_TRUNCATED, e, r.name, "%zu hexadecimal digits for %lld bytes", digits,
                      length);
    if (digits > static_cast<size_t>(2 * length))
        return v.fail(QRV_E_SYNTAX, e, r.name, "trailing data after %lld bytes", length);
    return QRV_OK;
}

/* The element's text, as the reader takes it. */
int checkBody(const ElementRule &r, const TiXmlElement *e, unsigned *workingType, Verdict &v)
{
    for (const TiXmlNode *n = e->FirstChild(); n; n = n->NextSibling()) {
        if (n->ToElement())
            return v.fail(QRV_E_SYNTAX, n, n->Value(), "unknown element inside <%s>", r.name);
        if (!n->ToText() && !n->ToComment())
            return v.fail(QRV_E_SYNTAX, n, r.name, "unexpected markup");
    }
    const char *text = e->GetText();
    if (e->FirstChild() && !text)
        return v.fail(QRV_E_SYNTAX, e, r.name, "text after a comment is not read");
    const bool hasValue = e->Attribute("Value") != nullptr;
    if (r.valued && !hasValue && r.body != Body::Command && r.body != Body::Point)
        return v.fail(QRV_E_SYNTAX, e, r.name, "no Value");
    if (r.body == Body::Empty && text)
        return v.fail(QRV_E_SYNTAX, e, r.name, "unexpected text");
    if (r.longestText && text && std::strlen(text) > r.longestText)
        return v.fail(QRV_E_RANGE, e, r.name, "text longer than %zu characters", r.longestText);
    if (r.body == Body::Command && !hasValue) {
        uint32_t code = 0;
        if (!text || !commandFromText(text, &code))
            return v.fail(QRV_E_SYNTAX, e, r.name, "no Value and no known command text");
    }
    if (r.body == Body::Point && !hasValue) {
        const int named = readerType(e->Attribute("TcType"));
        const unsigned type = named >= 0 ? static_cast<unsigned>(named) : *workingType;
        if (named >= 0 && std::strcmp(r.name, "End") != 0)
            *workingType = type;
        unsigned frames = 0;
        if (!text || tcToFrame(text, type | 0x100u, &frames) != 0)
            return v.fail(QRV_E_RANGE, e, r.name, "no Value and no timecode text of type %u", type);
    }
    if (r.body == Body::Binary)
        return checkBinary(r, e, text ? text : "", v);
    return QRV_OK;
}

/* A node that is not an element but bears the name of one the reader looks
 * for hides that element from it. */
int checkNotHiding(const TiXmlNode *n, Verdict &v)
{
    if (n->ToElement() || !findRule(n->Value()))
        return QRV_OK;
    return v.fail(QRV_E_SYNTAX, n, n->Value(), "a comment or text of this name hides the element");
}

int checkRoot(const TiXmlElement *root, Verdict &v)
{
    if (const TiXmlAttribute *a = root->FirstAttribute())
        return v.fail(QRV_E_SYNTAX, root, "MediaCmd", "unknown attribute \"%s\"", a->Name());
    bool seen[kRuleCount] = {};
    unsigned workingType = 4; /* the reader's default: drop-frame */
    for (const TiXmlNode *n = root->FirstChild(); n; n = n->NextSibling()) {
        if (int status = checkNotHiding(n, v))
            return status;
        if (n->ToComment())
            continue;
        const TiXmlElement *e = n->ToElement();
        if (!e)
            return v.fail(QRV_E_SYNTAX, n, "MediaCmd", "unexpected text or markup");
        const ElementRule *r = findRule(e->Value());
        if (!r)
            return v.fail(QRV_E_SYNTAX, e, e->Value(), "unknown element");
        bool &once = seen[r - kElementRules];
        if (once)
            return v.fail(QRV_E_SYNTAX, e, r->name, "repeated element (only the first is read)");
        once = true;
        for (const TiXmlAttribute *a = e->FirstAttribute(); a; a = a->Next())
            if (int status = checkAttribute(*r, e, a, v))
                return status;
        if (int status = checkBody(*r, e, &workingType, v))
            return status;
    }
    return QRV_OK;
}

/* Line and column of a byte offset, counted as the parser counts them. */
void locate(const char *text, size_t offset, int *line, int *column)
{
    *line = 1;
    *column = 1;
    for (size_t i = 0; i < offset; ++i) {
        if (text[i] == '\n' || (text[i] == '\r' && text[i + 1] != '\n')) {
            ++*line;
            *column = 1;
        } else if (text[i] != '\r') {
            ++*column;
        }
    }
}

int checkDocument(const char *xml, Verdict &v)
{
    if (!opensFewTags(xml))
        return v.fail(QRV_E_RANGE, nullptr, nullptr, "more than %u elements",
                      static_cast<unsigned>(kMaxOpeningTags));
    TiXmlDocument doc;
    const size_t length = std::strlen(xml);
    size_t stop = 0;
    if (!qrv::host::parseXmlCopy(&doc, xml, length, TIXML_DEFAULT_ENCODING, &stop))
        return v.fail(QRV_E_MEMORY, nullptr, nullptr, "no memory for a copy of the text");
    if (doc.Error())
        return v.fail(QRV_E_SYNTAX, nullptr, nullptr, "line %d, column %d: not well-formed: %s",
                      doc.ErrorRow(), doc.ErrorCol(), doc.ErrorDesc());
    if (stop < length) {
        int line = 0, column = 0;
        locate(xml, stop, &line, &column);
        return v.fail(QRV_E_SYNTAX, nullptr, nullptr,
                      "line %d, column %d: trailing data after the root element", line, column);
    }
    const TiXmlElement *root = nullptr;
    for (const TiXmlNode *n = doc.FirstChild(); n; n = n->NextSibling()) {
        if (!n->ToElement() && std::strcmp(n->Value(), "MediaCmd") == 0)
            return v.fail(QRV_E_SYNTAX, n, "MediaCmd",
                          "a comment or text of this name hides the element");
        if (!n->ToElement())
            continue;
        if (root)
            return v.fail(QRV_E_SYNTAX, n, n->Value(),
                          "trailing data: an element after the root element");
        root = n->ToElement();
        if (std::strcmp(root->Value(), "MediaCmd") != 0)
            return v.fail(QRV_E_SYNTAX, n, n->Value(),
                          "unknown element (the root must be MediaCmd)");
    }
    if (!root)
        return v.fail(QRV_E_SYNTAX, nullptr, nullptr, "no MediaCmd element");
    return checkRoot(root, v);
}

} // namespace

int MediaCmdValidateXMLString(const char *xml, char *reason, uint32_t room)
{
    Verdict verdict(reason, room);
    if (!xml)
        return verdict.fail(QRV_E_ARGUMENT, nullptr, nullptr, "no text");
    try {
        return checkDocument(xml, verdict);
    } catch (...) {
        return verdict.fail(QRV_E_MEMORY, nullptr, nullptr, "out of memory");
    }
}
