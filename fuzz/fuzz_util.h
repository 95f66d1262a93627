// Shared by the fuzz targets: a check that stops the run with a message, and
// a reader over a private copy of the input sized so that the sanitizer
// traps every access outside it.
#pragma once

#include <qrvutil/bitstream.h>
#include <qrvutil/host.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <vector>

#include <dirent.h>
#include <sys/mman.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

// A property that must hold for every input; a failure is a finding.
#define FUZZ_CHECK(cond)                                                                     \
    do {                                                                                     \
        if (!(cond)) {                                                                       \
            std::fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #cond); \
            std::abort();                                                                    \
        }                                                                                    \
    } while (0)

namespace fuzz {

using Bytes = std::vector<uint8_t>;

// memcmp and memcpy that accept the null pointer of an empty input.
inline bool same(const void *a, const void *b, size_t n)
{
    return n == 0 || std::memcmp(a, b, n) == 0;
}
inline void copy(void *to, const void *from, size_t n)
{
    if (n != 0)
        std::memcpy(to, from, n);
}

// The bytes of a unit followed by the one readable byte that the bit
// readers may touch at bit_end; the vector is sized exactly, so anything
// further out is an overflow.
struct Unit {
    Unit(const uint8_t *data, size_t size) : size(size), storage(size + 1, 0)
    {
        copy(storage.data(), data, size);
    }
    kx_bitstream reader()
    {
        return kx_bitstream{reinterpret_cast<uintptr_t>(storage.data()), size, size * 8, 0};
    }
    size_t size;
    Bytes storage;
};

// Takes length-prefixed pieces off the front of the input: one length byte,
// then that many bytes (fewer when the input runs out).
class Pieces {
  public:
    Pieces(const uint8_t *data, size_t size) : at_(data), left_(size) {}
    Bytes next()
    {
        if (left_ == 0)
            return {};
        size_t n = std::min<size_t>(*at_, left_ - 1);
        Bytes piece(at_ + 1, at_ + 1 + n);
        at_ += 1 + n;
        left_ -= 1 + n;
        return piece;
    }
    uint8_t byte()
    {
        if (left_ == 0)
            return 0;
        --left_;
        return *at_++;
    }
    Bytes rest()
    {
        Bytes r(at_, at_ + left_);
        at_ += left_;
        left_ = 0;
        return r;
    }

  private:
    const uint8_t *at_;
    size_t left_;
};

// Outside bytes as a zero-terminated text whose terminator is the last byte
// before an inaccessible page: a parser that reads past the end faults even
// where it is not instrumented (the XML parser is a system library). Bytes
// after an embedded zero are simply not part of the text.
class GuardedText {
  public:
    GuardedText(const uint8_t *data, size_t size)
    {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t room = (size + 1 + page - 1) / page * page;
        length_ = room + page;
        void *map = mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1,
                         0);
        FUZZ_CHECK(map != MAP_FAILED);
        base_ = static_cast<char *>(map);
        FUZZ_CHECK(mprotect(base_ + room, page, PROT_NONE) == 0);
        text_ = base_ + room - size - 1;
        copy(text_, data, size);
        text_[size] = '\0';
    }
    ~GuardedText() { munmap(base_, length_); }
    GuardedText(const GuardedText &) = delete;
    GuardedText &operator=(const GuardedText &) = delete;
    const char *c_str() const { return text_; }

  private:
    char *base_;
    char *text_;
    size_t length_;
};

// Targets that open malformed files make the library log a line per input;
// those lines are expected and would drown the fuzzer's own output.
template <typename T, typename = void>
struct HasSizeField : std::false_type {
};
template <typename T>
struct HasSizeField<T, std::void_t<decltype(T::size)>> : std::true_type {
};

template <typename Table>
void setTableSize(Table &table)
{
    if constexpr (HasSizeField<Table>::value)
        table.size = sizeof table;
}

inline void silenceLibraryLog()
{
    qrvHostServices services{};
    setTableSize(services);
    services.logLine = [](int, const char *) {};
    qrvSetHostServices(&services);
}

// A private directory for targets that work on files, emptied after each
// input so that files a load creates never pile up.
class Scratch {
  public:
    Scratch()
    {
        const char *tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/qrvfuzz.XXXXXX";
        FUZZ_CHECK(mkdtemp(&pattern[0]) != nullptr);
        dir_ = pattern;
        // Bare names would resolve in the per-user directory: keep it here.
        setenv("QRVUTIL_CONFIG_DIR", dir_.c_str(), 1);
    }
    ~Scratch()
    {
        clear();
        rmdir(dir_.c_str());
    }
    std::string path(const char *name) const { return dir_ + "/" + name; }
    std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        if (DIR *d = opendir(dir_.c_str())) {
            while (const dirent *e = readdir(d))
                if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
                    found.emplace_back(e->d_name);
            closedir(d);
        }
        return found;
    }
    void clear() const
    {
        for (const std::string &name : names())
            unlink(path(name.c_str()).c_str());
    }

  private:
    std::string dir_;
};

inline void writeFile(const std::string &path, const void *data, size_t size)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char *>(data), static_cast<std::streamsize>(size));
    FUZZ_CHECK(out.good());
}

inline std::string readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace fuzz
