/**
 * @file
 * Transport values (C++ only): play speed and play position in fixed point,
 * and a position counter that steps by the speed and wraps inside a frame
 * range.
 *
 * One whole frame, and a speed of one frame per frame (normal play), is
 * QRV_TRANSPORT_UNIT units. 65520 divides evenly by the usual slow-motion
 * fractions (1/2, 1/3, 1/4, 1/5, 1/6, 1/7, 1/8, 1/9, 1/10 ...). All
 * arithmetic is integer; whole frames wrap in 32 bits. The objects hold only
 * their own values: different objects may be used from different threads.
 */
#ifndef QRVUTIL_TRANSPORT_H
#define QRVUTIL_TRANSPORT_H

#include <stdint.h>

#include "export.h"

/** Units per frame of every position and speed; MEDIACMD speeds use it too. */
#define QRV_TRANSPORT_UNIT 65520

/** CQRVSpeed value of a ratio with a zero denominator. */
#define QRV_SPEED_UNDEFINED 0x7FFFFFFF

#ifdef __cplusplus

/**
 * A play speed: the speed times 65520 in one signed 32-bit value. 65520 is
 * normal forward play, -65520 normal reverse, 0 still. Any 32-bit value is a
 * valid speed; speeds are never normalised. Fixed layout: one int32_t.
 */
class QRV_API CQRVSpeed {
  public:
    int32_t value = 0; /**< the speed in 65520ths of normal play */

    /** value = num * 65520 / den (64-bit product, truncated toward zero, kept
     *  as 32 bits, wrapping); den = 0 gives QRV_SPEED_UNDEFINED. Returns the
     *  value. */
    int Set(int num, int den);

    /** value = d * 65520 truncated toward zero. Results beyond the 32-bit
     *  range saturate at INT32_MIN / INT32_MAX; NaN gives 0. */
    CQRVSpeed &operator=(const double &d);

    /** Splits the value by floor division: keeps the remainder (0..65519) as
     *  the new value and returns the whole frames (-1 for -1 unit). */
    int Fractionalize();
};

QRV_STATIC_ASSERT(sizeof(CQRVSpeed) == 4, "CQRVSpeed is one 32-bit value");

/** value = a * b / 65520 (64-bit product, truncated, kept as 32 bits). */
QRV_API CQRVSpeed operator*(const CQRVSpeed &a, const CQRVSpeed &b);
/** value = a * 65520 / b (64-bit product, truncated, kept as 32 bits). b must
 *  not be 0; if it is, the result is QRV_SPEED_UNDEFINED, as for Set(n, 0). */
QRV_API CQRVSpeed operator/(const CQRVSpeed &a, const CQRVSpeed &b);

/**
 * A play position: whole frames plus 65520ths of a frame. Every setter and
 * operator leaves fraction in 0..65519 (floor split: -1 unit is whole -1,
 * fraction 65519); whole frames wrap in 32 bits. Fixed layout: two int32_t.
 */
class QRV_API CQRVPos {
  public:
    int32_t whole = 0;    /**< whole frames */
    int32_t fraction = 0; /**< 65520ths of a frame, 0..65519 after any setter */

    /** Moves fraction into 0..65519, carrying whole frames into `whole`. */
    void Normalize();
    /** whole = w, fraction = frac, then normalised. */
    void Set(int w, int frac);
    /** The speed read as a position (-32760 gives -1 and 32760). */
    void Set(const CQRVSpeed &s);
    /** The position num / den: whole = num / den, fraction = the remainder in
     *  65520ths (truncated), then normalised. den must not be 0; if it is, the
     *  position becomes QRV_SPEED_UNDEFINED whole frames and no fraction. */
    void SetAsFrac(int num, int den);
};

QRV_STATIC_ASSERT(sizeof(CQRVPos) == 8, "CQRVPos is two 32-bit values");

/** Sum of two positions, normalised; whole frames wrap in 32 bits. */
QRV_API CQRVPos operator+(const CQRVPos &a, const CQRVPos &b);
/** Difference of two positions, normalised; whole frames wrap in 32 bits. */
QRV_API CQRVPos operator-(const CQRVPos &a, const CQRVPos &b);

/**
 * The position counter of a play transport. Each step moves the position by
 * the speed times the play count: at slow speeds a frame is shown for several
 * steps, and the play count is the number of steps that would show the
 * current frame, so that one step reaches the next distinct frame.
 *
 * When a range is set, the whole-frame position wraps into
 * [rangeStart, rangeStart + rangeLength), in unsigned 32-bit arithmetic:
 * - a position from -99 to -1 is first lifted by one range length (kept:
 *   a short reverse run past the start lands near the end of the range);
 * - one further below zero is not lifted and wraps as an unsigned number
 *   (SetRange(100, 200) then SetTC(-150) gives 146, SetTC(-5) gives 191).
 * Fixed layout, 36 bytes, no virtual functions.
 */
class QRV_API CQRVTransTC {
  public:
    uint32_t rangeStart = 0;      /**< first frame of the wrap range */
    uint32_t rangeEnd = 0;        /**< the value given to SetRange, one past the last frame */
    uint32_t rangeLength = 0;     /**< rangeEnd - rangeStart; 0: the position never wraps */
    CQRVPos position;             /**< the current position */
    CQRVSpeed speed;              /**< the current speed */
    bool playCountStale = true;   /**< the cached play count must be worked out again */
    int32_t stepCounter = 0;      /**< +1 per forward step, -1 per backward step, whatever n */
    uint32_t cachedPlayCount = 1; /**< the last play count worked out */

    /** The range between a and b (either order); b = -1 leaves it open at the
     *  top (length 0xFFFFFFFF - a); a = b means no wrapping. The position is
     *  not wrapped here. */
    void SetRange(int a, int b);
    /** position = p, normalised and wrapped; resets the step counter. */
    void SetTC(const CQRVPos &p);
    /** position = frame with no fraction, wrapped; resets the step counter. */
    void SetTC(int frame);
    /** speed = s. Normal play (+-65520) puts the position on the frame
     *  (fraction 0); any other speed puts it half a frame in (32760). */
    void SetSpeed(const CQRVSpeed &s);
    /** Wraps the position into the range; nothing when no range is set. */
    void Modulo();
    /** Steps that show the current frame at the current speed (16380 from
     *  fraction 0 gives 4). A speed of 0 or of a whole frame or more gives 1
     *  and leaves the count stale. */
    uint32_t PlayCount();

    /** Steps forward one play count; returns the position. */
    CQRVPos &operator++();
    /** Steps back one play count; returns the position. */
    CQRVPos &operator--();
    /** Steps n play counts forward; returns the new whole-frame position. The
     *  step counter moves by one, whatever n. */
    int operator+=(int n);
    /** Steps n play counts back, as operator+=(). */
    int operator-=(int n);

  protected:
    void Step(int n, bool forward);
    void Wrap();
};

/** The counter with one more setter. */
class QRV_API CQRVTransTC2 : public CQRVTransTC {
  public:
    /** As SetSpeed(), but only normal play (+-65520) moves the fraction (to 0). */
    void SetSpeedZero(const CQRVSpeed &s);
};

QRV_STATIC_ASSERT(sizeof(CQRVTransTC) == 36, "CQRVTransTC layout is fixed");
QRV_STATIC_ASSERT(sizeof(CQRVTransTC2) == sizeof(CQRVTransTC), "CQRVTransTC2 adds no fields");

#endif /* __cplusplus */

#endif
