/* The two outputs of the MEDIACMD XML writer's one layout: a TinyXML tree,
 * and the compact text written straight into a caller's block exactly as
 * TinyXML prints that tree (no indentation, no line breaks). Both take the
 * same calls: begin, then per element open, attributes, at most one text,
 * close; then end. */
#ifndef QRVUTIL_MEDIACMD_XML_OUTPUTS_H
#define QRVUTIL_MEDIACMD_XML_OUTPUTS_H

#include <tinyxml.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace qrv::mediacmd {

constexpr char kXmlComment[] = " Korvane MEDIACMD xml structure version 1,0 ";
constexpr char kHexDigits[] = "0123456789ABCDEF";

/* Builds the document as TinyXML nodes under a "MediaCmd" root. */
class TreeOutput {
  public:
    explicit TreeOutput(TiXmlDocument *doc) : doc_(doc) {}
    void begin()
    {
        doc_->LinkEndChild(new TiXmlDeclaration("1.0", "iso-8859-1", ""));
        root_ = new TiXmlElement("MediaCmd");
        doc_->LinkEndChild(root_);
        root_->LinkEndChild(new TiXmlComment(kXmlComment));
    }
    void open(const char *name)
    {
        element_ = new TiXmlElement(name);
        root_->LinkEndChild(element_);
    }
    void attribute(const char *name, int value) { element_->SetAttribute(name, value); }
    void attribute(const char *name, const char *value) { element_->SetAttribute(name, value); }
    void text(const char *p, size_t n) { element_->LinkEndChild(new TiXmlText(std::string(p, n))); }
    void hexText(const unsigned char *bytes, size_t n)
    {
        std::string hex(2 * n, '0');
        for (size_t i = 0; i < n; ++i) {
            hex[2 * i] = kHexDigits[bytes[i] >> 4];
            hex[2 * i + 1] = kHexDigits[bytes[i] & 0xF];
        }
        element_->LinkEndChild(new TiXmlText(hex));
    }
    void close() {}
    void end() {}

  private:
    TiXmlDocument *doc_;
    TiXmlElement *root_ = nullptr;
    TiXmlElement *element_ = nullptr;
};

/* Writes the printed text into [p, end). A write that would not fit sets
 * overflowed() and writes nothing more; the text is zero-terminated by
 * finish(). */
class TextOutput {
  public:
    TextOutput(char *block, size_t room) : p_(block), end_(block + (room ? room - 1 : 0))
    {
        if (!room)
            p_ = end_ = nullptr;
    }
    bool overflowed() const { return overflowed_; }
    /* Terminates the text; returns its length. */
    size_t finish(char *block)
    {
        if (p_)
            *p_ = 0;
        return p_ ? static_cast<size_t>(p_ - block) : 0;
    }

    void begin()
    {
        put("<?xml version=\"1.0\" encoding=\"iso-8859-1\" ?><MediaCmd><!--");
        put(kXmlComment);
        put("-->");
    }
    void open(const char *name)
    {
        name_ = name;
        hasText_ = false;
        put("<");
        put(name);
    }
    void attribute(const char *name, int value)
    {
        char digits[16];
        put(" ");
        put(name);
        put("=\"");
        put(digits, decimal(value, digits));
        put("\"");
    }
    /* A value holding a double quote is printed in single quotes. */
    void attribute(const char *name, const char *value)
    {
        const size_t n = std::strlen(value);
        const char *quote = std::memchr(value, '"', n) ? "'" : "\"";
        put(" ");
        put(name);
        put("=");
        put(quote);
        escaped(value, n);
        put(quote);
    }
    void text(const char *p, size_t n)
    {
        hasText_ = true;
        put(">");
        escaped(p, n);
    }
    void hexText(const unsigned char *bytes, size_t n)
    {
        hasText_ = true;
        put(">");
        if (!fits(2 * n))
            return;
        for (size_t i = 0; i < n; ++i) {
            *p_++ = kHexDigits[bytes[i] >> 4];
            *p_++ = kHexDigits[bytes[i] & 0xF];
        }
    }
    void close()
    {
        if (!hasText_) {
            put(" />");
            return;
        }
        put("</");
        put(name_);
        put(">");
    }
    void end() { put("</MediaCmd>"); }

    /* The longest text `n` bytes can print as ("&quot;", "&#x01;"). */
    static constexpr size_t escapedRoom(size_t n) { return 6 * n; }

  private:
    bool fits(size_t n)
    {
        if (!overflowed_ && n <= static_cast<size_t>(end_ - p_))
            return true;
        overflowed_ = true;
        return false;
    }
    void put(const char *s, size_t n)
    {
        if (!n || !fits(n))
            return;
        std::memcpy(p_, s, n);
        p_ += n;
    }
    void put(const char *s) { put(s, std::strlen(s)); }

    static size_t decimal(int value, char *out)
    {
        char reversed[12];
        size_t n = 0;
        uint32_t magnitude = value < 0 ? 0u - static_cast<uint32_t>(value)
                                       : static_cast<uint32_t>(value);
        do {
            reversed[n++] = static_cast<char>('0' + magnitude % 10);
            magnitude /= 10;
        } while (magnitude);
        size_t length = 0;
        if (value < 0)
            out[length++] = '-';
        while (n)
            out[length++] = reversed[--n];
        return length;
    }

    /* Markup characters become entities and bytes below 32 character
     * references; every other byte is written as it is. */
    void escaped(const char *s, size_t n)
    {
        size_t i = 0;
        while (i < n) {
            const size_t run = plainRun(s + i, n - i);
            put(s + i, run);
            i += run;
            if (i == n)
                break;
            escapeOne(static_cast<unsigned char>(s[i++]));
        }
    }
    static size_t plainRun(const char *s, size_t n)
    {
        size_t i = 0;
        while (i < n && !needsEscape(static_cast<unsigned char>(s[i])))
            ++i;
        return i;
    }
    static constexpr bool needsEscape(unsigned char c)
    {
        return c < 32 || c == '&' || c == '<' || c == '>' || c == '"' || c == '\'';
    }
    void escapeOne(unsigned char c)
    {
        switch (c) {
        case '&': put("&amp;"); return;
        case '<': put("&lt;"); return;
        case '>': put("&gt;"); return;
        case '"': put("&quot;"); return;
        case '\'': put("&apos;"); return;
        default: {
            const char ref[] = {'&', '#', 'x', kHexDigits[c >> 4], kHexDigits[c & 0xF], ';'};
            put(ref, sizeof ref);
        }
        }
    }

    char *p_;
    char *end_;
    const char *name_ = "";
    bool hasText_ = false;
    bool overflowed_ = false;
};

} // namespace qrv::mediacmd

#endif
