#include "unit_stream.h"

#include "failure.h"

#include <qrvutil/bitstream.h>

#include <cstring>

namespace qrvtool {

namespace {

constexpr size_t kInitialBuffer = 4u << 20;
// Zero bytes kept after the valid data: the library's bit reader may look
// one byte past a unit.
constexpr size_t kReaderPadding = 8;

} // namespace

UnitReader::UnitReader(InputFile &in) : in_(in), progress_(in.name(), in.size())
{
    buffer_.resize(kInitialBuffer + kReaderPadding);
    fill();
    if (end_ == 0)
        throw InputError(in_.name(), atByte(0), "empty file");
    size_t zeros = 0;
    while (zeros < end_ && buffer_[zeros] == 0)
        ++zeros;
    if (zeros >= 2 && zeros < end_ && buffer_[zeros] == 1)
        return; // Annex B
    if (end_ > 4 && bigEndian32(buffer_.data()) != 0 && (buffer_[4] & 0x80) == 0 &&
        (in_.size() == 0 || bigEndian32(buffer_.data()) <= in_.size() - 4)) {
        lengthFramed_ = true;
        return;
    }
    throw InputError(in_.name(), atByte(0),
                     "not an H.264 stream: no start code and no unit length at the start");
}

bool UnitReader::fill()
{
    if (eof_)
        return false;
    if (start_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + start_, end_ - start_);
        base_ += start_;
        end_ -= start_;
        start_ = 0;
    }
    if (end_ + kReaderPadding >= buffer_.size())
        buffer_.resize(buffer_.size() * 2);
    const size_t got = in_.read(buffer_.data() + end_, buffer_.size() - kReaderPadding - end_);
    if (got == 0)
        eof_ = true;
    end_ += got;
    std::memset(buffer_.data() + end_, 0, kReaderPadding);
    progress_.update(base_ + end_);
    return got != 0;
}

void UnitReader::requireBytes(size_t count)
{
    while (end_ - start_ < count && fill()) {
    }
}

// Index of the first byte of the next 00 00 01 at or after `from`, or end_
// when none is in the buffer.
size_t UnitReader::findStartCode(size_t from)
{
    size_t at = from + 2;
    while (at < end_) {
        const void *one = std::memchr(buffer_.data() + at, 1, end_ - at);
        if (!one)
            return end_;
        at = static_cast<size_t>(static_cast<const uint8_t *>(one) - buffer_.data());
        if (buffer_[at - 1] == 0 && buffer_[at - 2] == 0)
            return at - 2;
        ++at;
    }
    return end_;
}

void UnitReader::checkHeader(const NalUnit &unit) const
{
    if (unit.data[0] & 0x80)
        throw InputError(in_.name(), atByte(unit.offset),
                         "forbidden_zero_bit is set: not an H.264 unit");
}

bool UnitReader::next(NalUnit &unit)
{
    const bool got = lengthFramed_ ? nextLengthFramed(unit) : nextAnnexB(unit);
    if (got)
        checkHeader(unit);
    return got;
}

bool UnitReader::nextAnnexB(NalUnit &unit)
{
    // Step over the zero bytes and the 01 of the start code; zero bytes at
    // the end of the file trail the last unit.
    size_t zeros = 0;
    for (;;) {
        if (start_ + zeros >= end_) {
            if (!fill())
                return false;
            continue;
        }
        if (buffer_[start_ + zeros] != 0)
            break;
        ++zeros;
    }
    const size_t one = start_ + zeros;
    if (buffer_[one] != 1 || zeros < 2)
        throw InputError(in_.name(), atByte(base_ + start_),
                         "bytes between units that are not a start code");
    unit.framing = zeros >= 3 ? 4 : 3;
    unit.offset = base_ + one + 1 - unit.framing;
    size_t payload = one + 1;
    size_t searched = payload;
    size_t next;
    for (;;) {
        next = findStartCode(searched > payload + 2 ? searched - 2 : payload);
        if (next < end_ || eof_)
            break;
        searched = end_;
        const size_t before = start_;
        fill();
        payload -= before;
        searched -= before;
    }
    size_t stop = next;
    while (stop > payload && buffer_[stop - 1] == 0)
        --stop;
    if (stop == payload)
        throw InputError(in_.name(), atByte(unit.offset), "a start code with no unit after it");
    unit.data = buffer_.data() + payload;
    unit.size = static_cast<uint32_t>(stop - payload);
    // One zero in front of 00 00 01 makes it a 4-byte code; any more trail the unit.
    unit.trailingZeros = next - stop > 1 ? static_cast<uint32_t>(next - stop - 1) : 0;
    start_ = stop;
    return true;
}

bool UnitReader::nextLengthFramed(NalUnit &unit)
{
    requireBytes(4);
    if (end_ == start_)
        return false;
    unit.offset = position();
    if (end_ - start_ < 4)
        throw InputError(in_.name(), atByte(unit.offset),
                         "the file ends inside a unit length field");
    const uint32_t length = bigEndian32(buffer_.data() + start_);
    if (length == 0)
        throw InputError(in_.name(), atByte(unit.offset), "unit length 0");
    if (in_.size() != 0 && length > in_.size() - unit.offset - 4)
        throw InputError(in_.name(), atByte(unit.offset),
                         "unit of " + std::to_string(length) +
                             " bytes runs past the end of the file");
    requireBytes(size_t{4} + length);
    if (end_ - start_ < size_t{4} + length)
        throw InputError(in_.name(), atByte(unit.offset),
                         "unit of " + std::to_string(length) +
                             " bytes runs past the end of the file");
    unit.framing = 0;
    unit.data = buffer_.data() + start_ + 4;
    unit.size = length;
    start_ += size_t{4} + length;
    return true;
}

uint32_t firstMbInSlice(const NalUnit &unit)
{
    kx_bitstream bs{};
    bs.buffer = reinterpret_cast<uintptr_t>(unit.data);
    bs.byte_size = unit.size;
    bs.bit_end = uintptr_t{unit.size} * 8;
    bs.bit_pos = 8;
    return ReadExponentialGolombCode(&bs);
}

bool AccessUnitTracker::opensAccessUnit(const NalUnit &unit)
{
    const int type = unit.type();
    bool opens = !seenUnit_;
    seenUnit_ = true;
    if (unit.isSlice()) {
        if (pictureOpen_ && !prefixOpen_ && firstMbInSlice(unit) == 0)
            opens = true;
        if (prefixOpen_)
            opens = false;
        pictureOpen_ = true;
        prefixOpen_ = false;
        return opens;
    }
    // Units that stand before the first slice of a picture.
    const bool prefix = type == 6 || type == 7 || type == 8 || type == 9 || type == 13 ||
                        (type >= 14 && type <= 18);
    if (prefix && pictureOpen_) {
        pictureOpen_ = false;
        prefixOpen_ = true;
        return true;
    }
    if (prefix)
        prefixOpen_ = true;
    return opens;
}

} // namespace qrvtool
