#include "accounting_sender.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/loop.h>

#include "trouble.h"

namespace lanyardctl {

namespace {

using Clock = std::chrono::steady_clock;

struct PairListFree {
    void operator()(RadPair *list) const { radPairListFree(list); }
};

struct Answer {
    bool isOver = false;
    bool isGood = false;
    double milliseconds = 0;
    std::vector<RadLastError> servers;
    Clock::time_point start = Clock::now();
};

void noteAnswer(void *context, RadRequest * /*request*/, int code, RadPair *reply) {
    radPairListFree(reply);
    auto &answer = *static_cast<Answer *>(context);
    answer.isOver = true;
    answer.isGood = code == RAD_CODE_ACCOUNTING_RESPONSE;
    answer.milliseconds =
        std::chrono::duration<double, std::milli>(Clock::now() - answer.start).count();
    answer.servers = askedServers();
}

// The attributes of a record, with Acct-Delay-Time: it makes the library say how much later each try is.
std::unique_ptr<RadPair, PairListFree> pairsOf(const Record &record) {
    const PacketView packet(record.packet);
    for (const RawAttribute &attribute : packet.attributes()) {
        // Another dictionary may have been in use when the record was made; bytes are bytes.
        if (!radDictGetAttr(attribute.number)) {
            std::ostringstream line;
            line << "Attribute-" << +attribute.number << ' ' << +attribute.number << " string";
            radDictAddAttr(line.str().c_str());
        }
    }
    const int64_t age = time(nullptr) - record.made;
    const auto delay =
        static_cast<uint32_t>(std::clamp<int64_t>(age, 0, std::numeric_limits<uint32_t>::max()));
    RadPair *list = nullptr;
    const bool isWhole =
        radPairGen(reinterpret_cast<const RadPacket *>(record.packet.data()), &list) == 0 &&
        radPairAdd(&list, RAD_ATTR_ACCT_DELAY_TIME, &delay, 0);
    std::unique_ptr<RadPair, PairListFree> pairs(list);
    if (!isWhole) {
        throw Failure("record " + std::to_string(record.id) +
                      " cannot be read with this dictionary, or memory is exhausted");
    }
    return pairs;
}

class Sender {
  public:
    Answer send(const Record &record) {
        Answer answer;
        if (!loop_ || !radRequestStart(loop_.get(), RAD_CODE_ACCOUNTING_REQUEST,
                                       pairsOf(record).get(), noteAnswer, &answer)) {
            throw Failure("out of memory or descriptors");
        }
        while (!answer.isOver) {
            if (radLoopRun(loop_.get(), -1) < 0) {
                throw Failure(std::string("waiting for a server: ") + std::strerror(errno));
            }
        }
        return answer;
    }

  private:
    std::unique_ptr<RadLoop, decltype(&radLoopDestroy)> loop_{radLoopCreate(), radLoopDestroy};
};

// Whether a record has to be in front of another one.
bool precedes(const Record &record, const Record &other) {
    return record.id <= other.id &&
           (record.isOfDevice() || other.isOfDevice() || record.session == other.session);
}

}  // namespace

Delivery deliver(const AccountingQueue &queue, int64_t only) {
    constexpr int kSilentSessions = 2;
    Delivery delivery;
    Sender sender;
    const auto wanted = only != 0 ? queue.next(only - 1) : std::nullopt;
    std::set<std::string> held;
    int inVain = 0;  // sessions in a row
    for (auto record = queue.next(0); record && inVain < kSilentSessions;
         record = queue.next(record->id)) {
        if (held.contains(record->session) || (wanted && !precedes(*record, *wanted))) {
            continue;
        }
        if (record->isOfDevice() && !held.empty()) {
            break;
        }
        const Answer answer = sender.send(*record);
        if (answer.isGood) {
            queue.remove(record->id);
            ++delivery.sent;
            delivery.milliseconds = answer.milliseconds;
            delivery.servers = answer.servers;
            inVain = 0;
            continue;
        }
        if (delivery.unanswered++ == 0) {
            delivery.silent = answer.servers;
        }
        held.insert(record->session);
        inVain = record->isOfDevice() ? kSilentSessions : inVain + 1;
    }
    if (inVain != 0) {
        queue.noteSilence();
    }
    return delivery;
}

}  // namespace lanyardctl
