#include "tests/e2e/end_to_end.h"

#include <iostream>
#include <stdexcept>

namespace lanyard::test {

std::string EndToEnd::reasonToSkip_;
std::unique_ptr<VirtualWire> EndToEnd::wire_;
std::unique_ptr<RealServer> EndToEnd::server_;

void EndToEnd::skip(const std::string &reason) {
    reasonToSkip_ = reason;
}

void EndToEnd::SetUpTestSuite() {
    // All suites share them.
    if (reasonToSkip_.empty() && !server_) {
        wire_ = std::make_unique<VirtualWire>();
        server_ = std::make_unique<RealServer>(RealServer::Eap::kYes);
    }
}

void EndToEnd::SetUp() {
    if (!reasonToSkip_.empty()) {
        GTEST_SKIP() << reasonToSkip_;
    }
    device_ = std::make_unique<Device>();
    addServer();
    device_->startService();
    device_->startRelay();
    device_->awaitRelay();
}

void EndToEnd::TearDown() {
    if (!device_) {
        return;
    }
    EXPECT_EQ("", device_->stop());
    if (HasFailure()) {
        std::cerr << device_->logs() << server_->log();
    }
}

void EndToEnd::addServer() {
    device_->addServer("127.0.0.1", server_->eapPort(), server_->secret());
}

std::unique_ptr<Supplicant> EndToEnd::connect(const Account &account) {
    auto supplicant = std::make_unique<Supplicant>(wire(), account);
    supplicant->awaitReady();
    device().startAuthenticator();
    return supplicant;
}

Event EndToEnd::knock(const Account &account) {
    ++knocks_;
    const VirtualWire::Station station = wire().stations(knocks_).back();
    Supplicant supplicant(wire(), account, station.interface);
    supplicant.awaitReady();
    supplicant.start();
    const std::optional<Event> event = device().firstEventOf(station.address);
    if (!event) {
        throw std::runtime_error("nothing comes of it");
    }
    EXPECT_TRUE(event->at("event") == "authorized" ? supplicant.succeeds() : supplicant.fails());
    return *event;
}

}  // namespace lanyard::test
