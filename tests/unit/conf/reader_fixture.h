// A configuration file, what its reader made of it, and how it refused a line.
#ifndef LANYARD_TESTS_UNIT_CONF_READER_FIXTURE_H
#define LANYARD_TESTS_UNIT_CONF_READER_FIXTURE_H

#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <string>

#include <lanyard/radius/conf.h>

#include "tests/support/log_recorder.h"
#include "tests/support/temporary_root.h"
#include "tests/unit/conf/conf_fixture.h"

namespace lanyard::test {

class ConfigurationFile : public ConfTest {
  protected:
    static constexpr const char *kPath = "/var/radius.conf";
    static constexpr const char *kTag = "radConfigure";

    void SetUp() override {
        ConfTest::SetUp();
        root_.write("/var/a.dict", "ATTRIBUTE Foo 300 string\n");
        root_.write("/var/b.dict", "ATTRIBUTE Bar 301 string\n");
        openFilesBefore_ = openFiles();
    }

    void TearDown() override {
        EXPECT_EQ(openFilesBefore_, openFiles()) << "a file was left open";
        ConfTest::TearDown();
    }

    int configure(const std::string &text) {
        root_.write(kPath, text);
        log.clear();
        return radConfigure(kPath);
    }

    void expectAccepted(const std::string &text) {
        EXPECT_EQ(0, configure(text));
        EXPECT_PROBLEMS(log);
        EXPECT_EQ("RADIUS Configured\n", log.texts().back());
    }

    // The message follows the place: "/var/radius.conf: line 1: ...".
    void expectRefused(const std::string &text, const std::string &message) {
        SCOPED_TRACE(testing::PrintToString(text));
        EXPECT_EQ(-1, configure(text));
        EXPECT_ONLY_PROBLEM(log, 8, kTag, "radConfigure: /var/radius.conf: " + message);
        EXPECT_THAT(log.texts(), testing::Not(testing::Contains("RADIUS Configured\n")));
    }

    int32_t number(uint32_t option) {
        if (!isSet(option)) {
            return INT32_MIN;
        }
        return *static_cast<const int32_t *>(radConfGet(option));
    }

    const TemporaryRoot &root() const { return root_; }

  private:
    static std::ptrdiff_t openFiles() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }

    TemporaryRoot root_;
    std::ptrdiff_t openFilesBefore_ = 0;
};

}  // namespace lanyard::test

#endif
