// h264 tolength and h264 toannexb: whole-file framing conversion with the
// library's in-place converters.
//
// Files are converted in large blocks: each block is cut after its last whole
// unit, converted with one library call and written with one write; the rest
// is carried to the next block. Every unit is still checked the way the unit
// reader checks it (framing, header byte, parameter sets, the slices of the
// last access unit). Input the block path does not convert itself, and
// standard input or output, go access unit by access unit through the unit
// reader, which also names the byte where the input goes wrong.
#include "access_units.h"
#include "commands.h"
#include "failure.h"
#include "h264_stream.h"

#include <qrvutil/h264.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <climits>
#include <cstring>
#include <sys/stat.h>

namespace qrvtool {

namespace {

enum class Target { kLength, kAnnexB };

// ---- Access unit by access unit ---------------------------------------------

void convertAccessUnit(AccessUnit &au, bool lengthInput, Target target, const std::string &file)
{
    if (au.bytes.size() > INT_MAX / 2)
        throw InputError(file, atByte(au.offset), "access unit too large to convert");
    if (target == Target::kLength && !lengthInput) {
        // Start codes are all 4 bytes long here: the length stays the same.
        const int length = qrvUtilh264MarkerToSize(au.bytes.data(),
                                                   static_cast<int>(au.bytes.size()));
        au.bytes.resize(static_cast<size_t>(length));
    } else if (target == Target::kAnnexB && lengthInput) {
        const unsigned length = qrvUtilh264SizeToMarker(au.bytes.data(),
                                                        static_cast<unsigned>(au.bytes.size()));
        au.bytes.resize(length);
    }
}

void convertByAccessUnit(const std::string &inPath, const std::string &outPath, Target target)
{
    InputFile in(inPath);
    UnitReader reader(in);
    OutputFile out(outPath);
    ParameterSets sets(in.name());
    const bool lengthInput = reader.lengthFramed();
    forEachAccessUnit(reader, &sets, [&](AccessUnit &au) {
        convertAccessUnit(au, lengthInput, target, in.name());
        out.write(au.bytes.data(), au.bytes.size());
    });
    out.commit();
}

// ---- In blocks ---------------------------------------------------------------------

constexpr size_t kBlock = 1u << 20;
// Start-code input is converted in pieces of about this size, each while it
// is still in the processor's cache.
constexpr size_t kPiece = 64u << 10;
// Room after the data: the library's bit reader may look one byte past a unit.
constexpr size_t kPadding = 8;
// The slice reader decodes at most this many bytes of a slice.
constexpr uint32_t kSliceHeaderBytes = 256;

// Thrown by the block path at input it leaves to the access-unit path.
struct LeftToUnitReader {};

// Start-code input is read behind this much room, into which it is
// converted from the front: a piece grows by at most its own length (a
// 3-byte code is widened by one byte, and codes are at least 3 bytes apart).
size_t convertedRoom(size_t data) { return data + kPadding; }

bool isPrefixType(int type)
{
    return type == 6 || type == 7 || type == 8 || type == 9 || type == 13 ||
           (type >= 14 && type <= 18);
}

// Checks the units of length-framed spans in file order, as the unit reader
// and the access-unit walk check them, and keeps the slices of the access
// unit still open so that they can be decoded once the file has ended.
class UnitChecks {
  public:
    UnitChecks(ParameterSets &sets, bool trimZeros) : sets_(sets), trimZeros_(trimZeros) {}

    struct Span {
        size_t consumed; // bytes of whole units read
        size_t kept;     // bytes they take once trailing zeros are dropped
    };
    // Walks the whole units at the front of buf[from, from + len). `fileLeft`
    // is how many bytes of the file start at buf[from]. With trimming, zero
    // bytes that end a unit are dropped and the units behind moved up.
    Span walk(uint8_t *buf, size_t from, size_t len, uint64_t fileLeft);
    // Copies the open access unit's slices out of a buffer about to be reused.
    void keepOpenSlices(const uint8_t *buf);
    // Decodes the slices of the last access unit, since a cut file shows there.
    void checkLastSlices();

