// A new folder that only this user may enter; it goes, with all that is in it, when the object does.
//
//     const TemporaryFolder folder;
//     folder.write("etc/radius.conf", "authserver 127.0.0.1:secret\n");
//     run(folder.path() / "etc/radius.conf");
#ifndef LANYARD_TESTS_SUPPORT_TEMPORARY_FOLDER_H
#define LANYARD_TESTS_SUPPORT_TEMPORARY_FOLDER_H

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace lanyard::test {

class TemporaryFolder {
  public:
    // Throws std::system_error.
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    TemporaryFolder(TemporaryFolder &&) = delete;
    TemporaryFolder &operator=(TemporaryFolder &&) = delete;

    [[nodiscard]] const std::filesystem::path &path() const { return path_; }

    // Writes a file, and makes the folders above it, in place of an earlier one. Throws
    // std::ios_base::failure.
    void write(const std::filesystem::path &name, std::string_view content) const;

    // The content of a file; "" when it is not there.
    [[nodiscard]] std::string read(const std::filesystem::path &name) const;

    // Removes the folder now; what kept it from that.
    [[nodiscard]] std::error_code remove() const;

  private:
    std::filesystem::path path_;
};

}  // namespace lanyard::test

#endif
