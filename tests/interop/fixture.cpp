#include "tests/interop/fixture.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

#include <lanyard/radius/frame.h>
#include <palroot.h>

namespace lanyard::test {

std::unique_ptr<RealServer> Interop::server_;

void Interop::SetUpTestSuite() {
    server_ = std::make_unique<RealServer>();
}

void Interop::TearDownTestSuite() {
    server_.reset();
}

void Interop::SetUp() {
    std::array<char, 256> hostName = {};
    ASSERT_EQ(0, gethostname(hostName.data(), hostName.size() - 1));
    // The address that a request carries, where the resolver does not know this machine's name.
    root_.write("var/hosts", std::string("127.0.0.1 ") + hostName.data() + "\n");
    palRootSet(root_.path().c_str());
}

void Interop::TearDown() {
    radLibExit();
    palRootSet(nullptr);
    unsetenv("PAL_ROOT");
}

void Interop::writeConfiguration(const std::string &text) const {
    root_.write("var/radius.conf", text);
}

void Interop::configure(const std::string &text) const {
    writeConfiguration(text);
    ASSERT_EQ(0, radLibInit(radLibDefConf()));
}

void Interop::installNtResponse() const {
    const std::filesystem::path program = root_.path() / "nexa2.0/bin/orvane_getNTResponse";
    std::filesystem::create_directories(program.parent_path());
    std::filesystem::copy_file(LANYARD_NTRESPONSE, program);
    std::filesystem::create_directory(root_.path() / "tmp");
    ASSERT_EQ(0, setenv("PAL_ROOT", root_.path().c_str(), 1));
}

std::string Interop::lastRequest() {
    const std::string all = server().accessRequests();
    const size_t before = all.rfind("\n\n", all.size() - 3);
    return before == std::string::npos ? all : all.substr(before + 2);
}

std::string Interop::entry(uint16_t port, const std::string &secret) {
    return "127.0.0.1:" + std::to_string(port) + ":1:0:" + secret;
}

Interop::Written Interop::capture(const std::function<void()> &code) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    code();
    Written written;
    written.out = testing::internal::GetCapturedStdout();
    written.err = testing::internal::GetCapturedStderr();
    return written;
}

int occurrences(const std::string &text, const std::string &part) {
    int count = 0;
    for (size_t at = text.find(part); at != std::string::npos;
         at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

}  // namespace lanyard::test