  private:
    void note(const uint8_t *unit, uint32_t size, size_t at);
    void openAccessUnit();

    struct SliceAt {
        size_t at;
        uint32_t size;
    };
    struct SliceCopy {
        std::vector<uint8_t> bytes;
        uint32_t size;
    };
    ParameterSets &sets_;
    bool trimZeros_;
    bool seenUnit_ = false;
    bool lastWasSlice_ = false; // of the units that open access units, the last was a slice
    std::vector<SliceAt> spanSlices_;
    std::vector<SliceCopy> keptSlices_;
};

UnitChecks::Span UnitChecks::walk(uint8_t *buf, size_t from, size_t len, uint64_t fileLeft)
{
    const size_t end = from + len;
    size_t at = from;
    size_t kept = from;
    while (end - at >= 4) {
        const uint32_t size = bigEndian32(buf + at);
        if (size == 0 || size > fileLeft - (at - from) - 4)
            throw LeftToUnitReader{};
        if (size > end - at - 4)
            break;
        uint8_t *unit = buf + at + 4;
        uint32_t keptSize = size;
        if (trimZeros_)
            while (keptSize > 0 && unit[keptSize - 1] == 0)
                --keptSize;
        if (keptSize == 0)
            throw LeftToUnitReader{};
        if (kept != at || keptSize != size) {
            putBigEndian32(buf + kept, keptSize);
            std::memmove(buf + kept + 4, unit, keptSize);
            unit = buf + kept + 4;
        }
        note(unit, keptSize, kept + 4);
        at += 4 + size;
        kept += 4 + keptSize;
    }
    return {at - from, kept - from};
}

// An access unit opens at the first unit, at a unit that comes before a
// picture's slices when a slice was the last such unit, and at a slice
// starting at macroblock 0 right after another slice.
void UnitChecks::note(const uint8_t *unit, uint32_t size, size_t at)
{
    if (unit[0] & 0x80)
        throw LeftToUnitReader{};
    const int type = unit[0] & 0x1F;
    const bool opens = !seenUnit_;
    seenUnit_ = true;
    if (type >= 1 && type <= 5) {
        if (lastWasSlice_ && size < 2)
            throw LeftToUnitReader{};
        // first_mb_in_slice is 0 when its code is the single bit 1.
        if (opens || (lastWasSlice_ && (unit[1] & 0x80)))
            openAccessUnit();
        spanSlices_.push_back({at, size});
        lastWasSlice_ = true;
        return;
    }
    if (isPrefixType(type)) {
        if (opens || lastWasSlice_)
            openAccessUnit();
        lastWasSlice_ = false;
        NalUnit nal;
        nal.data = unit;
        nal.size = size;
        try {
            if (type == 7)
                sets_.addSps(nal);
            if (type == 8)
                sets_.addPps(nal);
        } catch (const InputError &) {
            throw LeftToUnitReader{};
        }
        return;
    }
    if (opens)
        openAccessUnit();
}

void UnitChecks::openAccessUnit()
{
    spanSlices_.clear();
    keptSlices_.clear();
}

void UnitChecks::keepOpenSlices(const uint8_t *buf)
{
    for (const SliceAt &slice : spanSlices_) {
        const uint32_t copied = std::min(slice.size, kSliceHeaderBytes);
        SliceCopy copy{std::vector<uint8_t>(copied + kPadding, 0), slice.size};
        std::memcpy(copy.bytes.data(), buf + slice.at, copied);
        keptSlices_.push_back(std::move(copy));
    }
    spanSlices_.clear();
}

void UnitChecks::checkLastSlices()
{
    SLICE_HEADER header{};
    for (const SliceCopy &slice : keptSlices_) {
        NalUnit nal;
        nal.data = slice.bytes.data();
        nal.size = slice.size;
        try {
            sets_.readSlice(nal, header);
        } catch (const InputError &) {
            throw LeftToUnitReader{};
        }
    }
}

// Length fields to start codes with one library call. A buffer that begins
// with a field of 1 is taken by the converter as already converted: such
// units read the same either way and are stepped over first.
void lengthsToCodes(uint8_t *buf, size_t len)
{
    size_t at = 0;
    while (len - at >= 5 && bigEndian32(buf + at) == 1)
        at += 5;
    if (len - at > UINT_MAX ||
        qrvUtilh264SizeToMarker(buf + at, static_cast<unsigned>(len - at)) != len - at)
        throw LeftToUnitReader{};
}

// Start of the last start code in buf[from, end) other than one at `from`,
// or `from` when there is none: found from the end.
size_t lastStartCode(const uint8_t *buf, size_t from, size_t end)
{
    size_t below = end;
    while (below > from + 2) {
        const void *found = memrchr(buf + from + 2, 1, below - from - 2);
        if (!found)
            break;
        const size_t one = static_cast<size_t>(static_cast<const uint8_t *>(found) - buf);
        if (buf[one - 1] == 0 && buf[one - 2] == 0) {
            size_t start = one - 2;
            if (start > from && buf[start - 1] == 0)
                --start; // a 4-byte code
            return start;
        }
        below = one;
    }
    return from;
}

// A 00 00 01 that ends a span has no unit after it.
bool endsWithStartCode(const uint8_t *buf, size_t len)
{
    return len >= 3 && buf[len - 3] == 0 && buf[len - 2] == 0 && buf[len - 1] == 1;
}

class BlockConverter {
  public:
    BlockConverter(const std::string &inPath, const std::string &outPath, Target target)
        : in_(inPath), out_(outPath), sets_(in_.name()), target_(target),
          progress_(in_.name(), in_.size())
    {
    }

