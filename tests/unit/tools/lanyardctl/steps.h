// The steps by which files change and packets leave: calls of "open64", "pwrite64", "fdatasync", "ftruncate64",
// "unlink", "send" and "recv", by the program and the libraries below it.
#ifndef LANYARD_TESTS_LANYARDCTL_STEPS_H
#define LANYARD_TESTS_LANYARDCTL_STEPS_H

#include <string>
#include <vector>

namespace lanyard::test {

// Those of this thread while the object is there, one at a time. With a number, SIGKILL ends the process in front of
// that step (1: the first).
class Steps {
  public:
    explicit Steps(int killAt = 0);
    Steps(const Steps &) = delete;
    Steps &operator=(const Steps &) = delete;
    ~Steps();

    [[nodiscard]] const std::vector<std::string> &names() const { return names_; }

    void take(const char *name);

  private:
    const int killAt_;
    std::vector<std::string> names_;
};

}  // namespace lanyard::test

#endif
