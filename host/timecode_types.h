// The timecode types, shared by the timecode text of the host layer and the
// timing functions of video/: one row per type code (the low byte of a
// timecode-type value; the bits above it are flags that callers carry).
#pragma once

#include <stdint.h>

namespace qrv {

constexpr uint32_t kTcFrames = 0;
constexpr uint32_t kTcFilm = 1;
constexpr uint32_t kTcNonDrop = 2;
constexpr uint32_t kTcDrop = 4;
constexpr uint32_t kTcPal = 8;
constexpr uint32_t kTc50 = 16;
constexpr uint32_t kTc5994 = 32;
constexpr uint32_t kTc60 = 64;
constexpr uint32_t kTcFilmDrop = 128;
constexpr uint32_t kTc2398 = 132;

// The text side: labels per second of "HH:MM:SS:FF" (0: the text is the plain
// frame count) and the labels skipped at the start of each minute not
// divisible by ten. 23.976 is labelled as 24 like film; 29.97 and 59.94 drop
// labels so that the text keeps pace with the clock.
// The video side: frame rate and frame period (double and rounded). Type 2
// counts 30 frames a second but keeps the 29.97 frame period in both period
// functions: non-drop-frame timecode counts 30 a second on 29.97 video, and
// the period is the video's.
struct TimecodeType {
    uint32_t code;
    uint32_t labelsPerSecond;
    uint32_t dropPerMinute;
    double fps;
    double msPerFrame;
    uint32_t msPerFrameRounded;
};

// The first row also stands for every code not listed.
inline constexpr TimecodeType kTimecodeTypes[] = {
    {kTcFrames, 0, 0, 29.97002997002997, 33.36666666666667, 33},
    {kTcFilm, 24, 0, 24.0, 41.666666666666664, 42},
    {kTcNonDrop, 30, 0, 30.0, 33.36666666666667, 33},
    {kTcDrop, 30, 2, 29.97002997002997, 33.36666666666667, 33},
    {kTcPal, 25, 0, 25.0, 40.0, 40},
    {kTc50, 50, 0, 50.0, 20.0, 20},
    {kTc5994, 60, 4, 59.94005994005994, 16.68333333333333, 17},
    {kTc60, 60, 0, 60.0, 16.66666666666667, 17},
    {kTcFilmDrop, 24, 0, 23.976023976023978, 41.708333333333336, 42},
    {kTc2398, 24, 0, 23.976023976023978, 41.708333333333336, 42},
};

// The row of the low byte of `code`; the first row for an unlisted code.
inline const TimecodeType &timecodeType(uint32_t code)
{
    for (const TimecodeType &t : kTimecodeTypes) {
        if (t.code == (code & 0xFFu))
            return t;
    }
    return kTimecodeTypes[0];
}

} // namespace qrv
