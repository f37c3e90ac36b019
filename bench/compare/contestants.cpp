#include "bench/compare/contestants.h"

#include <filesystem>
#include <stdexcept>

#include "tests/e2e/device.h"
#include "tests/e2e/virtual_wire.h"
#include "tests/interop/child_process.h"
#include "tests/support/temporary_folder.h"

namespace lanyard::bench {

namespace {

using test::VirtualWire;

constexpr const char *kHostapd = "/usr/sbin/hostapd";

class Ours : public Contestant {
  public:
    Ours(const Setup &setup, const OwnOptions &options) {
        for (const ServerPlace &server : setup.servers) {
            std::vector<std::string> command = {"add",      server.host,
                                                "--port",   std::to_string(server.port),
                                                "--secret", server.secret};
            if (setup.waiting) {
                command.insert(command.end(),
                               {"--timeout", std::to_string(setup.waiting->timeout), "--retries",
                                std::to_string(setup.waiting->retries)});
            }
            device_.db(command);
        }
        device_.setRelayOptions(options.relay);
        device_.startRelay();
        device_.db({"replay"});
        device_.startAuthenticator(options.authenticator);
    }

    [[nodiscard]] std::string log() const override { return device_.logs(); }
    [[nodiscard]] std::vector<std::string> programs() const override {
        return {"pnac-wired", "radeapd"};
    }

  private:
    test::Device device_;
};

class Hostapd : public Contestant {
  public:
    explicit Hostapd(const Setup &setup)
        : program_({kHostapd, configure(setup)}, {}, folder_.path() / "log") {
        if (!program_.waitForOutput("AP-ENABLED")) {
            throw std::runtime_error("hostapd does not start:\n" + program_.output());
        }
    }

    [[nodiscard]] std::string log() const override { return program_.output(); }
    [[nodiscard]] std::vector<std::string> programs() const override { return {"hostapd"}; }

  private:
    std::string configure(const Setup &setup) const {
        std::string text = std::string("driver=wired\ninterface=") + VirtualWire::kPort +
                           "\nieee8021x=1\nuse_pae_group_addr=0\nown_ip_addr=127.0.0.1\n";
        for (const ServerPlace &server : setup.servers) {
            text += "auth_server_addr=" + server.host +
                    "\nauth_server_port=" + std::to_string(server.port) +
                    "\nauth_server_shared_secret=" + server.secret + "\n";
        }
        folder_.write("hostapd.conf", text);
        return folder_.path() / "hostapd.conf";
    }

    test::TemporaryFolder folder_;
    test::RunningProgram program_;
};

}  // namespace

std::unique_ptr<Contestant> startOurs(const Setup &setup, const OwnOptions &options) {
    return std::make_unique<Ours>(setup, options);
}

std::unique_ptr<Contestant> startOther(const Setup &setup) {
    return std::make_unique<Hostapd>(setup);
}

bool otherIsThere() {
    return std::filesystem::exists(kHostapd);
}

}  // namespace lanyard::bench
