#include "host_test_support.h"

#include <cerrno>
#include <string>

namespace {

using LogTest = qrvtest::HostTest;

TEST_F(LogTest, HostSinkReceivesFinishedLinesWithTheirLevelCutToTheLineMaximum)
{
    const std::string longText(3 * QRV_LOG_LINE_MAX, 'q');
    logError("read %llu bytes at %d: %08X", 12ull, -3, 0xBEEFu);
    logErrorFormat(0x80000000u, 0, 0, "%s\n\r", "caught");
    EXPECT_EQ(logDebug("debug line"), 0);
    logError("<%s>", longText.c_str());
    logDebug(longText.c_str());
    const std::vector<std::pair<int, std::string>> expected = {
        {QRV_LOG_ERROR, "read 12 bytes at -3: 0000BEEF"},
        {QRV_LOG_ERROR, "caught\n\r"},
        {QRV_LOG_DEBUG, "debug line"},
        {QRV_LOG_ERROR, "<" + longText.substr(0, QRV_LOG_LINE_MAX - 2)},
        {QRV_LOG_DEBUG, longText.substr(0, QRV_LOG_LINE_MAX - 1)}};
    EXPECT_EQ(qrvtest::capturedLines, expected);
}

TEST_F(LogTest, BuiltinSinkWritesErrorsAndSwitchedDebugLinesToStandardError)
{
    qrvResetHostServices();
    unsetenv("QRVUTIL_DEBUG");
    testing::internal::CaptureStderr();
    logError("error %d", 1);
    EXPECT_EQ(logDebug("hidden"), 1);
    setenv("QRVUTIL_DEBUG", "0", 1);
    EXPECT_EQ(logDebug("hidden"), 1);
    setenv("QRVUTIL_DEBUG", "1", 1);
    EXPECT_EQ(logDebug("shown\n\r"), 0);
    unsetenv("QRVUTIL_DEBUG");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "error 1\nshown\n\r");
}

int g_allocations = 0;

TEST_F(LogTest, ReplacedServicesApplyUntilReset)
{
    qrvHostServices services{};
    services.size = sizeof services;
    services.alloc = [](size_t size) {
        ++g_allocations;
        return malloc(size);
    };
    services.osReadFile = [](osHandle, void *, unsigned, unsigned *, void *) { return 0; };
    services.osGetLastError = [] { return unsigned(EIO); };
    services.osGetFileSizeEx = [](osHandle, unsigned long long *size) {
        *size = 0x123456789ull;
        return 1;
    };
    qrvSetHostServices(&services);
    unsetenv("QRVUTIL_DEBUG");
    hostFree(hostAlloc(16));
    EXPECT_EQ(g_allocations, 1);
    EXPECT_EQ(osReadFile(0, nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(osGetLastError(), unsigned(EIO));
    unsigned high = 0;
    EXPECT_EQ(osGetFileSize(7, &high), 0x23456789u);
    EXPECT_EQ(high, 1u);
    // Entries left null kept the built-in: the log sink is the default again.
    EXPECT_EQ(logDebug("off"), 1);

    qrvResetHostServices();
    hostFree(hostAlloc(0));
    EXPECT_EQ(g_allocations, 1);
    EXPECT_EQ(osGetFileSize(QRV_INVALID_FILE, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(osGetLastError(), unsigned(EBADF));
}

} // namespace
