// Files of the tool: "-" is standard input or output; an output file is
// written under a temporary name and renamed into place only when the
// command succeeds, so bad input never leaves a partial file behind.
#ifndef QRVTOOL_FILES_H
#define QRVTOOL_FILES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qrvtool {

// A byte source read front to back.
class InputFile {
  public:
    explicit InputFile(const std::string &path);
    ~InputFile();
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;

    const std::string &name() const { return name_; }
    // Size in bytes, or 0 when it cannot be known in advance (a pipe).
    uint64_t size() const { return size_; }
    // Reads up to `room` bytes; returns the count, 0 at the end.
    size_t read(uint8_t *buffer, size_t room);

  private:
    std::string name_;
    int fd_ = -1;
    uint64_t size_ = 0;
};

// The whole content of a small file (XML documents, avcC boxes, ADTS streams).
std::vector<uint8_t> readWholeFile(const std::string &path);
std::string readWholeText(const std::string &path);

class OutputFile {
  public:
    explicit OutputFile(const std::string &path);
    // Removes the temporary file unless commit() was reached.
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void write(const uint8_t *data, size_t size);
    void write(const std::string &text)
    {
        write(reinterpret_cast<const uint8_t *>(text.data()), text.size());
    }
    // Flushes and renames the temporary file to the final name.
    void commit();

  private:
    std::string path_;
    std::string temp_;
    int fd_ = -1;
    std::vector<uint8_t> pending_;
    void flush();
    void writeAll(const uint8_t *data, size_t size);
};

// Progress on standard error for large files, only when it is a terminal.
class Progress {
  public:
    Progress(const std::string &name, uint64_t total);
    ~Progress();
    void update(uint64_t done);

  private:
    std::string name_;
    uint64_t total_;
    bool shown_ = false;
    int lastPercent_ = -1;
};

} // namespace qrvtool

#endif
