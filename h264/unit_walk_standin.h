// Stand-in for the unit iterator of the bits/ layer until that layer lands
// here; removed then. Walks the units of a frame framed by 3- or 4-byte start
// codes or by 4-byte big-endian lengths.
#pragma once

#include <cstdint>

namespace qrv {

// One unit: its framing starts at `prefix` (the zero_byte of a 4-byte code
// included, or the length field), its bytes are [payload, end).
struct UnitSpan {
    uint64_t prefix;
    uint64_t payload;
    uint64_t end;
};

class UnitWalker {
public:
    UnitWalker(const uint8_t *data, uint64_t length) : data_(data), length_(length)
    {
        uint64_t zeros = 0;
        while (zeros < length && data[zeros] == 0)
            ++zeros;
        startCodes_ = zeros >= 2 && zeros < length && data[zeros] == 1;
        at_ = startCodes_ ? findCode(0) : 0;
    }
    bool startCodes() const { return startCodes_; }
    // A length field that runs past the end stopped the walk.
    bool overrun() const { return overrun_; }

    bool next(UnitSpan &u)
    {
        if (startCodes_) {
            if (at_ >= length_)
                return false;
            u.prefix = at_ > 0 && data_[at_ - 1] == 0 && at_ - 1 >= last_ ? at_ - 1 : at_;
            u.payload = at_ + 3;
            const uint64_t next = findCode(u.payload);
            u.end = next;
            while (u.end > u.payload && data_[u.end - 1] == 0)
                --u.end;
            last_ = u.end;
            at_ = next;
            return true;
        }
        if (length_ - at_ < 4)
            return false;
        const uint64_t size = (uint64_t{data_[at_]} << 24) | (uint64_t{data_[at_ + 1]} << 16) |
                              (uint64_t{data_[at_ + 2]} << 8) | data_[at_ + 3];
        if (size > length_ - at_ - 4) {
            overrun_ = true;
            return false;
        }
        u = {at_, at_ + 4, at_ + 4 + size};
        at_ = u.end;
        return true;
    }

private:
    uint64_t findCode(uint64_t from) const
    {
        for (uint64_t i = from; i + 3 <= length_; ++i) {
            if (data_[i] == 0 && data_[i + 1] == 0 && data_[i + 2] == 1)
                return i;
        }
        return length_;
    }

    const uint8_t *data_;
    uint64_t length_;
    uint64_t at_ = 0;
    uint64_t last_ = 0;
    bool startCodes_ = false;
    bool overrun_ = false;
};

} // namespace qrv
