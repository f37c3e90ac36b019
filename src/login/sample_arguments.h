// The command line that the sample programs share.
#ifndef LANYARD_LOGIN_SAMPLE_ARGUMENTS_H
#define LANYARD_LOGIN_SAMPLE_ARGUMENTS_H

#include <array>
#include <cstdint>

namespace lanyard {

// How one sample program speaks: its texts and where they go.
struct SampleStyle {
    const char *function;   // the entry point, the tag of every message
    const char *options;    // for getopt()
    const char *arguments;  // what follows the common options in the usage line
    int usageLevel;         // log level of the usage line; 0 prints it on standard output
    int missingValueLevel;  // log level of a missing option value
    int startLevel;         // log level of a failed start
};

// The style of the sample programs that log a user in.
SampleStyle loginStyle(const char *function, const char *options);

// What a sample program was given. The password is wiped at the end.
class SampleArguments {
  public:
    SampleArguments();
    SampleArguments(const SampleArguments &) = delete;
    SampleArguments &operator=(const SampleArguments &) = delete;
    ~SampleArguments();

    // Reads options, and user name and password where the usage line names them. On failure it has
    // said why.
    bool parseLogin(const SampleStyle &style, int argc, char *argv[]);
    bool parseOptions(const SampleStyle &style, int argc, char *argv[]);

    // Starts the library from the chosen file. On failure it has said so.
    bool startLibrary(const SampleStyle &style) const;

    const char *userName() const { return userName_.data(); }
    const char *password() const { return password_.data(); }
    uint32_t status() const { return status_; }

  private:
    bool readOptions(const SampleStyle &style, int argc, char *argv[]);

    std::array<char, 100> path_{};
    std::array<char, 128> userName_{};
    std::array<char, 128> password_{};
    uint32_t status_ = 0;
    int firstPositional_ = 0;
};

// Runs one login method on the user name and password of a command line.
template <typename Method>
int runLogin(const SampleStyle &style, int argc, char *argv[], Method method) {
    SampleArguments arguments;
    if (!arguments.parseLogin(style, argc, argv) || !arguments.startLibrary(style)) {
        return -1;
    }
    return method(arguments.userName(), arguments.password());
}

}  // namespace lanyard

#endif
