#include "bench/compare/audience.h"

#include <algorithm>
#include <array>
#include <set>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>

#include "bench/compare/raw_frames.h"
#include "tests/interop/child_process.h"
#include "tests/interop/wait_until.h"
#include "tests/support/temporary_folder.h"

namespace lanyard::bench {

namespace {

using test::Supplicant;
using test::VirtualWire;

constexpr const char *kIp = "/sbin/ip";
constexpr std::chrono::milliseconds kGlance{2};
// Somebody whom nobody knows.
constexpr pnac::Mac kStranger = {0x02, 0, 0, 0xfe, 0, 1};

// Of "02:00:00:01:00:0a".
pnac::Mac toMac(const std::string &text) {
    pnac::Mac mac = {};
    for (size_t i = 0; i < mac.size(); ++i) {
        mac.at(i) = static_cast<uint8_t>(std::stoul(text.substr(3 * i, 2), nullptr, 16));
    }
    return mac;
}

void sendStart(int socket, const pnac::Mac &source) {
    const auto frame = supplicantFrame(source, pnac::EapolType::kStart);
    checked(static_cast<int>(send(socket, frame.data(), frame.size(), 0)), "EAPOL-Start");
}

void note(const EapolFrame &frame, const pnac::Mac &address, Login &login) {
    const bool started = login.start != Moment{};
    if (!started && frame.source == address &&
        frame.type == static_cast<uint8_t>(pnac::EapolType::kStart)) {
        login.start = frame.at;
    }
    if (!started || frame.destination != address) {
        return;
    }
    if (frame.code == static_cast<uint8_t>(EapCode::kSuccess) && !login.success) {
        login.success = frame.at;
    }
    login.failures += frame.code == static_cast<uint8_t>(EapCode::kFailure) ? 1 : 0;
}

}  // namespace

Audience::Audience(VirtualWire &wire) : wire_(wire), sender_(rawSocket(wire, Frames::kSend)) {}

void Audience::invite(const std::vector<test::Account> &accounts) {
    people_.clear();
    for (const VirtualWire::Station &station : wire_.stations(accounts.size())) {
        people_.push_back({.address = toMac(station.address), .interface = station.interface});
    }
    setLinks("up");
    (void)capture_.frames();
    for (size_t i = 0; i < accounts.size(); ++i) {
        people_[i].supplicant = std::make_unique<Supplicant>(
            wire_, accounts[i], people_[i].interface, Supplicant::Log::kResults);
    }
    awaitOwnStarts();
    setLinks("down");
}

// The first EAPOL-Start of their own is out; the next is due half a minute later.
void Audience::awaitOwnStarts() const {
    std::set<pnac::Mac> silent;
    for (const Person &person : people_) {
        silent.insert(person.address);
    }
    if (!test::waitUntil([&] {
            for (const EapolFrame &frame : capture_.frames()) {
                silent.erase(frame.source);
            }
            return silent.empty();
        })) {
        throw std::runtime_error("a supplicant does not start:\n" +
                                 people_.front().supplicant->log());
    }
}

void Audience::letIn() {
    // Ends an authenticator's search for whoever may be there.
    sendStart(sender_.get(), kStranger);
    setLinks("up");
}

void Audience::setLinks(const char *state) const {
    std::string commands;
    for (const Person &person : people_) {
        commands.append("link set ").append(person.interface).append(" ").append(state) += "\n";
    }
    const test::TemporaryFolder folder;
    folder.write("commands", commands);
    const VirtualWire::SupplicantsSide side(wire_);
    const test::ProgramResult result =
        test::runProgram({kIp, "-batch", folder.path() / "commands"}, {});
    if (result.status != 0) {
        throw std::runtime_error("ip: " + result.err);
    }
}

std::vector<Login> Audience::logIn(const std::vector<size_t> &who,
                                   std::chrono::duration<double> limit, Until until,
                                   const std::function<void()> &meanwhile) {
    std::vector<Login> logins(who.size());
    (void)capture_.frames();
    for (const size_t person : who) {
        sendStart(sender_.get(), people_.at(person).address);
    }
    follow(who, logins, limit, until, meanwhile);
    return logins;
}

std::vector<Login> Audience::watch(const std::vector<size_t> &who,
                                   std::chrono::duration<double> limit, Moment since) {
    std::vector<Login> logins(who.size(), Login{.start = since});
    follow(who, logins, limit, Until::kSuccess, {});
    return logins;
}

std::vector<pnac::Mac> Audience::addresses() const {
    std::vector<pnac::Mac> all;
    for (const Person &person : people_) {
        all.push_back(person.address);
    }
    return all;
}

void Audience::follow(const std::vector<size_t> &who, std::vector<Login> &logins,
                      std::chrono::duration<double> limit, Until until,
                      const std::function<void()> &meanwhile) const {
    const auto isOver = [&](const Login &login) {
        return login.success || (until == Until::kVerdict && login.failures > 0);
    };
    const auto end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end &&
           !std::all_of(logins.begin(), logins.end(), isOver)) {
        std::this_thread::sleep_for(kGlance);
        for (const EapolFrame &frame : capture_.frames()) {
            for (size_t i = 0; i < who.size(); ++i) {
                note(frame, people_[who[i]].address, logins[i]);
            }
        }
        if (meanwhile) {
            meanwhile();
        }
    }
}

}  // namespace lanyard::bench
