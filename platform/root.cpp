// The root folder: read once from the environment, or set by a test.
#include "platform/root.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unistd.h>

#include <palroot.h>

#include "platform/export.h"

namespace lanyard::port {
namespace {

// Text in a buffer of fixed size; what does not fit makes it too long for good.
class PathText {
  public:
    explicit PathText(char (&buffer)[PATH_MAX]) : buffer_(buffer) { buffer_[0] = '\0'; }

    void append(std::string_view text) {
        if (tooLong_ || text.size() >= PATH_MAX - length_) {
            tooLong_ = true;
            return;
        }
        std::memcpy(buffer_ + length_, text.data(), text.size());
        length_ += text.size();
        buffer_[length_] = '\0';
    }

    // Cuts off the last component, but nothing of the first `floor` bytes.
    void dropComponent(size_t floor) {
        const size_t slash = view().rfind('/');
        if (length_ > floor && slash != std::string_view::npos && slash >= floor) {
            length_ = slash;
            buffer_[length_] = '\0';
        }
    }

    std::string_view view() const { return {buffer_, length_}; }
    bool tooLong() const { return tooLong_; }

  private:
    char *buffer_;
    size_t length_ = 0;
    bool tooLong_ = false;
};

// Appends an absolute path without empty, "." and ".." components.
void appendResolved(PathText &text, std::string_view path) {
    const size_t floor = text.view().size();
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
    Root() { set(secure_getenv("PAL_ROOT")); }

    void set(const char *folder) {
        state_ = State::kOff;
        if (folder == nullptr || folder[0] == '\0') {
            return;
        }
        // A folder that cannot be used must not turn a test loose on the machine's own files.
        state_ = State::kUnusable;
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
            state_ = State::kOn;
        }
    }

    bool isOff() const { return state_ == State::kOff; }
    bool isUsable() const { return state_ == State::kOn; }
    const char *folder() const { return folder_; }

  private:
    enum class State { kOff, kOn, kUnusable };

    State state_ = State::kOff;
    char folder_[PATH_MAX] = {};
};

Root &root() {
    static Root instance;
    return instance;
}

}  // namespace

RootedPath::RootedPath(const char *path) : result_(path) {
    text_[0] = '\0';
    if (path == nullptr) {
        errno = EINVAL;
        return;
    }
    if (path[0] != '/' || root().isOff()) {
        return;
    }
    constexpr std::string_view kDevices = "/dev/";
    PathText text(text_);
    appendResolved(text, path);
    if (!text.tooLong() && !text.view().starts_with(kDevices)) {
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

}  // namespace lanyard::port

using namespace lanyard::port;

PAL_EXPORT void palRootSet(const char *folder) {
    root().set(folder);
}
