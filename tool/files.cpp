#include "files.h"

#include "failure.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qrvtool {

namespace {

constexpr uint64_t kProgressThreshold = 64ull << 20;
constexpr size_t kWriteBlock = 1u << 20;

std::string systemReason() { return std::strerror(errno); }

bool isStdio(const std::string &path) { return path == "-"; }

// mkstemp() makes the file private; the finished file gets the mode that
// any newly created file would get.
mode_t newFileMode()
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

} // namespace

InputFile::InputFile(const std::string &path) : name_(isStdio(path) ? "<stdin>" : path)
{
    fd_ = isStdio(path) ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0)
        throw InputError(name_, "", "cannot open: " + systemReason());
    struct stat st {};
    if (::fstat(fd_, &st) == 0 && S_ISDIR(st.st_mode)) {
        if (fd_ != STDIN_FILENO)
            ::close(fd_);
        fd_ = -1;
        throw InputError(name_, "", "is a directory");
    }
    if (S_ISREG(st.st_mode))
        size_ = static_cast<uint64_t>(st.st_size);
#ifdef POSIX_FADV_SEQUENTIAL
    if (S_ISREG(st.st_mode))
        ::posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
}

InputFile::~InputFile()
{
    if (fd_ > STDIN_FILENO)
        ::close(fd_);
}

size_t InputFile::read(uint8_t *buffer, size_t room)
{
    size_t done = 0;
    while (done < room) {
        const ssize_t got = ::read(fd_, buffer + done, room - done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw InputError(name_, "", "read failed: " + systemReason());
        if (got == 0)
            break;
        done += static_cast<size_t>(got);
    }
    return done;
}

std::vector<uint8_t> readWholeFile(const std::string &path)
{
    InputFile in(path);
    std::vector<uint8_t> bytes;
    size_t used = 0;
    for (;;) {
        bytes.resize(used + (1u << 16));
        const size_t got = in.read(bytes.data() + used, bytes.size() - used);
        used += got;
        if (got == 0)
            break;
    }
    bytes.resize(used);
    return bytes;
}

std::string readWholeText(const std::string &path)
{
    const std::vector<uint8_t> bytes = readWholeFile(path);
    return std::string(bytes.begin(), bytes.end());
}

OutputFile::OutputFile(const std::string &path) : path_(path)
{
    if (isStdio(path)) {
        fd_ = STDOUT_FILENO;
        return;
    }
    temp_ = path + ".XXXXXX";
    fd_ = ::mkstemp(&temp_[0]);
    if (fd_ < 0)
        throw InputError(path, "", "cannot create: " + systemReason());
    ::fchmod(fd_, newFileMode());
    pending_.reserve(kWriteBlock);
}

OutputFile::~OutputFile()
{
    if (fd_ > STDOUT_FILENO) {
        ::close(fd_);
        ::unlink(temp_.c_str());
    }
}

void OutputFile::writeAll(const uint8_t *data, size_t size)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t put = ::write(fd_, data + done, size - done);
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            throw InputError(path_, "", "write failed: " + systemReason());
        done += static_cast<size_t>(put);
    }
}

void OutputFile::flush()
{
    writeAll(pending_.data(), pending_.size());
    pending_.clear();
}

void OutputFile::write(const uint8_t *data, size_t size)
{
    if (pending_.size() + size > kWriteBlock)
        flush();
    if (size >= kWriteBlock) {
        writeAll(data, size); // large blocks go out without a copy
        return;
    }
    pending_.insert(pending_.end(), data, data + size);
}

void OutputFile::commit()
{
    flush();
    if (fd_ == STDOUT_FILENO)
        return;
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0 || ::rename(temp_.c_str(), path_.c_str()) != 0) {
        const std::string reason = systemReason();
        ::unlink(temp_.c_str());
        throw InputError(path_, "", "cannot write: " + reason);
    }
}

Progress::Progress(const std::string &name, uint64_t total)
    : name_(name), total_(total >= kProgressThreshold && ::isatty(STDERR_FILENO) ? total : 0)
{
}

Progress::~Progress()
{
    if (shown_)
        std::fputs("\n", stderr);
}

void Progress::update(uint64_t done)
{
    if (total_ == 0)
        return;
    const int percent = static_cast<int>(done * 100 / total_);
    if (percent == lastPercent_)
        return;
    lastPercent_ = percent;
    shown_ = true;
    std::fprintf(stderr, "\r%s: %d%%", name_.c_str(), percent);
    std::fflush(stderr);
}

} // namespace qrvtool
