/* Timecode text: "HH:MM:SS:FF", or "HH:MM:SS;FF" for the drop-frame rates.
 * Hours are not wrapped at 24, so every 32-bit frame count has a text of at
 * most 15 characters that reads back to the same count. */
#include <qrvutil/host.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "host/timecode_types.h"

namespace {

using qrv::TimecodeType;

constexpr unsigned kTextMax = QRV_TIMECODE_TEXT_SIZE - 1;

/* The type of the low byte of `flags`, or null for one without labels. */
const TimecodeType *findType(unsigned flags)
{
    const TimecodeType &t = qrv::timecodeType(flags);
    return t.labelsPerSecond != 0 ? &t : nullptr;
}

/* Frame count to label count: add back the labels skipped before it. */
uint64_t labelsFromFrames(uint64_t frames, const TimecodeType &t)
{
    if (t.dropPerMinute == 0)
        return frames;
    const uint64_t drop = t.dropPerMinute;
    const uint64_t perMinute = t.labelsPerSecond * 60 - drop;
    const uint64_t perTenMinutes = t.labelsPerSecond * 600 - drop * 9;
    const uint64_t tens = frames / perTenMinutes;
    const uint64_t rest = frames % perTenMinutes;
    uint64_t labels = frames + drop * 9 * tens;
    if (rest > drop)
        labels += drop * ((rest - drop) / perMinute);
    return labels;
}

/* Label count to frame count; false for a label that the rate skips. */
bool framesFromLabels(uint64_t labels, const TimecodeType &t, uint64_t *frames)
{
    const uint64_t minutes = labels / (t.labelsPerSecond * 60);
    const uint64_t skippedMinutes = minutes - minutes / 10;
    if (t.dropPerMinute != 0 && minutes % 10 != 0 &&
        labels % (t.labelsPerSecond * 60) < t.dropPerMinute)
        return false;
    *frames = labels - t.dropPerMinute * skippedMinutes;
    return true;
}

int copyText(const char *formatted, int length, char *text)
{
    if (length < 0)
        length = 0;
    const size_t n = static_cast<size_t>(length) < kTextMax ? static_cast<size_t>(length)
                                                            : kTextMax;
    std::memcpy(text, formatted, n);
    text[n] = '\0';
    return static_cast<int>(n);
}

bool isSeparator(char c) { return c == ':' || c == ';' || c == '.'; }

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

/* Up to four decimal fields; returns how many, or 0 for unreadable text. */
int readFields(const char *text, uint64_t (&fields)[4])
{
    while (isSpace(*text))
        ++text;
    int count = 0;
    for (;;) {
        int digits = 0;
        uint64_t value = 0;
        for (; *text >= '0' && *text <= '9'; ++text) {
            if (++digits > 10)
                return 0;
            value = value * 10 + static_cast<unsigned>(*text - '0');
        }
        if (digits == 0 || count == 4)
            return 0;
        fields[count++] = value;
        if (!isSeparator(*text))
            break;
        ++text;
    }
    while (isSpace(*text))
        ++text;
    return *text == '\0' ? count : 0;
}

} // namespace

/* The bits above the low byte (the library passes 0x32100, 0xB2140,
 * 0x10100 and 0x10102 in them) choose nothing: there is one text form per
 * timecode type. */
int tcToString(unsigned frames, unsigned flags, char *text)
{
    if (!text)
        return 0;
    char formatted[48];
    const TimecodeType *t = findType(flags);
    if (!t)
        return copyText(formatted, std::snprintf(formatted, sizeof formatted, "%u", frames), text);
    uint64_t labels = labelsFromFrames(frames, *t);
    const unsigned ff = static_cast<unsigned>(labels % t->labelsPerSecond);
    labels /= t->labelsPerSecond;
    const unsigned ss = static_cast<unsigned>(labels % 60);
    labels /= 60;
    const unsigned mm = static_cast<unsigned>(labels % 60);
    const unsigned long long hh = labels / 60;
    const char separator = t->dropPerMinute ? ';' : ':';
    return copyText(formatted,
                    std::snprintf(formatted, sizeof formatted, "%02llu:%02u:%02u%c%02u", hh, mm, ss,
                                  separator, ff),
                    text);
}

/* Fields are right-aligned: "FF", "SS:FF", "MM:SS:FF", "HH:MM:SS:FF", with
 * ':', ';' or '.' between them. A single field is a plain frame count; with
 * several, all but the leading one must be in range. The selector bits (the
 * library passes 0x100) change nothing. */
int tcToFrame(const char *text, unsigned flags, unsigned *frames)
{
    if (!text || !frames)
        return -1;
    uint64_t fields[4];
    const int count = readFields(text, fields);
    if (count == 0)
        return -1;
    const TimecodeType *t = findType(flags);
    uint64_t result = 0;
    if (count == 1) {
        result = fields[0];
    } else {
        if (!t)
            return -1;
        const uint64_t limits[4] = {UINT64_MAX, 60, 60, t->labelsPerSecond};
        uint64_t labels = 0;
        for (int i = 0; i < count; ++i) {
            const uint64_t value = fields[i];
            const uint64_t limit = limits[4 - count + i];
            if (i > 0 && value >= limit)
                return -1;
            labels = i == 0 ? value : labels * limit + value;
        }
        if (!framesFromLabels(labels, *t, &result))
            return -1;
    }
    if (result > UINT32_MAX)
        return -1;
    *frames = static_cast<unsigned>(result);
    return 0;
}
