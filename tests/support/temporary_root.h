// A temporary folder that stands in for the root of the device's file system: every absolute path
// that the library hands to the OS layer lies below it. It is removed with all its content at the
// end.
//
//     TemporaryRoot root;
//     root.write("/var/radius.conf", "authserver 127.0.0.1:1812:1:0:secret\n");
//     EXPECT_EQ(0, radConfigure("/var/radius.conf"));
//     EXPECT_TRUE(root.exists("/var/radius.conf"));
//     EXPECT_EQ(0644U, root.mode("/var/radius.conf"));
//
// One may be there at a time. Without one, paths are taken as they are.
#ifndef LANYARD_TESTS_SUPPORT_TEMPORARY_ROOT_H
#define LANYARD_TESTS_SUPPORT_TEMPORARY_ROOT_H

#include <filesystem>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "tests/support/temporary_folder.h"

namespace lanyard::test {

class TemporaryRoot {
  public:
    TemporaryRoot();
    TemporaryRoot(const TemporaryRoot &) = delete;
    TemporaryRoot &operator=(const TemporaryRoot &) = delete;
    ~TemporaryRoot();

    // The folder itself, and where a path of the device really lies: "/var/x" and "var/x" are the
    // same.
    [[nodiscard]] const std::filesystem::path &folder() const { return folder_.path(); }
    [[nodiscard]] std::filesystem::path path(std::string_view devicePath) const;

    // Writes a whole file and makes the folders that it needs.
    void write(std::string_view devicePath, std::string_view text, mode_t mode = 0644) const;
    void makeFolder(std::string_view devicePath) const;
    void remove(std::string_view devicePath) const;

    // The whole file; a file that cannot be read fails the test and reads as "".
    [[nodiscard]] std::string read(std::string_view devicePath) const;
    [[nodiscard]] bool exists(std::string_view devicePath) const;
    // Permission bits; 0 with a failed test when there is no such file.
    [[nodiscard]] mode_t mode(std::string_view devicePath) const;
    // Names in a folder, sorted.
    [[nodiscard]] std::vector<std::string> list(std::string_view devicePath) const;

  private:
    TemporaryFolder folder_;
};

}  // namespace lanyard::test

#endif
