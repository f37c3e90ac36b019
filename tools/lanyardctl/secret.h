// Passwords and secrets: where they come from, and that they go again.
#ifndef LANYARDCTL_SECRET_H
#define LANYARDCTL_SECRET_H

#include <cstring>
#include <optional>
#include <string>
#include <utility>

namespace lanyardctl {

// A text that is wiped when it is not needed any more.
class Secret {
  public:
    explicit Secret(std::string text) : text_(std::move(text)) {}
    ~Secret() { explicit_bzero(text_.data(), text_.size()); }
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;
    Secret(Secret &&) = delete;
    Secret &operator=(Secret &&) = delete;

    [[nodiscard]] const std::string &text() const { return text_; }

  private:
    std::string text_;
};

// The first line of a file; of standard input for "-".
Secret readSecretFile(const std::string &file);

// The first line of the file, if one is named. Otherwise asks for it without echo where standard input
// is a terminal, and takes the first line of it where it is none.
Secret askForPassword(const std::optional<std::string> &file, const std::string &prompt);

}  // namespace lanyardctl

#endif
