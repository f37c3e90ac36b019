#include "tests/unit/login/nt_response_program.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <numeric>
#include <sys/mman.h>
#include <unistd.h>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>
#include <palcore.h>

namespace lanyard::test {
namespace {

StandInProgram *standInProgram = nullptr;
StandInRandom *standInRandom = nullptr;
RefusedRemovals *refusedRemovals = nullptr;

// The OS layer's own function of that name.
template <typename Function>
Function *original(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

InstalledProgram::InstalledProgram(const TemporaryRoot &root) {
    const std::filesystem::path program = root.path(kNtResponseProgram);
    std::filesystem::create_directories(program.parent_path());
    std::filesystem::copy_file(LANYARD_NTRESPONSE, program);
    root.makeFolder("/tmp");
    EXPECT_EQ(0, setenv("PAL_ROOT", root.folder().c_str(), 1));
}

InstalledProgram::~InstalledProgram() {
    EXPECT_EQ(0, unsetenv("PAL_ROOT"));
}

StandInProgram::StandInProgram(const TemporaryRoot &root, Run run)
    : root_(root), run_(std::move(run)) {
    EXPECT_EQ(nullptr, standInProgram);
    standInProgram = this;
}

StandInProgram::~StandInProgram() {
    standInProgram = nullptr;
}

StandInProgram::Call StandInProgram::call(size_t index) const {
    if (index >= calls_.size()) {
        ADD_FAILURE() << "the program has run " << calls_.size() << " times only";
        return {};
    }
    return calls_[index];
}

int StandInProgram::run(char *const argv[], int reserved1, int reserved2) {
    Call call;
    for (char *const *argument = argv; *argument != nullptr; ++argument) {
        call.arguments.emplace_back(*argument);
    }
    if (call.arguments.size() == 4) {
        call.password = call.arguments[1];
        call.challenge = fromText(call.arguments[2]);
        call.file = call.arguments[3];
    }
    call.reserved1 = reserved1;
    call.reserved2 = reserved2;
    calls_.push_back(call);
    return run_(root_, call);
}

Bytes ntResponse() {
    Bytes bytes(24);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0x41});
    return bytes;
}

StandInProgram::Run answering(const Bytes &content, int result) {
    return [content, result](const TemporaryRoot &root, const StandInProgram::Call &call) {
        root.write(call.file, toText(content));
        return result;
    };
}

StandInProgram::Run endingWith(int result) {
    return [result](const TemporaryRoot &, const StandInProgram::Call &) { return result; };
}

StandInRandom::StandInRandom(std::vector<Bytes> challenges) : challenges_(std::move(challenges)) {
    EXPECT_EQ(nullptr, standInRandom);
    standInRandom = this;
}

StandInRandom::~StandInRandom() {
    standInRandom = nullptr;
}

int StandInRandom::open(int flags) {
    EXPECT_EQ(O_RDONLY, flags & O_ACCMODE);
    const size_t draw = draws_++;
    if (draw >= challenges_.size()) {
        errno = ENOENT;
        return -1;
    }
    const Bytes &challenge = challenges_[draw];
    const int file = memfd_create("challenge", MFD_CLOEXEC);
    EXPECT_EQ(static_cast<ssize_t>(challenge.size()),
              pwrite(file, challenge.data(), challenge.size(), 0));
    return file;
}

RefusedRemovals::RefusedRemovals(int allowed) : allowed_(allowed) {
    EXPECT_EQ(nullptr, refusedRemovals);
    refusedRemovals = this;
}

RefusedRemovals::~RefusedRemovals() {
    refusedRemovals = nullptr;
}

BuiltinNtResponse::BuiltinNtResponse(int value) {
    EXPECT_EQ(0, radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, value));
}

BuiltinNtResponse::~BuiltinNtResponse() {
    EXPECT_EQ(0, radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, 0));
}

void PrintTo(const Answer &answer, std::ostream *stream) {
    *stream << answer.result << ", " << toHex(answer.response);
}

Answer ask(const Bytes &challenge, const char *password, const char *userName) {
    Answer answer;
    answer.result =
        radMschapNtResponse(password, answer.response.data(), challenge.data(), userName);
    return answer;
}

void expectMissingArgumentsRefused() {
    const Bytes challenge = "0102030405060708"_hex;
    Bytes response = kNoResponse;
    EXPECT_EQ(-1, radMschapNtResponse(nullptr, response.data(), challenge.data(), "nemo"));
    EXPECT_EQ(-1, radMschapNtResponse("p", nullptr, challenge.data(), "nemo"));
    EXPECT_EQ(-1, radMschapNtResponse("p", response.data(), nullptr, "nemo"));
    EXPECT_EQ(-1, radMschapNtResponse("p", response.data(), challenge.data(), nullptr));
    EXPECT_BYTES_EQ(kNoResponse, response);
}

void expectWithinArguments(const Bytes &challenge, const Bytes &response) {
    for (const GuardedBuffer::Edge edge : {GuardedBuffer::Edge::start, GuardedBuffer::Edge::end}) {
        GuardedBuffer given(challenge, edge);
        given.makeReadOnly();
        GuardedBuffer written(response.size(), edge);
        EXPECT_EQ(0, radMschapNtResponse("MyPw", written.data(), given.data(), "nemo"));
        EXPECT_BYTES_EQ(response, written.bytes());
    }
}

long openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return std::distance(begin(entries), end(entries));
}

}  // namespace lanyard::test

int palCmdExecArgv(char *const argv[], int reserved1, int reserved2) {
    using namespace lanyard::test;
    if (standInProgram != nullptr) {
        return standInProgram->run(argv, reserved1, reserved2);
    }
    return original<decltype(palCmdExecArgv)>("palCmdExecArgv")(argv, reserved1, reserved2);
}

int palOpen(const char *path, int flags, int mode) {
    using namespace lanyard::test;
    if (standInRandom != nullptr && std::strcmp(path, "/dev/urandom") == 0) {
        return standInRandom->open(flags);
    }
    return original<decltype(palOpen)>("palOpen")(path, flags, mode);
}

int palUnlink(const char *path) {
    using namespace lanyard::test;
    if (refusedRemovals != nullptr && refusedRemovals->refuses()) {
        errno = EPERM;
        return -1;
    }
    return original<decltype(palUnlink)>("palUnlink")(path);
}
