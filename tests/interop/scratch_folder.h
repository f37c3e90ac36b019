// A temporary folder with files.
#ifndef LANYARD_TESTS_INTEROP_SCRATCH_FOLDER_H
#define LANYARD_TESTS_INTEROP_SCRATCH_FOLDER_H

#include <filesystem>
#include <string>
#include <string_view>

namespace lanyard::test {

// A new folder that only this user may enter; it goes, with all that is in it, when the object
// does.
class ScratchFolder {
  public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder &) = delete;
    ScratchFolder &operator=(const ScratchFolder &) = delete;
    ScratchFolder(ScratchFolder &&) = delete;
    ScratchFolder &operator=(ScratchFolder &&) = delete;

    const std::filesystem::path &path() const { return path_; }

    // Writes a file, and the folders above it, in place of an earlier one.
    void write(const std::string &name, std::string_view content) const;

    // Returns content of a file, "" when it is not there.
    std::string read(const std::string &name) const;

  private:
    std::filesystem::path path_;
};

}  // namespace lanyard::test

#endif
