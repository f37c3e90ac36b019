// The program secret-user at work, and what its memory must not hold.
#ifndef LANYARD_TESTS_UNIT_SECRETS_SECRET_PROCESS_H
#define LANYARD_TESTS_UNIT_SECRETS_SECRET_PROCESS_H

#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "tests/support/temporary_root.h"
#include "tests/unit/secrets/process_memory.h"
#include "tools/file_descriptor.h"

namespace lanyard::test {

// Of the server of a SecretUser.
inline constexpr std::string_view kSecret = "5hared.by.all.servers.with.this.device";

// With the pads of HMAC.
Secrets sharedSecret();
// What MD5 makes of the pads: as good as the secret for a signature.
Secrets digestedPads();

// Writes the configuration, with one server at that port.
void configureServer(const TemporaryRoot &root, uint16_t port);

// The program secret-user. It ends with the object.
class SecretUser {
  public:
    SecretUser(const std::string &method, const TemporaryRoot &root);
    SecretUser(const SecretUser &) = delete;
    SecretUser &operator=(const SecretUser &) = delete;
    ~SecretUser();

    // Writes a line to the program, and waits for its next step.
    [[nodiscard]] bool step(std::string_view line) const;
    // Waits for its next step.
    [[nodiscard]] bool awaitStep() const;

    [[nodiscard]] std::vector<std::string> find(const Secrets &secrets) const {
        return findSecrets(process_, secrets);
    }

    // Lets it end. All that it has written; its exit status.
    std::string finish(int &status);

  private:
    static constexpr int kReports = 3;

    Pipe input_;
    Pipe output_;
    Pipe reports_;
    pid_t process_ = -1;
};

}  // namespace lanyard::test

#endif
