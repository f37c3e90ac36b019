// The end-to-end tests' own start: into namespaces first, while there is no thread.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <gmock/gmock.h>
#include <string>

#include "tests/e2e/end_to_end.h"
#include "tests/e2e/namespaces.h"

int main(int argc, char *argv[]) {
    try {
        lanyard::test::enterOwnNamespaces();
    } catch (const std::exception &refusal) {
        const std::string reason =
            std::string("this machine does not allow namespaces: ") + refusal.what();
        // Where everything is checked, what cannot be checked is a failure.
        const char *ci = std::getenv("CI");
        if (ci != nullptr && std::string(ci) == "true") {
            (void)std::fprintf(stderr, "%s\n", reason.c_str());
            return EXIT_FAILURE;
        }
        lanyard::test::EndToEnd::skip(reason);
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
