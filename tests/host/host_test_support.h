/* Shared by the host-service tests: a log sink that keeps every line, and a
 * fresh per-user directory for each test. */
#ifndef QRVUTIL_TESTS_HOST_SUPPORT_H
#define QRVUTIL_TESTS_HOST_SUPPORT_H

#include <qrvutil/host.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace qrvtest {

inline std::vector<std::pair<int, std::string>> capturedLines;

class HostTest : public ::testing::Test {
  protected:
    void SetUp() override
    {
        const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir_ = std::filesystem::path(QRV_TEST_TMP_DIR) / "host" / info->test_suite_name() /
               info->name();
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directories(dir_);
        useDirectory(dir_);
        capturedLines.clear();
        qrvHostServices services{};
        services.size = sizeof services;
        services.logLine = keepLine;
        qrvSetHostServices(&services);
    }
    void TearDown() override { qrvResetHostServices(); }
    static void keepLine(int level, const char *line) { capturedLines.emplace_back(level, line); }

    static void useDirectory(const std::filesystem::path &dir)
    {
        setenv("QRVUTIL_CONFIG_DIR", dir.c_str(), 1);
    }

    std::filesystem::path dir_;
};

} // namespace qrvtest

#endif
