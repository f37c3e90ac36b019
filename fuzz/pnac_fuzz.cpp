// The port-access authenticator between hostile supplicants and a relay that may say anything: frames, records
// and time. Nobody may use the port but who had a Success record of its own.
#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <set>

#include <lanyard/radius/relay.h>

#include "fuzz/environment.h"
#include "tools/pnac_wired/authenticator.h"

namespace {

using namespace lanyard::fuzz;
namespace pnac = lanyard::pnac;
using lanyard::EapCode;
using pnac::Mac;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr Mac kOwnAddress = {0x02, 0, 0, 0, 0, 0xfe};
constexpr size_t kHeadSize = sizeof(RadEapXbusMsg);
constexpr size_t kEtherHead = 14;
constexpr int kTurnsMax = 100000;

Mac macOf(unsigned number) {
    return {0x02, 0x10, 0, 0, 0, static_cast<uint8_t>(number)};
}

uint32_t wordAt(ByteView bytes, size_t index) {
    uint32_t word = 0;
    std::memcpy(&word, bytes.subspan(index * sizeof(word), sizeof(word)).data(), sizeof(word));
    return word;
}

// The supplicant that a record of the authenticator is about, as its port information says.
Mac supplicantOf(ByteView record) {
    const ByteView block = record.subspan(kHeadSize + wordAt(record, 2));
    require(block.size() > 4 + sizeof(Mac) && block[2] == RAD_EAP_PORT_SUPPLICANT,
            "a record says whose it is");
    Mac address{};
    std::copy_n(block.begin() + 4, address.size(), address.begin());
    return address;
}

pnac::Settings settingsOf(uint8_t options) {
    pnac::Settings settings;
    settings.address = kOwnAddress;
    settings.port = pnac::Port{.number = 7, .name = "e1", .address = kOwnAddress};
    settings.quietPeriod = (options & 1) != 0 ? seconds(60) : seconds(0);
    settings.supplicantsMax = (options & 2) != 0 ? 4 : 2048;
    return settings;
}

class World final : private pnac::Outlet {
  public:
    explicit World(Script &script)
        : script_(script),
          options_(script.u8()),
          authenticator_(settingsOf(options_), *this, [this] { return ++random_ * 0x9e3779b1U; }) {}

    void run() {
        while (!script_.atEnd()) {
            step();
            check();
        }
        if ((options_ & 0x80) != 0) {
            checkStatus();
        }
        authenticator_.shutDown(now_);
        require(authenticator_.status().sessions.empty(), "a shutdown ends all sessions");
    }

  private:
    void step() {
        switch (script_.below(12)) {
            case 0:
                authenticator_.linkUp(now_);
                return;
            case 1:
                authenticator_.linkDown(now_);
                accepted_.clear();
                return;
            case 2:
                return authenticator_.receiveFrame(script_.longPart(), now_);
            case 3:
                return authenticator_.receiveRecord(script_.longPart(), now_);
            case 4:
                return pass(milliseconds(script_.u16() * 16));
            case 5:
                handOver_ = static_cast<pnac::HandOver>(script_.below(3));
                return;
            case 6:
            case 7:
                return relaySpeaks();
            default:
                return supplicantSpeaks();
        }
    }

    // What is well-formed but for what the script says.
    void supplicantSpeaks() {
        const Mac address = macOf(script_.below(8));
        const uint8_t how = script_.u8();
        Bytes body;
        if ((how & 3) == 0) {
            body = response(address, script_.u8());
        } else if ((how & 3) == 3) {
            body = script_.part();
        }
        static constexpr std::array<uint8_t, 4> kTypes = {0, 1, 2, 0};
        const size_t size = body.size() + (how >> 6);
        const Mac &destination = (how & 8) != 0 ? kOwnAddress : pnac::kPaeGroup;
        Bytes frame(destination.begin(), destination.end());
        frame.insert(frame.end(), address.begin(), address.end());
        frame.insert(frame.end(),
                     {0x88, 0x8e, static_cast<uint8_t>(1 + ((how >> 4) & 1)), kTypes[how & 3],
                      static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)});
        frame.insert(frame.end(), body.begin(), body.end());
        authenticator_.receiveFrame(frame, now_);
    }

