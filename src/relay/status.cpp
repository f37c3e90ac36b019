// The relay's status, as one JSON object.
#include <cstdarg>
#include <cstdio>
#include <span>

#include <lanyard/radius/eap.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/status.h>

#include "relay/in_flight.h"

namespace lanyard {
namespace {

// Text into a buffer that may be too small.
class Text {
  public:
    explicit Text(std::span<char> room) : room_(room) {}

    __attribute__((format(printf, 2, 3))) void add(const char *format, ...) {
        va_list arguments;
        va_start(arguments, format);
        const int size =
            std::vsnprintf(room_.data() + size_, room_.size() - size_, format, arguments);
        va_end(arguments);
        isWhole_ = isWhole_ && size >= 0 && static_cast<size_t>(size) < room_.size() - size_;
        size_ += isWhole_ ? static_cast<size_t>(size) : 0;
    }

    bool isWhole() const { return isWhole_; }
    size_t size() const { return size_; }

    // Takes it back to an earlier size.
    void cut(size_t size) {
        size_ = size;
        isWhole_ = true;
    }

  private:
    std::span<char> room_;
    size_t size_ = 0;
    bool isWhole_ = true;
};

using Number = unsigned long long;

void addServer(Text &text, const RadServerStatus &server) {
    text.add(R"({"host":"%s","port":%u,"alive":%s,"dead_seconds":%u,"pending":%u,)", server.host,
             server.port, server.alive ? "true" : "false", server.deadSeconds, server.pending);
    text.add(R"("requests":%llu,"retransmissions":%llu,"timeouts":%llu,"accepts":%llu,)",
             static_cast<Number>(server.requests), static_cast<Number>(server.retransmissions),
             static_cast<Number>(server.timeouts), static_cast<Number>(server.accepts));
    text.add(R"("rejects":%llu,"challenges":%llu,"responses":%llu,"malformed":%llu,)",
             static_cast<Number>(server.rejects), static_cast<Number>(server.challenges),
             static_cast<Number>(server.responses), static_cast<Number>(server.malformed));
    text.add(R"("bad_authenticators":%llu,"strays":%llu,"median_us":%u,"p95_us":%u})",
             static_cast<Number>(server.badAuthenticators), static_cast<Number>(server.strays),
             server.medianMicroseconds, server.slowMicroseconds);
}

}  // namespace

int writeStatus(char *buffer, uint32_t *size) {
    constexpr size_t kEndSize = sizeof "]}";
    if (!buffer || !size || *size <= kEndSize) {
        return -1;
    }
    int conversations = 0;
    for (const RadEapQueueEntry *entry = firstEntry(); entry; entry = nextEntry(entry)) {
        ++conversations;
    }
    Text text({buffer, *size - kEndSize});
    text.add(R"({"conversations":%d,"in_flight":%d,"limit":%d,"servers":[)", conversations,
             requestsInFlight(), radOptionGet(RAD_OPTION_EAP_IN_FLIGHT));
    if (!text.isWhole()) {
        return -1;
    }
    RadServerStatus server;
    for (int index = 0; radServerStatusAt(index, &server) == 0; ++index) {
        const size_t before = text.size();
        text.add("%s", index > 0 ? "," : "");
        addServer(text, server);
        // A server that does not fit is left out, and so are those after it.
        if (!text.isWhole()) {
            text.cut(before);
            break;
        }
    }
    *size = static_cast<uint32_t>(
        text.size() + static_cast<size_t>(std::snprintf(buffer + text.size(), kEndSize, "]}")));
    return 0;
}

}  // namespace lanyard