    void fromLengths();
    void fromStartCodes();
    void commit() { out_.commit(); }

  private:
    // Reads behind the `have` bytes kept at buffer_[at], up to `limit`; false
    // at the end of the file.
    bool fill(size_t at, size_t limit);
    size_t convertPiece(UnitChecks &checks, size_t to, size_t from, size_t length);

    InputFile in_;
    OutputFile out_;
    ParameterSets sets_;
    Target target_;
    Progress progress_;
    std::vector<uint8_t> buffer_;
    size_t have_ = 0;
    uint64_t base_ = 0; // file offset of the first byte kept
};

bool BlockConverter::fill(size_t at, size_t limit)
{
    uint8_t *data = buffer_.data() + at;
    const size_t got = in_.read(data + have_, limit - have_);
    const bool more = have_ + got == limit;
    have_ += got;
    std::memset(data + have_, 0, kPadding);
    progress_.update(base_ + have_);
    return more;
}

void BlockConverter::fromLengths()
{
    UnitChecks checks(sets_, false);
    size_t limit = kBlock;
    buffer_.resize(limit + kPadding);
    for (;;) {
        const bool more = fill(0, limit);
        const uint64_t fileLeft = std::max<uint64_t>(in_.size() - base_, have_);
        const UnitChecks::Span span = checks.walk(buffer_.data(), 0, have_, fileLeft);
        if (!more && span.consumed != have_)
            throw LeftToUnitReader{};
        if (span.consumed == 0 && more) {
            // One unit larger than the block: the buffer grows to hold it.
            limit = std::max(limit, size_t{4} + bigEndian32(buffer_.data()));
            buffer_.resize(limit + kPadding);
            continue;
        }
        checks.keepOpenSlices(buffer_.data());
        if (target_ == Target::kAnnexB)
            lengthsToCodes(buffer_.data(), span.consumed);
        out_.write(buffer_.data(), span.consumed);
        have_ -= span.consumed;
        base_ += span.consumed;
        std::memmove(buffer_.data(), buffer_.data() + span.consumed, have_);
        if (!more)
            break;
    }
    checks.checkLastSlices();
}

// Converts a piece of start-code input at buf[from, from + length) to
// lengths at buf[to, ...), to <= from, checks its units and converts them on
// to start codes when asked; returns the bytes now at `to`.
size_t BlockConverter::convertPiece(UnitChecks &checks, size_t to, size_t from, size_t length)
{
    uint8_t *buf = buffer_.data();
    if (length > INT_MAX / 2 || endsWithStartCode(buf + from, length))
        throw LeftToUnitReader{};
    std::memmove(buf + to, buf + from, length);
    const size_t converted = static_cast<size_t>(
        qrvUtilh264MarkerToSize(buf + to, static_cast<int>(length)));
    const UnitChecks::Span units = checks.walk(buf, to, converted, converted);
    if (target_ == Target::kAnnexB)
        lengthsToCodes(buf + to, units.kept);
    return units.kept;
}

void BlockConverter::fromStartCodes()
{
    UnitChecks checks(sets_, true);
    size_t limit = kBlock;
    size_t room = convertedRoom(limit);
    buffer_.resize(room + limit + kPadding);
    std::vector<uint8_t> rest;
    // Zero bytes ahead of the first 4-byte code belong to no unit.
    size_t from = 0;
    bool first = true;
    for (;;) {
        const bool more = fill(room, limit);
        uint8_t *data = buffer_.data() + room;
        if (first) {
            while (from < have_ && data[from] == 0)
                ++from;
            from = from > 3 ? from - 3 : 0;
            first = false;
        }
        const size_t cut = more ? lastStartCode(data, from, have_) : have_;
        if (cut == from && more) {
            // One unit larger than the block: the buffer grows to hold it.
            rest.assign(data, data + have_);
            limit *= 2;
            room = convertedRoom(limit);
            buffer_.resize(room + limit + kPadding);
            std::copy(rest.begin(), rest.end(), buffer_.begin() + static_cast<ptrdiff_t>(room));
            continue;
        }
        size_t written = 0;
        for (size_t at = from; at < cut;) {
            size_t end = cut;
            for (size_t piece = kPiece; at + piece < cut; piece *= 2) {
                end = lastStartCode(data, at, at + piece);
                if (end > at)
                    break;
                end = cut;
            }
            written += convertPiece(checks, written, room + at, end - at);
            at = end;
        }
        checks.keepOpenSlices(buffer_.data());
        out_.write(buffer_.data(), written);
        have_ -= cut;
        base_ += cut;
        std::memmove(data, data + cut, have_);
        from = 0;
        if (!more)
            break;
    }
    checks.checkLastSlices();
}

void convertInBlocks(const std::string &inPath, const std::string &outPath, Target target)
{
    bool lengthInput = false;
    {
        // Tells the framing apart, and rejects what is no stream at all, as
        // the unit reader does.
        InputFile probe(inPath);
        lengthInput = UnitReader(probe).lengthFramed();
    }
    BlockConverter converter(inPath, outPath, target);
    if (lengthInput)
        converter.fromLengths();
    else
        converter.fromStartCodes();
    converter.commit();
}

bool isRegularFile(const std::string &path)
{
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

void runConvert(const std::string &inPath, const std::string &outPath, Target target)
{
    // Only a regular file can be read a second time, and standard output
    // cannot be taken back.
    if (inPath != "-" && outPath != "-" && isRegularFile(inPath)) {
        try {
            convertInBlocks(inPath, outPath, target);
            return;
        } catch (const LeftToUnitReader &) {
        }
    }
    convertByAccessUnit(inPath, outPath, target);
}

} // namespace

void addH264FramingCommands(CLI::App &h264, Output &)
{
    static std::string lengthIn, lengthOut, annexbIn, annexbOut;
    CLI::App *toLength = h264.add_subcommand("tolength",
                                             "rewrite start codes as 4-byte unit lengths");
    toLength->add_option("IN", lengthIn, "H.264 stream, - for standard input")->required();
    toLength->add_option("OUT", lengthOut, "output file, - for standard output")->required();
    toLength->callback([] { runConvert(lengthIn, lengthOut, Target::kLength); });

    CLI::App *toAnnexB = h264.add_subcommand("toannexb",
                                             "rewrite 4-byte unit lengths as start codes");
    toAnnexB->add_option("IN", annexbIn, "H.264 stream, - for standard input")->required();
    toAnnexB->add_option("OUT", annexbOut, "output file, - for standard output")->required();
    toAnnexB->callback([] { runConvert(annexbIn, annexbOut, Target::kAnnexB); });
}

} // namespace qrvtool
