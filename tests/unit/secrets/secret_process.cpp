#include "tests/unit/secrets/secret_process.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <gtest/gtest.h>
#include <openssl/md5.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/spawn.h"

namespace lanyard::test {
namespace {

constexpr uint8_t kInnerMask = 0x36;
constexpr uint8_t kOuterMask = 0x5c;

Bytes maskedWith(uint8_t mask) {
    Bytes bytes = fromText(kSecret);
    std::for_each(bytes.begin(), bytes.end(), [mask](uint8_t &byte) { byte ^= mask; });
    return bytes;
}

Bytes digestedPad(uint8_t mask) {
    Bytes block = maskedWith(mask);
    block.resize(MD5_CBLOCK, mask);
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, block.data(), block.size());
    Bytes state;
    for (const MD5_LONG word : {context.A, context.B, context.C, context.D}) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(&word);
        state.insert(state.end(), bytes, bytes + sizeof(word));
    }
    return state;
}

}  // namespace

Secrets sharedSecret() {
    return {{"the shared secret", fromText(kSecret)},
            {"its inner pad", maskedWith(kInnerMask)},
            {"its outer pad", maskedWith(kOuterMask)}};
}

Secrets digestedPads() {
    return {{"its inner pad, digested", digestedPad(kInnerMask)},
            {"its outer pad, digested", digestedPad(kOuterMask)}};
}

void configureServer(const TemporaryRoot &root, uint16_t port) {
    root.write("/var/hosts", "");
    root.write("/var/radius.conf",
               "authserver 127.0.0.1:" + std::to_string(port) + ":20:0:" + std::string(kSecret) +
                   ":device\n",
               0600);
}

SecretUser::SecretUser(const std::string &method, const TemporaryRoot &root) {
    std::vector<std::string> command{LANYARD_SECRET_USER, method, "/var/radius.conf"};
    std::vector<std::string> environment = ownEnvironment();
    environment.push_back("PAL_ROOT=" + root.folder().string());
    // Libraries of the system that bind at the first call save vector registers on the stack.
    environment.emplace_back("LD_BIND_NOW=1");
    port::SpawnPlan plan;
    plan.duplicate(input_.readEnd.get(), STDIN_FILENO);
    plan.duplicate(output_.writeEnd.get(), STDOUT_FILENO);
    plan.duplicate(output_.writeEnd.get(), STDERR_FILENO);
    plan.duplicate(reports_.writeEnd.get(), kReports);
    EXPECT_EQ(0, plan.spawn(process_, command[0].c_str(), pointersTo(command).data(),
                            pointersTo(environment).data()));
    reports_.writeEnd.reset();
    output_.writeEnd.reset();
}

SecretUser::~SecretUser() {
    if (process_ != -1) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
}

bool SecretUser::step(std::string_view line) const {
    const std::string text = std::string(line) + '\n';
    return write(input_.writeEnd.get(), text.data(), text.size()) ==
               static_cast<ssize_t>(text.size()) &&
           awaitStep();
}

bool SecretUser::awaitStep() const {
    char byte = 0;
    pollfd report{.fd = reports_.readEnd.get(), .events = POLLIN, .revents = 0};
    return poll(&report, 1, 20000) == 1 && read(reports_.readEnd.get(), &byte, 1) == 1;
}

std::string SecretUser::finish(int &status) {
    input_.writeEnd.reset();
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t size = 1; size > 0;) {
        size = read(output_.readEnd.get(), part.data(), part.size());
        text.append(part.data(), static_cast<size_t>(std::max<ssize_t>(size, 0)));
    }
    EXPECT_EQ(process_, waitpid(process_, &status, 0));
    process_ = -1;
    return text;
}

}  // namespace lanyard::test
