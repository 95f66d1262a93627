// The MEDIACMD XML round trip (write a command as text, read it back, free
// the text) against two baselines run in the same process on the same
// 397-byte document: TinyXML's own parse plus print of that text, and the
// same round trip built by hand on TinyXML (tree, print, parse, look-ups).
// Each benchmark runs 7 times; the ratios compare the best CPU time of the 7
// (baseline time over round-trip time: above 1 the round trip is faster).
// CPU time, because on a shared machine the wall clock also counts the time
// other processes hold the cores.
// The allocations of one round trip are counted through operator new and
// the host allocator.

#include <qrvutil/host.h>
#include <qrvutil/mediacmd_xml.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <string>

namespace {

unsigned long g_allocations = 0;

void *countedHostAlloc(size_t size)
{
    ++g_allocations;
    return std::malloc(size);
}

} // namespace

/* Counting replacements of the global allocation functions. GCC pairs a
 * replaced operator new with the free() inside the replaced delete and
 * warns about a mismatch that is not one. */
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void *operator new(size_t size)
{
    ++g_allocations;
    if (void *p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void operator delete(void *p) noexcept { std::free(p); }
void operator delete(void *p, size_t) noexcept { std::free(p); }

namespace {

constexpr char kComment[] = " Korvane MEDIACMD xml structure version 1,0 ";
constexpr unsigned kDropFrame = 4;

/* A play command for a clip: the document is 397 bytes. */
MEDIACMD playCommand()
{
    MEDIACMD cmd;
    initMediaCmd(&cmd, ctPlay);
    cmd.cmdFlags = cfUseSpeed | cfUseClipID | cfUsePosition;
    cmd.Speed = MEDIACMD_SPEED_NORMAL;
    cmd.Position = 107892;
    cmd.Channel = 1;
    std::strcpy(cmd.ClipID, "CLIP0001");
    std::strcpy(cmd.FileName, "/media/clips/studio.mov");
    return cmd;
}

std::string documentText()
{
    MEDIACMD cmd = playCommand();
    char *text = nullptr;
    MediaCmdToXMLString(&text, &cmd, kDropFrame);
    std::string s = text;
    MediaCmdFreeXMLString(&text);
    if (s.size() != 397)
        std::abort();
    return s;
}

void roundTrip(MEDIACMD *cmd, MEDIACMD *back)
{
    char *text = nullptr;
    MediaCmdToXMLString(&text, cmd, kDropFrame);
    MediaCmdFromXMLString(back, nullptr, text);
    MediaCmdFreeXMLString(&text);
}

void parsePrint(const std::string &text, std::string *printed)
{
    TiXmlDocument doc;
    doc.Parse(text.c_str());
    printed->clear();
    *printed << doc;
}

TiXmlElement *add(TiXmlElement *root, const char *name, int value, const char *text = nullptr)
{
    auto *element = new TiXmlElement(name);
    root->LinkEndChild(element);
    if (value != 0x7FFFFFFF)
        element->SetAttribute("Value", value);
    if (text)
        element->LinkEndChild(new TiXmlText(text));
    return element;
}

/* The same document written and read by hand with TinyXML. */
void handBuiltRoundTrip(const MEDIACMD &cmd, MEDIACMD *back)
{
    TiXmlDocument doc;
    doc.LinkEndChild(new TiXmlDeclaration("1.0", "iso-8859-1", ""));
    auto *root = new TiXmlElement("MediaCmd");
    doc.LinkEndChild(root);
    root->LinkEndChild(new TiXmlComment(kComment));
    add(root, "CmdID", static_cast<int>(cmd.CmdID));
    add(root, "StructSize", static_cast<int>(cmd.StructSize));
    add(root, "Channel", cmd.Channel);
    add(root, "Cmd", static_cast<int>(cmd.Cmd), "Play")->SetAttribute("UseClipID", 1);
    char speed[40];
    add(root, "Speed", cmd.Speed, intToString(cmd.Speed * 100 / MEDIACMD_SPEED_NORMAL, speed, 25));
    char timecode[32];
    tcToString(static_cast<unsigned>(cmd.Position), 0x32100 | kDropFrame, timecode);
    add(root, "Position", cmd.Position, timecode)->SetAttribute("TcType", "drop-frame");
    add(root, "ClipID", 0x7FFFFFFF, cmd.ClipID);
    add(root, "FileName", 0x7FFFFFFF, cmd.FileName);
    std::string text;
    text << doc;

    TiXmlDocument parsed;
    parsed.Parse(text.c_str());
    initMediaCmd(back, ctStop);
    const TiXmlElement *r = parsed.FirstChildElement("MediaCmd");
    int value = 0;
    const struct {
        const char *name;
        int32_t *field;
    } values[] = {{"CmdID", reinterpret_cast<int32_t *>(&back->CmdID)},
                  {"StructSize", reinterpret_cast<int32_t *>(&back->StructSize)},
                  {"Channel", &back->Channel},
                  {"Cmd", reinterpret_cast<int32_t *>(&back->Cmd)},
                  {"Speed", &back->Speed},
                  {"Position", &back->Position}};
    for (const auto &v : values)
        if (const TiXmlElement *e = r->FirstChildElement(v.name))
            if (e->QueryIntAttribute("Value", &value) == TIXML_SUCCESS)
                *v.field = value;
    int flag = 0;
    if (r->FirstChildElement("Cmd")->QueryIntAttribute("UseClipID", &flag) == TIXML_SUCCESS && flag)
        back->cmdFlags |= cfUseClipID;
    std::strcpy(back->ClipID, r->FirstChildElement("ClipID")->GetText());
    std::strcpy(back->FileName, r->FirstChildElement("FileName")->GetText());
}

template <typename Run>
unsigned long allocationsOf(Run run)
{
    qrvHostServices services = {};
    services.size = sizeof services;
    services.alloc = countedHostAlloc;
    services.free = std::free;
    qrvSetHostServices(&services);
    g_allocations = 0;
    run();
    const unsigned long counted = g_allocations;
    qrvResetHostServices();
    return counted;
}

void BM_TinyXmlParsePrint(benchmark::State &state)
{
    const std::string text = documentText();
    std::string printed;
    for (auto _ : state) {
        parsePrint(text, &printed);
        benchmark::DoNotOptimize(printed.data());
    }
    state.counters["allocations"] = static_cast<double>(
        allocationsOf([&] { parsePrint(text, &printed); }));
}

void BM_HandBuiltTinyXmlRoundTrip(benchmark::State &state)
{
    const MEDIACMD cmd = playCommand();
    MEDIACMD back;
    for (auto _ : state) {
        handBuiltRoundTrip(cmd, &back);
        benchmark::DoNotOptimize(&back);
    }
    state.counters["allocations"] = static_cast<double>(
        allocationsOf([&] { handBuiltRoundTrip(cmd, &back); }));
}

void BM_MediaCmdRoundTrip(benchmark::State &state)
{
    MEDIACMD cmd = playCommand();
    MEDIACMD back;
    for (auto _ : state) {
        roundTrip(&cmd, &back);
        benchmark::DoNotOptimize(&back);
    }
    state.counters["allocations"] = static_cast<double>(
        allocationsOf([&] { roundTrip(&cmd, &back); }));
}

BENCHMARK(BM_TinyXmlParsePrint)->Repetitions(7);
BENCHMARK(BM_HandBuiltTinyXmlRoundTrip)->Repetitions(7);
BENCHMARK(BM_MediaCmdRoundTrip)->Repetitions(7);

/* Keeps the best time of each benchmark's repetitions. */
class BestOf : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.run_type != Run::RT_Iteration)
                continue;
            const double t = run.GetAdjustedCPUTime();
            auto it = best.find(run.run_name.function_name);
            if (it == best.end() || t < it->second)
                best[run.run_name.function_name] = t;
            allocations[run.run_name.function_name] = run.counters.at("allocations");
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> best;
    std::map<std::string, double> allocations;
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    BestOf reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double ours = reporter.best["BM_MediaCmdRoundTrip"];
    if (ours <= 0)
        return 0;
    std::printf("\nround trip, best of 7: %.0f ns CPU, %.0f allocations (goal <= 35)\n", ours,
                reporter.allocations["BM_MediaCmdRoundTrip"]);
    std::printf("ratio to TinyXML parse+print (%.0f ns, %.0f allocations): %.2f (goal >= 0.85)\n",
                reporter.best["BM_TinyXmlParsePrint"], reporter.allocations["BM_TinyXmlParsePrint"],
                reporter.best["BM_TinyXmlParsePrint"] / ours);
    std::printf(
        "ratio to hand-built TinyXML round trip (%.0f ns, %.0f allocations): %.2f (goal >= 1.2)\n",
        reporter.best["BM_HandBuiltTinyXmlRoundTrip"],
        reporter.allocations["BM_HandBuiltTinyXmlRoundTrip"],
        reporter.best["BM_HandBuiltTinyXmlRoundTrip"] / ours);
    return 0;
}
