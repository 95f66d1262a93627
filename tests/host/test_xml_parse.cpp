// XML parsed with zero bytes after the text: nothing past a caller's text or
// a file's bytes is read, and the results are TinyXML's own.
#include <qrvutil/host.h>
#include <qrvutil/mediacmd_xml.h>
#include <qrvutil/project.h>

#include "host/xml_parse.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <new>
#include <string>

namespace fs = std::filesystem;

namespace {

const size_t kPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));

/* `size` bytes whose last byte lies right before an inaccessible page, so
 * that reading one byte further faults. */
class Guarded {
  public:
    explicit Guarded(size_t size)
    {
        const size_t pages = (size + kPage - 1) / kPage + 1;
        length_ = pages * kPage;
        base_ = static_cast<char *>(
            mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (base_ == MAP_FAILED)
            std::abort();
        mprotect(base_ + length_ - kPage, kPage, PROT_NONE);
        data_ = base_ + length_ - kPage - size;
    }
    ~Guarded() { munmap(base_, length_); }
    char *data() { return data_; }

  private:
    char *base_;
    size_t length_;
    char *data_;
};

/* Every host block ends right before an inaccessible page. */
std::map<void *, Guarded *> g_blocks;
void *guardedAlloc(size_t size)
{
    auto *block = new Guarded(size);
    g_blocks[block->data()] = block;
    return block->data();
}
void guardedFree(void *p)
{
    auto it = g_blocks.find(p);
    if (it == g_blocks.end())
        return;
    delete it->second;
    g_blocks.erase(it);
}

bool g_guardArrays = false;

} // namespace

