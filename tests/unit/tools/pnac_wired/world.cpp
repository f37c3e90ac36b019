#include "tests/unit/tools/pnac_wired/world.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace lanyard::test {
namespace {

constexpr size_t kRecordHeadSize = 12;
constexpr size_t kFrameHeadSize = 18;

Bytes number16(size_t value) {
    return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

Bytes hostWord(uint32_t value) {
    Bytes word(sizeof(value));
    std::memcpy(word.data(), &value, sizeof(value));
    return word;
}

uint32_t hostWordAt(ByteView bytes, size_t offset) {
    uint32_t value = 0;
    std::memcpy(&value, bytes.subspan(offset, sizeof(value)).data(), sizeof(value));
    return value;
}

Bytes typed(uint8_t code, uint8_t identifier, uint8_t type, ByteView data) {
    return concatenate({Bytes{code, identifier}, number16(5 + data.size()), Bytes{type}, data});
}

}  // namespace

Mac macOf(unsigned number) {
    return {0x02, 0x10, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
}

Bytes eapolFrame(const Mac &source, uint8_t type, ByteView body, uint8_t version,
                 const Mac &destination, int length) {
    return concatenate({destination, source, "888e"_hex, Bytes{version, type},
                        number16(length < 0 ? body.size() : static_cast<size_t>(length)), body});
}

Bytes eapRequest(uint8_t identifier, uint8_t type, ByteView data) {
    return typed(1, identifier, type, data);
}

Bytes eapResponse(uint8_t identifier, uint8_t type, ByteView data) {
    return typed(2, identifier, type, data);
}

Bytes eapSuccess(uint8_t identifier) {
    return {3, identifier, 0, 4};
}

Bytes eapFailure(uint8_t identifier) {
    return {4, identifier, 0, 4};
}

Bytes relayRecord(uint32_t cookie, ByteView payload, int length) {
    const auto said = static_cast<uint32_t>(length < 0 ? static_cast<int>(payload.size()) : length);
    return concatenate({hostWord(cookie), hostWord(0xffffffff), hostWord(said), payload});
}

Bytes keyBlock(std::initializer_list<ByteView> elements) {
    const Bytes content = concatenate(elements);
    return concatenate({number16(content.size() + 2), content});
}

Bytes keyElement(uint8_t type, ByteView key) {
    const auto size = static_cast<uint8_t>(key.size());
    return concatenate({Bytes{type, static_cast<uint8_t>(size + 3), size}, key});
}

Bytes sessionElement(uint8_t type, uint32_t value) {
    return {type,
            6,
            static_cast<uint8_t>(value >> 24),
            static_cast<uint8_t>(value >> 16),
            static_cast<uint8_t>(value >> 8),
            static_cast<uint8_t>(value)};
}

Bytes failureBecause(uint8_t identifier, pnac::FailureReason reason) {
    return concatenate(
        {eapFailure(identifier), keyBlock({Bytes{6, 3, static_cast<uint8_t>(reason)}})});
}

World::World(pnac::Settings settings, Link link)
    : authenticator_(withAddress(settings), *this, [this] { return random_(); }) {
    if (link == Link::up) {
        authenticator_.linkUp(now_);
        pass(settings.interval * (settings.repeats + 1));
        forget();
    }
}

pnac::Settings World::withAddress(pnac::Settings settings) {
    settings.address = kOwnAddress;
    return settings;
}

void World::pass(pnac::Duration duration) {
    const pnac::Time end = now_ + duration;
    for (auto next = authenticator_.nextDeadline(); next && *next <= end;
         next = authenticator_.nextDeadline()) {
        now_ = std::max(now_, *next);
        authenticator_.tick(now_);
        const auto following = authenticator_.nextDeadline();
        if (following && *following <= now_) {
            throw std::logic_error("what was due is still due");
        }
    }
    now_ = end;
    authenticator_.tick(now_);
}

void World::forget() {
    frames_.clear();
    records_.clear();
    events_.clear();
}

void World::sendFrame(ByteView frame) {
    if (frame.size() < kFrameHeadSize) {
        throw std::logic_error("a frame without a header");
    }
    SentFrame sent;
    std::copy_n(frame.begin(), sent.destination.size(), sent.destination.begin());
    sent.version = frame[14];
    const ByteView eap = frame.subspan(kFrameHeadSize);
    sent.eap.assign(eap.begin(), eap.end());
    EXPECT_BYTES_EQ(kOwnAddress, frame.subspan(6, 6));
    EXPECT_BYTES_EQ("888e"_hex, frame.subspan(12, 2));
    EXPECT_EQ(0, frame[15]);
    EXPECT_BYTES_EQ(number16(eap.size()), frame.subspan(16, 2));
    frames_.push_back(sent);
}

pnac::HandOver World::sendRecord(ByteView record) {
    ++recordsOffered_;
    if (!relayRuns_) {
        return pnac::HandOver::kNobody;
    }
    if (relayRoom_ == 0) {
        return pnac::HandOver::kBusy;
    }
    relayRoom_ -= relayRoom_ > 0 ? 1 : 0;
    const ByteView eap = record.subspan(kRecordHeadSize, hostWordAt(record, 8));
    const ByteView rest = record.subspan(kRecordHeadSize + eap.size());
    records_.push_back({.cookie = hostWordAt(record, 0),
                        .command = hostWordAt(record, 4),
                        .eap = Bytes(eap.begin(), eap.end()),
                        .portInformation = Bytes(rest.begin(), rest.end())});
    return pnac::HandOver::kTaken;
}

void World::report(const pnac::Event &event) {
    const auto copy = [](ByteView octets) { return Bytes(octets.begin(), octets.end()); };
    events_.push_back({.kind = event.kind,
                       .reason = event.reason,
                       .address = event.address,
                       .identity = toText(event.identity),
                       .duration = event.duration,
                       .reauthentication = event.reauthentication,
                       .recvKey = copy(event.keyInfo.recvKey),
                       .sendKey = copy(event.keyInfo.sendKey),
                       .session = event.keyInfo.session});
}

void Supplicant::knock(std::string_view identity) {
    start();
    identify(identity);
}

void Supplicant::logIn(std::string_view identity, ByteView block) {
    knock(identity);
    world_.relaySends(cookie(), eapRequest(100, 4, "10"_hex));
    answer(4, "10"_hex);
    world_.relaySends(cookie(), concatenate({eapSuccess(100), block}));
}

std::vector<Bytes> Supplicant::received() const {
    std::vector<Bytes> packets;
    for (const SentFrame &frame : world_.frames()) {
        if (frame.destination == address_) {
            packets.push_back(frame.eap);
        }
    }
    return packets;
}

uint8_t Supplicant::identifier() const {
    const auto packets = received();
    return packets.empty() ? uint8_t{0} : packets.back().at(1);
}

uint32_t Supplicant::cookie() const {
    // Cookies are not tied to addresses in a record; the supplicant that spoke last is meant.
    return world_.records().empty() ? 0 : world_.records().back().cookie;
}

void Supplicant::send(uint8_t type, ByteView body) {
    world_.receive(eapolFrame(address_, type, body, version_));
}

}  // namespace lanyard::test
