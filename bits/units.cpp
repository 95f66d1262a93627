// Unit iteration over start-code or length framing.
#include "bits/units.h"

#include "bits/byte_order.h"
#include "bits/nal_types.h"
#include "bits/start_code.h"

namespace qrv {

namespace {

constexpr uint64_t kFieldSize = 4;
constexpr uint32_t kStartCodeField = 1; // 00 00 00 01 read as a field
constexpr uint64_t kMinKeptSpan = 5;    // a field and a NAL header byte

} // namespace

UnitIterator::UnitIterator(const uint8_t *data, uint64_t length, UnitRules rules)
    : data_(data), length_(data ? length : 0), rules_(rules)
{
    if (rules_.kept) {
        if (length_ >= kFieldSize)
            stride_ = readBE32(data_);
        return;
    }
    // Two or more zero bytes and a 01: a start code, with any leading zeros.
    uint64_t zeros = 0;
    while (zeros < length_ && data_[zeros] == 0)
        ++zeros;
    if (zeros >= 2 && zeros < length_ && data_[zeros] == 1)
        framing_ = UnitFraming::startCodes;
}

bool UnitIterator::next(Unit *unit) { return rules_.kept ? nextKept(unit) : nextGeneral(unit); }

bool UnitIterator::nextGeneral(Unit *unit)
{
    if (pos_ >= length_)
        return false;
    const uint64_t field = pos_;
    if (framing_ == UnitFraming::startCodes) {
        uint64_t payload = field;
        while (data_[payload] == 0) // up to the 01 that closes the code
            ++payload;
        ++payload;
        const uint8_t *end = data_ + length_;
        const uint8_t *code = findStartCode(data_ + payload, end);
        uint64_t next = static_cast<uint64_t>(code - data_);
        if (code != end && next > payload && code[-1] == 0)
            --next; // a 4-byte code
        *unit = {field, payload, next - payload};
        pos_ = next;
        return true;
    }
    if (length_ - field < kFieldSize) {
        overran_ = true;
        return false;
    }
    const uint64_t size = readBE32(data_ + field);
    if (size > length_ - field - kFieldSize) {
        overran_ = true;
        return false;
    }
    *unit = {field, field + kFieldSize, size};
    pos_ = field + kFieldSize + size;
    return true;
}

// The length of the kept-rules unit whose field is at `field`.
uint64_t UnitIterator::keptLength(uint64_t field)
{
    uint64_t value = rules_.firstLengthStride ? stride_ : readBE32(data_ + field);
    if (value == kStartCodeField) {
        const uint64_t payload = field + kFieldSize;
        const uint8_t *end = data_ + length_;
        const uint8_t *code = findLongStartCode(data_ + payload, end);
        value = code != end ? static_cast<uint64_t>(code - data_) - payload : length_ - field;
    }
    if (rules_.firstLengthStride)
        stride_ = value;
    return value;
}

bool UnitIterator::nextKept(Unit *unit)
{
    if (length_ < kMinKeptSpan || pos_ > length_ - kMinKeptSpan)
        return false;
    const uint64_t field = pos_;
    const uint64_t payload = field + kFieldSize;
    uint64_t size = keptLength(field);
    if (size > length_ - payload) {
        overran_ = true;
        return false;
    }
    *unit = {field, payload, size};
    uint64_t from = field;
    if (rules_.zeroTypeResync && nal::typeOf(data_[payload]) == nal::kUnspecified) {
        const bool zeroLead = data_[field] == 0;
        ++from;
        while (zeroLead && from < length_ && data_[from] == 0) {
            ++from;
            ++size;
        }
    }
    pos_ = from + kFieldSize + size;
    return true;
}

} // namespace qrv
