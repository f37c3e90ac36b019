// The command line that the sample programs share.
#ifndef LANYARD_LOGIN_SAMPLE_ARGUMENTS_H
#define LANYARD_LOGIN_SAMPLE_ARGUMENTS_H

#include <array>
#include <cstdint>

#include "login/contract.h"

namespace lanyard {

// What a sample program was given. The password is wiped at the end.
class SampleArguments {
  public:
    SampleArguments();
    SampleArguments(const SampleArguments &) = delete;
    SampleArguments &operator=(const SampleArguments &) = delete;
    ~SampleArguments();

    // Reads options, and user name and password where the usage line names them. On failure it has
    // said why.
    bool parseLogin(const SampleContract &contract, int argc, char *argv[]);
    bool parseOptions(const SampleContract &contract, int argc, char *argv[]);

    // Starts the library from the chosen file. On failure it has said so.
    bool startLibrary(const SampleContract &contract) const;

    const char *userName() const { return userName_.data(); }
    const char *password() const { return password_.data(); }
    uint32_t status() const { return status_; }

  private:
    bool readOptions(const SampleContract &contract, int argc, char *argv[]);

    std::array<char, 100> path_{};
    std::array<char, 128> userName_{};
    std::array<char, 128> password_{};
    uint32_t status_ = 0;
    int firstPositional_ = 0;
};

}  // namespace lanyard

#endif
