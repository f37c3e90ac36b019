// udp-proxy --server HOST:PORT [--listen HOST:PORT] [--seed N] [--COMMAND VALUE ...]: the proxy of udp_proxy.h
// for scripts and for trying things by hand.
//
// It prints where it listens, one "name=value" a line, then takes the commands of proxy_command.h from its
// standard input, one a line, and answers each with "ok" or "error: ...". The command "counters" prints what
// has passed. It runs until its standard input ends, or the command "end", or a signal.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>

#include "tests/support/proxy_command.h"
#include "tests/support/udp_proxy.h"

namespace lanyard::test {
namespace {

UdpProxy::Place parsePlace(const std::string &text) {
    const size_t colon = text.rfind(':');
    const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
    if (port.empty() || port.size() > 5 ||
        port.find_first_not_of("0123456789") != std::string::npos ||
        std::stoul(port) > UINT16_MAX) {
        throw std::invalid_argument("not HOST:PORT: " + text);
    }
    return {.host = text.substr(0, colon), .port = static_cast<uint16_t>(std::stoul(port))};
}

void print(const ProxyCounters &counters) {
    std::cout << "requests=" << counters.requests << " replies=" << counters.replies
              << " lost=" << counters.lost << " ignored=" << counters.ignored
              << " swallowed=" << counters.swallowed << " forged=" << counters.forged << '\n';
}

void obey(UdpProxy &proxy) {
    for (std::string line; std::getline(std::cin, line) && line != "end";) {
        if (line == "counters") {
            print(proxy.counters());
        } else {
            try {
                ProxySettings settings = proxy.settings();
                applyProxyCommand(line, settings);
                proxy.set(settings);
                std::cout << "ok\n";
            } catch (const std::invalid_argument &wrong) {
                std::cout << "error: " << wrong.what() << '\n';
            }
        }
        std::cout.flush();
    }
}

int run(int argc, char *argv[]) {
    CLI::App app(
        "A UDP proxy between RADIUS clients and a server: far, unreliable, hostile or dead.",
        "udp-proxy");
    std::string server;
    std::string listen = "127.0.0.1:0";
    uint32_t seed = 1;
    std::map<std::string, std::string> values;
    app.add_option("--server", server, "the server")->type_name("HOST:PORT")->required();
    app.add_option("--listen", listen, "where clients find it")->type_name("HOST:PORT");
    app.add_option("--seed", seed, "of the generator that decides what is lost and so on");
    for (const std::string &name : proxyCommands()) {
        app.add_option("--" + name, values[name], "begin with this command");
    }
    CLI11_PARSE(app, argc, argv);

    ProxySettings settings;
    for (const auto &[name, value] : values) {
        if (!value.empty()) {
            applyProxyCommand(name, value, settings);
        }
    }
    UdpProxy proxy(parsePlace(server), parsePlace(listen), seed);
    proxy.set(settings);
    std::cout << "host=" << proxy.host() << "\nport=" << proxy.port() << "\nready=yes" << std::endl;
    obey(proxy);
    return EXIT_SUCCESS;
}

}  // namespace
}  // namespace lanyard::test

int main(int argc, char *argv[]) {
    try {
        return lanyard::test::run(argc, argv);
    } catch (const std::exception &reason) {
        (void)std::fprintf(stderr, "udp-proxy: %s\n", reason.what());
        return EXIT_FAILURE;
    }
}
