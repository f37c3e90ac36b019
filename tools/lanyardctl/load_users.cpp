#include "load_users.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string_view>

#include "failure.h"

namespace lanyardctl {

namespace {

constexpr const char *kBlanks = " \t";

// Room that is wiped.
template <size_t size>
struct Wiped {
    std::array<char, size> bytes{};
    Wiped() = default;
    ~Wiped() { explicit_bzero(bytes.data(), bytes.size()); }
    Wiped(const Wiped &) = delete;
    Wiped &operator=(const Wiped &) = delete;
    Wiped(Wiped &&) = delete;
    Wiped &operator=(Wiped &&) = delete;
};

}  // namespace

std::deque<LoadUser> readLoadUsers(const std::string &file) {
    Wiped<4096> buffer;
    Wiped<1024> line;
    std::ifstream stream;
    stream.rdbuf()->pubsetbuf(buffer.bytes.data(),
                              static_cast<std::streamsize>(buffer.bytes.size()));
    stream.open(file);
    std::deque<LoadUser> users;
    while (stream.getline(line.bytes.data(), static_cast<std::streamsize>(line.bytes.size()))) {
        const std::string_view text = line.bytes.data();
        const size_t nameEnd = text.find_first_of(kBlanks);
        const size_t password = text.find_first_not_of(kBlanks, nameEnd);
        if (nameEnd == 0 || password == std::string_view::npos) {
            throw Failure("line " + std::to_string(users.size() + 1) + " of " + file +
                              " is not a name, blanks and a password",
                          kRefused);
        }
        users.emplace_back(std::string(text.substr(0, nameEnd)),
                           std::string(text.substr(password)));
    }
    if (!stream.is_open() || stream.bad()) {
        throw Failure("cannot read " + file + ": " + std::strerror(errno));
    }
    if (!stream.eof()) {
        throw Failure("line " + std::to_string(users.size() + 1) + " of " + file + " is too long",
                      kRefused);
    }
    if (users.empty()) {
        throw Failure(file + " names no user", kRefused);
    }
    return users;
}

}  // namespace lanyardctl
