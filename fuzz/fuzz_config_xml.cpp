// An XML file opened as a configuration store: outside bytes as the file.
#include <qrvutil/host.h>

#include "fuzz_util.h"

namespace {

const char kKey[] = "Fuzz\\Probe";

fuzz::Scratch &scratch()
{
    static fuzz::Scratch dir;
    return dir;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::silenceLibraryLog();
    scratch();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string file = scratch().path("store.xml");
    const std::string original(reinterpret_cast<const char *>(data), size);
    fuzz::writeFile(file, data, size);

    cfgHandle store = cfgOpen(file.c_str(), 0);
    if (store == nullptr) {
        // A file the store cannot read is never written.
        FUZZ_CHECK(fuzz::readFile(file) == original);
        scratch().clear();
        return 0;
    }
    // Closing with nothing changed writes nothing.
    FUZZ_CHECK(cfgClose(store, 1) == 0);
    FUZZ_CHECK(fuzz::readFile(file) == original);

    // What the store writes it reads back: a number and a text taken from
    // the input (every byte but the terminator), beside whatever the file
    // held, and the save leaves no temporary behind.
    std::string text;
    for (size_t i = size > 64 ? size - 64 : 0; i < size; ++i)
        if (data[i] != 0)
            text += static_cast<char>(data[i]);
    unsigned number = static_cast<unsigned>(size * 2654435761u);
    store = cfgOpen(file.c_str(), 0);
    FUZZ_CHECK(store != nullptr);
    FUZZ_CHECK(cfgValueDword(store, kKey, "Number", &number, QRV_CFG_WRITE) == 0);
    FUZZ_CHECK(cfgValueString(store, kKey, "Text", &text[0], nullptr, QRV_CFG_WRITE) == 0);
    FUZZ_CHECK(cfgClose(store, 1) == 0);
    FUZZ_CHECK(scratch().names() == std::vector<std::string>{"store.xml"});

    store = cfgOpen(file.c_str(), 0);
    FUZZ_CHECK(store != nullptr);
    unsigned numberBack = ~number;
    FUZZ_CHECK(cfgValueDword(store, kKey, "Number", &numberBack, QRV_CFG_READ) == 0);
    FUZZ_CHECK(numberBack == number);
    std::vector<char> textBack(text.size() + 1, 'x');
    unsigned room = static_cast<unsigned>(textBack.size());
    FUZZ_CHECK(cfgValueString(store, kKey, "Text", textBack.data(), &room, QRV_CFG_READ) == 0);
    FUZZ_CHECK(text == textBack.data());
    FUZZ_CHECK(cfgClose(store, 0) == 0);
    scratch().clear();
    return 0;
}