    // To the last request that the supplicant got, or near to it.
    Bytes response(const Mac &address, uint8_t kind) {
        Bytes data = script_.part();
        const auto identifier = static_cast<uint8_t>(identifiers_[address] + (kind >> 6));
        const size_t size = 5 + data.size();
        const auto type = static_cast<uint8_t>((kind & 1) != 0 ? 1 : 4);
        Bytes packet = {2, identifier, static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size),
                        type};
        packet.insert(packet.end(), data.begin(), data.end());
        return packet;
    }

    void relaySpeaks() {
        if (cookies_.empty()) {
            return;
        }
        const uint32_t cookie = cookies_[cookies_.size() - 1 - script_.u8() % cookies_.size()];
        const uint8_t code = script_.u8();
        Bytes payload = {static_cast<uint8_t>(1 + code % 4), script_.u8(), 0, 4};
        if (payload[0] == 1) {
            const Bytes data = script_.part();
            payload[3] = static_cast<uint8_t>(5 + data.size() % 250);
            payload.push_back(4);
            payload.insert(payload.end(), data.begin(), data.end());
            payload.resize(payload[3]);
        }
        const Bytes block = script_.part();
        payload.insert(payload.end(), block.begin(), block.end());
        Bytes record(kHeadSize);
        const std::array<uint32_t, 3> head = {cookie, RAD_EAP_NO_CMD,
                                              static_cast<uint32_t>(payload.size() + (code >> 7))};
        std::memcpy(record.data(), head.data(), sizeof(head));
        record.insert(record.end(), payload.begin(), payload.end());
        receive(record);
    }

    // The one way into a session: a Success, with a cookie that the supplicant's own records had.
    void receive(const Bytes &record) {
        const auto owner = owners_.find(wordAt(record, 0));
        const bool isSuccess = record.size() >= kHeadSize + 4 &&
                               record[kHeadSize] == static_cast<uint8_t>(EapCode::kSuccess);
        if (isSuccess && owner != owners_.end()) {
            accepting_ = owner->second;
        }
        authenticator_.receiveRecord(record, now_);
        accepting_.reset();
    }

    void pass(pnac::Duration duration) {
        const pnac::Time end = now_ + duration;
        int turns = 0;
        for (auto next = authenticator_.nextDeadline(); next && *next <= end;
             next = authenticator_.nextDeadline()) {
            require(++turns < kTurnsMax, "what was due is not due again");
            now_ = std::max(now_, *next);
            authenticator_.tick(now_);
        }
        now_ = end;
        authenticator_.tick(now_);
    }

    void check() const {
        for (const auto &session : authenticator_.status().sessions) {
            require(accepted_.contains(session.address), "who has a session had a Success");
        }
    }

    // It takes a thousand times as long as a frame.
    void checkStatus() const {
        const std::string line =
            pnac::statusLine({.interface = "e1", .now = now_}, authenticator_.status(),
                             authenticator_.counters(), {});
        require(pnac::statusTable(line).has_value(), "the status is one");
    }

    void sendFrame(ByteView frame) override {
        require(frame.size() >= kEtherHead + 8, "a frame holds a packet");
        Mac destination{};
        std::copy_n(frame.begin(), destination.size(), destination.begin());
        const uint8_t code = frame[kEtherHead + 4];
        require(code != static_cast<uint8_t>(EapCode::kSuccess) || accepting_ == destination,
                "a Success goes to who had one");
        if (destination == pnac::kPaeGroup) {
            for (unsigned number = 0; number < 8; ++number) {
                identifiers_[macOf(number)] = frame[kEtherHead + 5];
            }
        }
        identifiers_[destination] = frame[kEtherHead + 5];
    }

    pnac::HandOver sendRecord(ByteView record) override {
        require(record.size() > kHeadSize, "a record holds a packet");
        if (handOver_ == pnac::HandOver::kTaken) {
            const uint32_t cookie = wordAt(record, 0);
            const Mac address = supplicantOf(record);
            const auto [owner, isNew] = owners_.emplace(cookie, address);
            require(owner->second == address, "no two supplicants have one cookie");
            cookies_.push_back(cookie);
        }
        return handOver_;
    }

    void report(const pnac::Event &event) override {
        if (event.kind == pnac::EventKind::kAuthorized) {
            require(accepting_ == event.address, "who is authorized has a Success at that moment");
            accepted_.insert(event.address);
        } else if (event.kind == pnac::EventKind::kUnauthorized) {
            accepted_.erase(event.address);
        }
    }

    Script &script_;
    const uint8_t options_;
    uint32_t random_ = 0;
    pnac::Time now_{seconds(1000)};
    pnac::HandOver handOver_ = pnac::HandOver::kTaken;
    std::map<Mac, uint8_t> identifiers_;  // of the last request to each
    std::vector<uint32_t> cookies_;
    std::map<uint32_t, Mac> owners_;
    std::optional<Mac> accepting_;  // whose Success is being read
    std::set<Mac> accepted_;
    pnac::Authenticator authenticator_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Script script(data, size);
    World(script).run();
    return 0;
}
