// A captive portal: a form, a login, and a gate that is open for as long as the server says. Each of eight threads
// serves one browser at a time, so that one user's login keeps no other waiting.
//
//     c++ -std=c++17 captive_portal.cpp $(pkg-config --cflags --libs lanyard-radius) -pthread -o captive_portal
//     ./captive_portal /var/radius.conf 8080      # then http://127.0.0.1:8080/
#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include <lanyard/radius.h>

using Clock = std::chrono::steady_clock;

static const char *const kForm =
    "<form method=post><input name=user placeholder=Name>"
    "<input name=password type=password placeholder=Password><button>Log in</button></form>";

// Who is online: addresses, and when their sessions end. Here a gateway sets its packet filter.
static std::mutex gate;
static std::map<std::string, Clock::time_point> online;

static void endSessions() {
    const std::lock_guard lock(gate);
    for (auto user = online.begin(); user != online.end();) {
        const bool isOver = user->second <= Clock::now();
        if (isOver) {
            std::printf("%s goes out\n", user->first.c_str());
        }
        user = isOver ? online.erase(user) : std::next(user);
    }
}

static bool isOnline(const std::string &address) {
    const std::lock_guard lock(gate);
    return online.count(address) != 0;
}

// Returns a field of a form; "" when it is missing, too long, or has a control character.
static std::string fieldOf(const std::string &form, const std::string &name, size_t max) {
    const size_t start = ("&" + form).find("&" + name + "=");
    std::string text;
    for (size_t at = start + name.size() + 1; start != std::string::npos; ++at) {
        if (at >= form.size() || form[at] == '&') {
            return text;
        }
        text += form[at] == '+' ? ' ' : form[at];
        if (form[at] == '%') {
            text.back() = static_cast<char>(std::stoi("0" + form.substr(at + 1, 2), nullptr, 16));
            at += 2;
        }
        if (text.size() > max || static_cast<unsigned char>(text.back()) < ' ') {
            break;
        }
    }
    return "";
}

// Returns what to tell a user who may not come in.
static const char *logIn(const std::string &form, const std::string &address) {
    const std::string user = fieldOf(form, "user", RAD_USER_NAME_MAX);
    const std::string password = fieldOf(form, "password", RAD_PASSWORD_MAX);
    if (user.empty() || password.empty()) {
        return "Name and password, please.";
    }
    RadPair *request = nullptr;
    RadPair *reply = nullptr;
    int code = -1;
    if (radPairAdd(&request, RAD_ATTR_USER_NAME, user.c_str(), 0) &&
        radPairAdd(&request, RAD_ATTR_USER_PASSWORD, password.c_str(), 0) &&
        radPairAdd(&request, RAD_ATTR_CALLING_STATION_ID, address.c_str(), 0)) {
        code = radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, request, &reply);
    }
    if (code == RAD_CODE_ACCESS_ACCEPT) {
        const RadPair *limit = radPairGet(reply, RAD_ATTR_SESSION_TIMEOUT);
        const std::lock_guard lock(gate);
        online[address] =
            limit ? Clock::now() + std::chrono::seconds(limit->numValue) : Clock::time_point::max();
        std::printf("%s comes in\n", address.c_str());
    }
    radPairListFree(reply);
    radPairListFree(request);
    return code < 0 ? "Logins do not work now. Please try again later." : "Wrong name or password.";
}

// Returns the body of a request; "" for one that only asks for the page.
static std::string readForm(FILE *client) {
    char line[1024];
    size_t length = 0;
    while (std::fgets(line, sizeof(line), client) && std::strcmp(line, "\r\n") != 0) {
        if (strncasecmp(line, "Content-Length:", 15) == 0) {
            length = std::strtoul(line + 15, nullptr, 10);
        }
    }
    return std::string(line, std::fread(line, 1, std::min(length, sizeof(line)), client));
}

// Nothing that somebody else wrote gets onto the page.
static void serve(int listener) {
    for (;;) {
        sockaddr_in peer{};
        socklen_t size = sizeof(peer);
        const int client = accept(listener, reinterpret_cast<sockaddr *>(&peer), &size);
        if (client < 0) {
            continue;
        }
        const timeval patience{5, 0};
        setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
        FILE *const stream = fdopen(client, "r");
        if (!stream) {
            close(client);
            continue;
        }
        char address[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &peer.sin_addr, address, sizeof(address));
        const std::string form = readForm(stream);
        const char *const problem = form.empty() ? "" : logIn(form, address);
        const bool isIn = isOnline(address);
        dprintf(client, "HTTP/1.0 200 OK\r\nContent-Type: text/html\r\n\r\n<p>%s</p>%s\n",
                isIn ? "You are online." : problem, isIn ? "" : kForm);
        std::fclose(stream);
    }
}

int main(int argc, char *argv[]) {
    const uint16_t port = htons(static_cast<uint16_t>(argc == 3 ? std::atoi(argv[2]) : 0));
    const sockaddr_in address{AF_INET, port, {htonl(INADDR_LOOPBACK)}, {}};
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (argc != 3 || radLibInit(argv[1]) != 0 ||
        bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listener, 64) != 0) {
        std::fprintf(stderr, "Usage: %s FILE PORT, which has to be free\n", argv[0]);
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::printf("http://127.0.0.1:%s/\n", argv[2]);
    for (int i = 0; i < 8; ++i) {
        std::thread(serve, listener).detach();
    }
    for (;; std::this_thread::sleep_for(std::chrono::seconds(1))) {
        endSessions();
    }
}
