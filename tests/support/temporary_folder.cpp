#include "tests/support/temporary_folder.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace lanyard::test {

TemporaryFolder::TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "lanyard-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    (void)remove();
}

std::error_code TemporaryFolder::remove() const {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
    return error;
}

void TemporaryFolder::write(const std::filesystem::path &name, std::string_view content) const {
    const std::filesystem::path file = path_ / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream << content;
    stream.close();
}

std::string TemporaryFolder::read(const std::filesystem::path &name) const {
    std::ifstream stream(path_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

}  // namespace lanyard::test
