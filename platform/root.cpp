/**
 * @file
 * The root folder: read once from the environment, or set by a test.
 */
#include "root.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <palroot.h>
#include <string_view>
#include <unistd.h>

#include "export.h"

namespace port {
namespace {

/** Text in a buffer of fixed size; what does not fit makes it too long for good. */
class PathText {
  public:
    explicit PathText(char (&buffer)[PATH_MAX]) noexcept : buffer_(buffer) { buffer_[0] = '\0'; }

    void append(std::string_view text) noexcept {
        if (tooLong_ || text.size() >= PATH_MAX - length_) {
            tooLong_ = true;
            return;
        }
        std::memcpy(buffer_ + length_, text.data(), text.size());
        length_ += text.size();
        buffer_[length_] = '\0';
    }

    /** Cuts off the last component, but nothing of the first `floor` bytes. */
    void dropComponent(std::size_t floor) noexcept {
        const std::size_t slash = view().rfind('/');
        if (length_ > floor && slash != std::string_view::npos && slash >= floor) {
            length_ = slash;
            buffer_[length_] = '\0';
        }
    }

    [[nodiscard]] std::string_view view() const noexcept { return {buffer_, length_}; }
    [[nodiscard]] bool tooLong() const noexcept { return tooLong_; }

  private:
    char *buffer_;
    std::size_t length_ = 0;
    bool tooLong_ = false;
};

/** Appends an absolute path without empty, "." and ".." components. */
void appendResolved(PathText &text, std::string_view path) noexcept {
    const std::size_t floor = text.view().size();
    while (!path.empty()) {
        const std::string_view component = path.substr(0, path.find('/'));
        path.remove_prefix(component.size() == path.size() ? path.size() : component.size() + 1);
        if (component == "..") {
            text.dropComponent(floor);
        } else if (!component.empty() && component != ".") {
            text.append("/");
            text.append(component);
        }
    }
}

class Root {
  public:
    Root() noexcept { set(secure_getenv("PAL_ROOT")); }

    void set(const char *folder) noexcept {
        state_ = State::off;
        if (folder == nullptr || folder[0] == '\0') {
            return;
        }
        // A folder that cannot be used must not turn a test loose on the machine's own files.
        state_ = State::unusable;
        PathText text(folder_);
        if (folder[0] != '/') {
            char current[PATH_MAX];
            if (getcwd(current, sizeof current) == nullptr) {
                return;
            }
            text.append(current);
            text.append("/");
        }
        text.append(folder);
        if (!text.tooLong()) {
            state_ = State::on;
        }
    }

    [[nodiscard]] bool isOff() const noexcept { return state_ == State::off; }
    [[nodiscard]] bool isUsable() const noexcept { return state_ == State::on; }
    [[nodiscard]] const char *folder() const noexcept { return folder_; }

  private:
    enum class State { off, on, unusable };

    State state_ = State::off;
    char folder_[PATH_MAX] = {};
};

Root &root() noexcept {
    static Root instance;
    return instance;
}

}  // namespace

RootedPath::RootedPath(const char *path) noexcept : result_(path) {
    text_[0] = '\0';
    if (path == nullptr) {
        errno = EINVAL;
        return;
    }
    if (path[0] != '/' || root().isOff()) {
        return;
    }
    constexpr std::string_view devices = "/dev/";
    PathText text(text_);
    appendResolved(text, path);
    if (!text.tooLong() && !text.view().starts_with(devices)) {
        if (!root().isUsable()) {
            errno = ENOENT;
            result_ = nullptr;
            return;
        }
        text = PathText(text_);
        text.append(root().folder());
        appendResolved(text, path);
    }
    if (text.tooLong()) {
        errno = ENAMETOOLONG;
        result_ = nullptr;
        return;
    }
    result_ = text_;
}

}  // namespace port

PAL_EXPORT void palRootSet(const char *folder) {
    port::root().set(folder);
}
