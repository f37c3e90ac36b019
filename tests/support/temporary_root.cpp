#include "tests/support/temporary_root.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <palroot.h>

namespace lanyard::test {

namespace fs = std::filesystem;

TemporaryRoot::TemporaryRoot() {
    palRootSet(folder().c_str());
}

TemporaryRoot::~TemporaryRoot() {
    palRootSet(nullptr);
    const std::error_code error = folder_.remove();
    EXPECT_FALSE(error) << folder() << ": " << error.message();
}

fs::path TemporaryRoot::path(std::string_view devicePath) const {
    return folder() / fs::path(devicePath).relative_path();
}

void TemporaryRoot::write(std::string_view devicePath, std::string_view text, mode_t mode) const {
    const fs::path file = path(devicePath);
    folder_.write(file, text);
    ASSERT_EQ(0, chmod(file.c_str(), mode)) << file;
}

void TemporaryRoot::makeFolder(std::string_view devicePath) const {
    fs::create_directories(path(devicePath));
}

void TemporaryRoot::remove(std::string_view devicePath) const {
    fs::remove_all(path(devicePath));
}

std::string TemporaryRoot::read(std::string_view devicePath) const {
    std::ifstream stream(path(devicePath), std::ios::binary);
    EXPECT_TRUE(stream) << "cannot read " << path(devicePath);
    return {std::istreambuf_iterator<char>(stream), {}};
}

bool TemporaryRoot::exists(std::string_view devicePath) const {
    return fs::exists(fs::symlink_status(path(devicePath)));
}

mode_t TemporaryRoot::mode(std::string_view devicePath) const {
    struct stat status {};
    if (lstat(path(devicePath).c_str(), &status) != 0) {
        ADD_FAILURE() << "no such file: " << path(devicePath);
        return 0;
    }
    return status.st_mode & 07777;
}

std::vector<std::string> TemporaryRoot::list(std::string_view devicePath) const {
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(path(devicePath))) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace lanyard::test