/* Arrays too (TinyXML reads a file into one), while a GuardedHost test runs.
 * GCC pairs the replaced operators with the free() inside them and warns
 * about a mismatch that is not one. */
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void *operator new[](size_t size)
{
    if (g_guardArrays)
        return guardedAlloc(size);
    if (void *p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void operator delete[](void *p) noexcept
{
    if (g_blocks.count(p))
        guardedFree(p);
    else
        std::free(p);
}
void operator delete[](void *p, size_t) noexcept { operator delete[](p); }

namespace {

class GuardedHost : public ::testing::Test {
  protected:
    void SetUp() override
    {
        qrvHostServices services = {};
        services.size = sizeof services;
        services.alloc = guardedAlloc;
        services.free = guardedFree;
        qrvSetHostServices(&services);
        g_guardArrays = true;
    }
    void TearDown() override
    {
        g_guardArrays = false;
        qrvResetHostServices();
        EXPECT_TRUE(g_blocks.empty());
    }
};

/* Reads a C string whose terminator is the last readable byte; the record
 * must be what the text gives when zeros follow it. */
void readGuarded(const std::string &text)
{
    Guarded copy(text.size() + 1);
    std::memcpy(copy.data(), text.c_str(), text.size() + 1);
    MEDIACMD got, expected;
    const int status = MediaCmdFromXMLString(&got, nullptr, copy.data());
    const std::string padded = text + std::string(8, '\0');
    EXPECT_EQ(MediaCmdFromXMLString(&expected, nullptr, padded.c_str()), status) << text;
    EXPECT_EQ(0, std::memcmp(&expected, &got, sizeof got)) << text;
}

// UTF-8 mode (a byte-order mark, or a declaration with an empty or UTF-8
// encoding) and a text that ends inside a character of 2, 3 or 4 bytes.
TEST_F(GuardedHost, CommandTextEndingInsideACharacterIsNotReadPast)
{
    readGuarded("\xEF\xBB\xBF<a>\xD7");
    readGuarded("<?xml version=\"1.0\" encoding=\"UTF-8\"?><MediaCmd><Cmd>\xF0");
    readGuarded("<?xml version=\"1.0\"?><MediaCmd><Channel Value=\"4\"/><Cmd>Play\xE2\x82");
    readGuarded("\xEF\xBB\xBF<MediaCmd>" + std::string(5000, 'x') + "\xF4");
    readGuarded("\xEF\xBB\xBF<MediaCmd><Channel Value=\"4\"/></MediaCmd>\xE2");
}

TEST_F(GuardedHost, ProjectFileEndingInsideACharacterIsNotReadPast)
{
    const fs::path dir = fs::path(QRV_TEST_TMP_DIR) / "xml_parse";
    fs::create_directories(dir);
    const std::string path = (dir / "tail.xml").string();
    std::ofstream(path, std::ios::binary)
        << "<?xml version=\"1.0\" ?><ClipList FileName=\"\" Data=\"ab\xE2\x82";
    CKXProjectToXML project;
    EXPECT_EQ(0, project.LoadXMLFile(const_cast<char *>(path.c_str())));
}

struct Loaded {
    bool ok;
    int error;
    std::string printed;
    std::string value;
};

Loaded describe(const TiXmlDocument &doc, bool ok)
{
    std::string printed;
    printed << doc;
    return {ok, doc.ErrorId(), printed, doc.Value()};
}

// The loader gives what TinyXML's own file loader gives: line ends, a zero
// byte inside the file, an empty file, a missing file (the document kept).
TEST(XmlFile, LoadsAsTinyXmlLoadsFiles)
{
    const fs::path dir = fs::path(QRV_TEST_TMP_DIR) / "xml_parse_files";
    fs::remove_all(dir);
    fs::create_directories(dir);
    const std::string texts[] = {
        "<a x=\"1\r\n2\">t\ru\r\n\r\nv\n</a>\r",
        std::string("<a>b</a>\0<c>d</c>", 17),
        std::string("<a>\r\0\r\n</a>", 11),
        "",
        "\xEF\xBB\xBF<?xml version=\"1.0\"?>\r\n<ClipList Data=\"x\r\ny\"/><EdlList/>",
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a>\xC3\xA9\xE2\x82\xAC</a>",
        "<a><b></a>",
    };
    int n = 0;
    for (const std::string &text : texts) {
        const std::string path = (dir / ("f" + std::to_string(n++) + ".xml")).string();
        std::ofstream(path, std::ios::binary) << text;
        TiXmlDocument theirs, ours;
        const Loaded expected = describe(theirs,
                                         theirs.LoadFile(path.c_str(), TIXML_DEFAULT_ENCODING));
        const Loaded got = describe(
            ours, qrv::host::loadXmlFile(&ours, path.c_str(), TIXML_DEFAULT_ENCODING));
        EXPECT_EQ(expected.ok, got.ok) << n;
        EXPECT_EQ(expected.error, got.error) << n;
        EXPECT_EQ(expected.printed, got.printed) << n;
        EXPECT_EQ(expected.value, got.value) << n;
    }
    for (const fs::path &path : {dir / "missing.xml"}) {
        TiXmlDocument theirs, ours;
        theirs.Parse("<kept/>");
        ours.Parse("<kept/>");
        const Loaded expected = describe(theirs,
                                         theirs.LoadFile(path.c_str(), TIXML_DEFAULT_ENCODING));
        const Loaded got = describe(
            ours, qrv::host::loadXmlFile(&ours, path.c_str(), TIXML_DEFAULT_ENCODING));
        EXPECT_EQ(expected.ok, got.ok) << path;
        EXPECT_EQ(expected.printed, got.printed) << path;
    }
}

// A bare name is a file in the working directory, as SaveFile writes it.
TEST(XmlFile, BareNameIsInTheWorkingDirectory)
{
    const fs::path dir = fs::path(QRV_TEST_TMP_DIR) / "xml_parse_bare";
    fs::create_directories(dir);
    const fs::path before = fs::current_path();
    fs::current_path(dir);
    std::ofstream("bare.xml") << "<a/>";
    TiXmlDocument doc;
    EXPECT_TRUE(qrv::host::loadXmlFile(&doc, "bare.xml", TIXML_DEFAULT_ENCODING));
    fs::current_path(before);
}

} // namespace
