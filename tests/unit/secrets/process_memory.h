// What another process has in its memory: all that a core image of it would show.
#ifndef LANYARD_TESTS_UNIT_SECRETS_PROCESS_MEMORY_H
#define LANYARD_TESTS_UNIT_SECRETS_PROCESS_MEMORY_H

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

#include "tests/support/bytes.h"

namespace lanyard::test {

// A secret and its name.
using Secrets = std::map<std::string, Bytes>;

// Where a writable mapping of the process holds eight bytes in a row of one of the secrets, each place as
// text. A process that cannot be looked at fails the test.
std::vector<std::string> findSecrets(pid_t process, const Secrets &secrets);

}  // namespace lanyard::test

#endif
