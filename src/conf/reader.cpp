// The configuration file: an option a line, keyword and value.
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <palcore.h>

#include "base/log.h"
#include "base/text.h"
#include "conf/store.h"

namespace lanyard {
namespace {

constexpr const char *kTag = "radConfigure";

const ConfOption *findOption(const char *keyword) {
    for (const ConfOption &option : radConf.options) {
        if (std::strcmp(keyword, option.keyword) == 0) {
            return &option;
        }
    }
    return nullptr;
}

// Takes one option line apart in place and sets the option.
int applyLine(char *line, int lineNumber, const char *path) {
    const size_t keywordLength = std::strcspn(line, " \t");
    if (keywordLength == 0) {
        radLogAs(kTag, kLogError, "radConfigure: %s: line %d: bogus format: %s\n", path, lineNumber,
                 line);
        return -1;
    }
    // Without a separator the value is empty, which every option refuses.
    char *value = line + keywordLength;
    if (*value) {
        *value++ = '\0';
    }
    const ConfOption *option = findOption(line);
    if (!option) {
        radLogAs(kTag, kLogError, "radConfigure: %s: line %d: unrecognized keyword: %s\n", path,
                 lineNumber, line);
        return -1;
    }
    radLogAs(kTag, kLogTrace, "Found Option %s on line %d of file %s\n", line, lineNumber, path);
    while (std::isspace(static_cast<unsigned char>(*value))) {
        ++value;
    }
    radLogAs(kTag, kLogTrace, "Setting Option %s with value %s\n", line, value);
    if (option->set(value) != 0) {
        // Given: an option that has a value after the failure counts as a duplicate, also when this
        // line set it before it failed.
        radLogAs(kTag, kLogError,
                 "radConfigure: %s: line %d: failed to set %soption : %s with value : %s\n", path,
                 lineNumber, option->value ? "duplicate " : "", line, value);
        return -1;
    }
    return 0;
}

using Line = std::array<char, 512>;

int readLines(FILE *file, const char *path, Line &line) {
    for (int lineNumber = 1; palFileGets(line.data(), static_cast<int>(line.size()), file);
         ++lineNumber) {
        if (line[0] == '\n' || line[0] == '#' || line[0] == '\0') {
            continue;
        }
        // Given: cuts the last character without looking at it. A last line without a newline loses
        // a real one, and so does each piece of a line longer than the buffer.
        line[std::strlen(line.data()) - 1] = '\0';
        if (applyLine(line.data(), lineNumber, path) != 0) {
            return -1;
        }
    }
    return 0;
}

int readFile(const char *path) {
    FILE *file = palFileOpen(path, "r");
    if (!file) {
        radLogAs(kTag, kLogError, "radConfigure: can't open %s: %s\n", path,
                 ErrorText(errno).text());
        return -1;
    }
    // A buffer of the stream's own would keep shared secrets after the file is closed.
    std::array<char, 1024> buffer{};
    std::setvbuf(file, buffer.data(), _IOFBF, buffer.size());
    Line line{};
    const int status = readLines(file, path, line);
    palFileClose(file);
    explicit_bzero(line.data(), line.size());
    explicit_bzero(buffer.data(), buffer.size());
    return status;
}

// Skips empty slots. Looks at as many servers as the count says.
bool allHaveSecrets(const ServerSlots &servers, uint32_t count) {
    for (const RadServer &server : servers) {
        if (count == 0) {
            break;
        }
        if (!server.host) {
            continue;
        }
        if (!server.secret) {
            radLogAs("radConfAssert", kLogError, "radConfAssert: Server %s Has No Secret\n",
                     server.host);
            return false;
        }
        --count;
    }
    return true;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radConfigure(const char *path) {
    if (!path) {
        return -1;
    }
    radDeconfigure();
    radDictLoad(nullptr);
    radConfSetTimeout("10");
    radConfSetRetries("3");

    if (readFile(path) != 0 || radConfAssert() != 0) {
        return -1;
    }
    radLog(kLogTrace, "RADIUS Configured\n");
    return 0;
}

int radConfAssert(void) {
    if (radConf.authCount == 0) {
        radLog(kLogError, "radConfAssert: No AuthServer Specified\n");
        return -1;
    }
    if (!radConfGet(RAD_CONF_TIMEOUT)) {
        radLog(kLogError, "radConfAssert: No Default Timeout Specified\n");
        return -1;
    }
    if (!radConfGet(RAD_CONF_RETRIES)) {
        radLog(kLogError, "radConfAssert: No Default Retry Count Specified\n");
        return -1;
    }
    if (!allHaveSecrets(radConf.authServers, radConf.authCount) ||
        !allHaveSecrets(radConf.acctServers, radConf.acctCount)) {
        return -1;
    }
    return 0;
}
