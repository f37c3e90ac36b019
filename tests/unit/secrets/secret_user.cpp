// A program that uses a password once and then stands still, so that others can look at its memory:
//
//     secret-user METHOD FILE
//
// Standard input brings the password, a line, and then an empty line for each further step. Descriptor 3
// gets a byte when the method has ended, and another one after radLibExit(). Its own copies are wiped.
// The relay, and a module of the bus, give one byte more before all others: when they are on the bus.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <string_view>
#include <unistd.h>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/eap.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/loop.h>
#include <lanyard/radius/methods.h>
#include <xbus.h>

namespace {

constexpr const char *kUser = "nemo";
constexpr int kReports = 3;

std::array<char, 128> password;

const uint8_t *bytesOf(const char *text) {
    return reinterpret_cast<const uint8_t *>(text);
}

void noteEnd(void *ended, RadRequest * /*request*/, const RadLogin * /*login*/) {
    *static_cast<bool *>(ended) = true;
}

template <auto start, bool isCancelled = false>
int inLoop() {
    RadLoop *loop = radLoopCreate();
    bool ended = false;
    RadRequest *request = start(loop, kUser, password.data(), noteEnd, &ended);
    while (!isCancelled && !ended && radLoopRun(loop, 1000) >= 0) {
    }
    if (isCancelled) {
        radRequestCancel(request);
    }
    radLoopDestroy(loop);
    return 0;
}

template <auto login>
int withLimits() {
    uint32_t idle = 0;
    uint32_t session = 0;
    return login(kUser, password.data(), &idle, &session);
}

int everyServer() {
    std::array<int32_t, 8> results{};
    return radAuthCheckAllServer(kUser, password.data(), results.data());
}

template <bool isForLimits>
int chap() {
    constexpr const char *kChallenge = "0123456789abcdef";
    std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE> response{};
    int idle = 0;
    int session = 0;
    const int size =
        radChapRespMake(response.data(), bytesOf(password.data()),
                        static_cast<int>(std::strlen(password.data())), bytesOf(kChallenge));
    const int result = isForLimits
                           ? radChapAuthAndGetAttributes(kUser, response.data(), size,
                                                         bytesOf(kChallenge), 16, &idle, &session)
                           : radChapAuth(kUser, response.data(), size, bytesOf(kChallenge), 16);
    explicit_bzero(response.data(), response.size());
    return result;
}

template <auto login>
int builtIn() {
    radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, 1);
    radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
    return login();
}

template <auto login>
int plain() {
    return login(kUser, password.data());
}

int resilient() {
    radOptionSet(RAD_OPTION_RESILIENT, 1);
    return plain<radAuth>();
}

template <auto remove>
int withoutServer() {
    const int result = plain<radAuth>();
    remove();
    return result;
}

int removeByName() {
    return radConfDelAuthServer("127.0.0.1");
}

// A sample program reads its arguments; these are the program's own.
int sample() {
    std::array<char, 7> name{"sample"};
    std::array<char, 5> user{"nemo"};
    std::array<char *, 4> arguments{name.data(), user.data(), password.data(), nullptr};
    return radAuthSampleMain(3, arguments.data());
}

bool report() {
    return write(kReports, "", 1) == 1;
}

void readLine();

// Serves until the next line comes. A signal would save vector registers on the stack.
template <int inFlight>
int relay() {
    radOptionSet(RAD_OPTION_EAP_IN_FLIGHT, inFlight);
    radEapDetachInstall([](void *) { report(); }, nullptr);
    pthread_t waiter{};
    pthread_create(
        &waiter, nullptr,
        [](void *) -> void * {
            readLine();
            radEapExit(0);
            return nullptr;
        },
        nullptr);
    const int result = radEapInit();
    pthread_join(waiter, nullptr);
    return result;
}

int answerWithPassword(void * /*busArg1*/, void * /*busArg2*/, uint32_t /*cmd*/, void * /*buf*/,
                       uint32_t /*len*/, void *out, uint32_t *outLen) {
    if (*outLen < password.size()) {
        return -1;
    }
    std::memcpy(out, password.data(), password.size());
    return 0;
}

// Is called by the module of that number, and then calls it.
int bus() {
    constexpr uint32_t kOwn = 100;
    constexpr uint32_t kOther = 101;
    constexpr uint32_t kSecond = 1000000;
    xbusInit();
    XbusCtx *context = xbusRegister(kOwn, XBUS_MODE_HANDLER, answerWithPassword, nullptr);
    report();
    while (xbusListen(context, kSecond) == 0) {
    }
    std::array<char, password.size()> out{};
    uint32_t size = out.size();
    const int result = xbusIoctl(context, kOther, 0, password.data(), password.size(), out.data(),
                                 &size, XBUS_WAIT, 0, 0);
    explicit_bzero(out.data(), out.size());
    return result;
}

struct Method {
    std::string_view name;
    int (*run)();
};

constexpr std::array kMethods{
    Method{"radAuth", plain<radAuth>},
    Method{"radAuthCheckAllServer", everyServer},
    Method{"radAuthAndGetAttributes", withLimits<radAuthAndGetAttributes>},
    Method{"radChapAuth", chap<false>},
    Method{"radChapAuthAndGetAttributes", chap<true>},
    Method{"radMschap", plain<radMschap>},
    Method{"radMschap, built in", builtIn<plain<radMschap>>},
    Method{"radMschapAndGetAttributes", builtIn<withLimits<radMschapAndGetAttributes>>},
    Method{"radMschapv2", builtIn<plain<radMschapv2>>},
    Method{"radMschapv2AndGetAttributes", builtIn<withLimits<radMschapv2AndGetAttributes>>},
    Method{"radAuthStart", inLoop<radAuthStart>},
    Method{"radAuthStart, cancelled", inLoop<radAuthStart, true>},
    Method{"radMschapStart", inLoop<radMschapStart>},
    Method{"radMschapv2Start", inLoop<radMschapv2Start>},
    Method{"resilient radAuth", resilient},
    Method{"radAuthSampleMain", sample},
    Method{"radAuth, then its server deleted", withoutServer<removeByName>},
    Method{"radAuth, then all servers deleted", withoutServer<radConfDelAuthServ>},
    Method{"relay", relay<64>},
    Method{"relay, one after the other", relay<1>},
    Method{"bus", bus},
};

void readLine() {
    size_t size = 0;
    while (size < password.size() - 1 && read(STDIN_FILENO, &password[size], 1) == 1 &&
           password[size] != '\n') {
        ++size;
    }
    password[size] = '\0';
}

}  // namespace

int main(int argc, char *argv[]) {
    // What is printed stays in the buffer of its stream; this program's has none.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    if (argc != 3 || radLibInit(argv[2]) != 0) {
        return 1;
    }
    readLine();
    int result = 1;
    for (const Method &method : kMethods) {
        if (method.name == argv[1]) {
            result = method.run();
        }
    }
    explicit_bzero(password.data(), password.size());
    report();
    readLine();
    radLibExit();
    report();
    readLine();
    return result == 0 ? 0 : 1;
}
