// The sample program over accounting.
#include <lanyard/radius/methods.h>

#include "base/log.h"
#include "login/sample_arguments.h"

using namespace lanyard;

int radAcctSampleInit(void) {
    return 0;
}

int radAcctSampleMain(int argc, char *argv[]) {
    const SampleStyle style{.function = __func__,
                            .options = "vf:s:",
                            .arguments = "[-s status]",
                            .usageLevel = 0,
                            .missingValueLevel = kLogError,
                            .startLevel = kLogError};
    SampleArguments arguments;
    if (!arguments.parseOptions(style, argc, argv) || !arguments.startLibrary(style)) {
        return -1;
    }
    return radAcct(arguments.status());
}
