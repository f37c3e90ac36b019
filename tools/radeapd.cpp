/**
 * @file
 * radeapd: the EAP relay as a service.
 */
#include <cstdlib>

#include <lanyard/radius/eap.h>
#include <lanyard/radius/frame.h>
#include <palcore.h>

namespace {

// The library's own partition holds about two hundred conversations. A switch that starts anew has
// all its supplicants log in at once: this holds two thousand.
constexpr uint32_t kPartitionSize = 2U << 20U;

}  // namespace

int main(int argc, char *argv[]) {
    radiusPartIdInit(palMemPartCreate("radeapd", nullptr, kPartitionSize));
    return radEapMain(argc, argv) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
