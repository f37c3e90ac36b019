// The public functions as a table: what each needs, one call of it, and what it may answer.
#ifndef LANYARD_TESTS_UNIT_FAILURES_PUBLIC_FUNCTIONS_H
#define LANYARD_TESTS_UNIT_FAILURES_PUBLIC_FUNCTIONS_H

#include <ostream>
#include <string_view>
#include <vector>

#include "tests/unit/failures/world.h"

namespace lanyard::test {

// What may have changed after a call that failed, or did its work in spite of a failure.
enum class Leaves {
    kAllOrNothing,  // what a call without a failure changes, or nothing
    kSome           // as its description says; the tests of its own folder have it
};

struct PublicFunction {
    const char *name;
    unsigned needs;
    int64_t (*call)(World &world);
    int64_t done = 0;                    // the result of a call without a failure
    std::vector<int64_t> failed = {-1};  // the results that a failure may lead to
    Leaves leaves = Leaves::kAllOrNothing;
};

void PrintTo(const PublicFunction &function, std::ostream *stream);

const std::vector<PublicFunction> &publicFunctions();

// Public functions that neither allocate nor call the system, but for the release of what is there.
const std::vector<std::string_view> &functionsThatCannotFail();

// The public variables.
const std::vector<std::string_view> &publicVariables();

}  // namespace lanyard::test

#endif
