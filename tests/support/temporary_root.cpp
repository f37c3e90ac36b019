#include "tests/support/temporary_root.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
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
    std::string name = (fs::temp_directory_path() / "lanyard-root-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    folder_ = name;
    palRootSet(folder_.c_str());
}

TemporaryRoot::~TemporaryRoot() {
    palRootSet(nullptr);
    std::error_code error;
    fs::remove_all(folder_, error);
    EXPECT_FALSE(error) << folder_ << ": " << error.message();
}

fs::path TemporaryRoot::path(std::string_view devicePath) const {
    return folder_ / fs::path(devicePath).relative_path();
}

void TemporaryRoot::write(std::string_view devicePath, std::string_view text, mode_t mode) const {
    const fs::path file = path(devicePath);
    fs::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream << text;
    stream.close();
    ASSERT_TRUE(stream) << "cannot write " << file;
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
