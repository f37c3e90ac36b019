#include "check.h"

#include <algorithm>
#include <array>
#include <sys/stat.h>
#include <vector>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>
#include <palcore.h>

#include "configuration.h"
#include "library_lines.h"
#include "words.h"

namespace lanyardctl {

namespace {

// Servers

std::string seconds(int32_t timeout) {
    return timeout < 0 ? "the default time-out" : std::to_string(timeout) + " s";
}

std::string sends(int32_t retries) {
    return retries < 0 ? "the default retries"
           : retries == 0
               ? "sent once"
               : "sent again " + std::to_string(retries) + (retries == 1 ? " time" : " times");
}

std::string characters(const char *text) {
    const size_t count = std::string(text).size();
    return std::to_string(count) + (count == 1 ? " character" : " characters");
}

// The NAS-Identifier may be the rest of a secret.
std::string meaningOf(const RadServer &server) {
    return std::string(server.host) + ", port " + std::to_string(server.port) + ", " +
           seconds(server.timeout) + ", " + sends(server.retries) + ", a secret of " +
           characters(server.secret) +
           (server.extra ? ", a NAS-Identifier of " + characters(server.extra) : "");
}

// A number of an entry that the library does not read as it is written. What is written may be the start of a
// secret with a colon in it, so it is not shown.
void compareNumber(LineFinding &line, const std::string &host, const char *what,
                   const std::string &written, long long read) {
    constexpr size_t kDigitsMax = 9;
    if (!isDigits(written)) {
        line.doubt(host + ": the " + what + " is read as " + std::to_string(read) +
                   ", and what is written is no number");
    } else if (written.size() > kDigitsMax || std::stoll(written) != read) {
        line.doubt(host + ": the " + what + " is read as " + std::to_string(read) +
                   ", and what is written is another number");
    }
}

// What a person may have meant otherwise.
void compare(LineFinding &line, const std::string &entry, const RadServer &server) {
    const std::vector<std::string> fields = split(entry, ":");
    const std::string host = server.host;
    if (entry.find("::") != std::string::npos || entry.starts_with(':') ||
        entry.find('[') != std::string::npos) {
        line.doubt("read as host '" + host +
                   "': empty fields between colons do not count, and there are no IPv6 addresses");
    }
    const size_t last = fields.size() - 1;
    if (last > 1) {
        compareNumber(line, host, "port", fields[1], fields[1] == "0" ? 0 : server.port);
    }
    if (last > 2 && fields[2] != "-1") {
        compareNumber(line, host, "time-out", fields[2], server.timeout);
    }
    if (last > 3 && fields[2] != "-1" && fields[3] != "-1") {
        compareNumber(line, host, "retry count", fields[3], server.retries);
    }
    if (std::find(fields.begin(), fields.end(), "-1") != fields.end()) {
        line.doubt(host +
                   ": -1 does not stand for the default: it is skipped, and the next field "
                   "takes its place");
    }
    if (server.timeout == 0) {
        line.doubt(host + ": with a time-out of 0 no answer is waited for");
    }
    if (server.extra) {
        line.doubt(host +
                   ": what follows the secret's colon is taken for a NAS-Identifier; if it "
                   "belongs to the secret, change the secret: it can hold no colon");
    }
    if (last > 5) {
        line.doubt(host + ": what follows the NAS-Identifier is ignored");
    }
}

// Why the library refuses an entry, which is the first one that it did not add. One without a colon is not shown: it
// may be the end of a secret with a blank or a comma in it.
std::string refusalOf(const std::string &entry, size_t number) {
    const std::vector<std::string> fields = split(entry, ":");
    if (entry.starts_with('#')) {
        return "a comment cannot follow at a line's end: '#' is taken for a server";
    }
    if (fields.size() < 2) {
        return "server " + std::to_string(number) +
               " of the line has no secret: an entry is host[:port[:timeout[:retries]]]:secret, "
               "and "
               "a secret holds no blank and no comma";
    }
    const std::string &host = fields[0];
    constexpr std::array kNames = {"port", "time-out", "retry count"};
    for (size_t i = 0; i < kNames.size() && i + 2 < fields.size(); ++i) {
        if (!startsWithDigit(fields[i + 1]) && fields[i + 1] != "-1") {
            return host + ": what stands in the place of the " + kNames[i] +
                   " is no number; if it belongs to the secret: a secret holds no colon";
        }
    }
    return host + ": cannot be added";
}

void checkServers(LineFinding &line, const std::string &value, int kind) {
    const bool isAuth = kind == RAD_SERVER_AUTH;
    const auto index = isAuth ? RAD_CONF_AUTH_SERVERS : RAD_CONF_ACCT_SERVERS;
    if (radConfGet(index)) {
        return line.refuse(
            "a second line of this keyword: all servers of a kind stand on one line");
    }
    const bool isSet =
        (isAuth ? radConfSetAuthServ(value.c_str()) : radConfSetAcctServ(value.c_str())) == 0;
    const std::vector<std::string> entries = split(value, ", \t");
    const auto added = static_cast<size_t>(radConfGetNumServers(kind));
    const auto *servers = static_cast<const RadServer *>(radConfGet(index));
    for (size_t i = 0; servers && i < added; ++i) {
        line.meanings.push_back(meaningOf(servers[i]));
        compare(line, entries[i], servers[i]);
    }
    if (isSet && added == 0) {
        line.doubt("names no server");
    } else if (!isSet && entries.empty()) {
        line.refuse("names no server");
    } else if (!isSet && added == RAD_SERVERS_MAX) {
        line.refuse("names " + std::to_string(entries.size()) +
                    " servers, and there is place for eight");
    } else if (!isSet) {
        const size_t refused = std::min(added, entries.size() - 1);
        line.refuse(refusalOf(entries[refused], refused + 1));
    }
}

// The other options

void checkAuthServers(LineFinding &line, const std::string &value) {
    checkServers(line, value, RAD_SERVER_AUTH);
}

void checkAcctServers(LineFinding &line, const std::string &value) {
    checkServers(line, value, RAD_SERVER_ACCT);
}

void checkDictionaryOption(LineFinding &line, const std::string &value) {
    if (radConfGet(RAD_CONF_DICTIONARY)) {
        return line.refuse("a second line of this keyword");
    }
    if (radConfSetDict(value.c_str()) == 0) {
        line.meanings.push_back("dictionary " + value + ", in place of the built-in one");
        return;
    }
    FILE *file = palFileOpen(value.c_str(), "r");
    if (!file) {
        return line.refuse("the dictionary file '" + value + "' cannot be opened");
    }
    palFileClose(file);
    line.refuse("the dictionary " + value + " is refused; 'lanyardctl dict check " + value +
                "' says why");
}

void checkNumber(LineFinding &line, const std::string &value, int (*set)(const char *), int index,
                 const char *what, const char *unit) {
    if (set(value.c_str()) != 0) {
        return line.refuse(std::string(what) + " is no number");
    }
    const int32_t read = *static_cast<const int32_t *>(radConfGet(static_cast<uint32_t>(index)));
    line.meanings.push_back(std::string(what) + " " + std::to_string(read) + unit);
    const std::string written = value.ends_with('\r') ? value.substr(0, value.size() - 1) : value;
    compareNumber(line, "default", what, written, read);
}

void checkTimeout(LineFinding &line, const std::string &value) {
    checkNumber(line, value, radConfSetTimeout, RAD_CONF_TIMEOUT, "time-out", " s");
}

void checkRetries(LineFinding &line, const std::string &value) {
    checkNumber(line, value, radConfSetRetries, RAD_CONF_RETRIES, "retry count", "");
}

struct Keyword {
    const char *word;
    void (*check)(LineFinding &line, const std::string &value);
};
constexpr std::array<Keyword, 5> kKeywords = {{{"authserver", checkAuthServers},
                                               {"acctserver", checkAcctServers},
                                               {"dictionary", checkDictionaryOption},
                                               {"timeout", checkTimeout},
                                               {"retries", checkRetries}}};

void checkLine(LineFinding &line, const std::string &text) {
    const size_t end = std::min(text.find_first_of(" \t"), text.size());
    if (end == 0) {
        return line.refuse("begins with a blank, and a keyword has to stand at the start");
    }
    const std::string word = text.substr(0, end);
    const auto *const keyword =
        std::find_if(kKeywords.begin(), kKeywords.end(),
                     [&word](const Keyword &row) { return word == row.word; });
    if (keyword == kKeywords.end()) {
        return line.refuse(line.isRest ? "the rest of the line above is taken for a keyword"
                                       : "unknown keyword '" + word +
                                             "': authserver, acctserver, dictionary, timeout or "
                                             "retries");
    }
    const size_t start = text.find_first_not_of(" \t\n\v\f\r", std::min(end + 1, text.size()));
    keyword->check(line, start == std::string::npos ? "" : text.substr(start));
}

void noteMode(FileFindings &findings) {
    FILE *file = palFileOpen(findings.file.c_str(), "r");
    struct stat status {};
    if (file && fstat(fileno(file), &status) == 0 && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        LineFinding &line = findings.lines.emplace_back();
        line.doubt("others than its owner have access to the secrets: chmod 600");
    }
    if (file) {
        palFileClose(file);
    }
}

}  // namespace

FileFindings checkConfiguration(const std::string &file) {
    const Library library;
    FileFindings findings{file};
    findings.isAccepted = radLibInit(file.c_str()) == 0;
    radLibExit();
    radLibInit(nullptr);
    radConfSetTimeout("10");
    radConfSetRetries("3");
    forEachLine(findings, kConfigurationBuffer, checkLine);
    if (radConfGetNumServers(RAD_SERVER_AUTH) == 0) {
        LineFinding &line = findings.lines.emplace_back();
        line.refuse("there is no authentication server");
    }
    const auto wrong = std::find_if(findings.lines.begin(), findings.lines.end(),
                                    [](const LineFinding &line) { return line.isWrong; });
    for (auto after = wrong; after != findings.lines.end() && ++after != findings.lines.end();) {
        if (after->number != 0) {
            after->meanings.insert(after->meanings.begin(), "not read: the library stops at line " +
                                                                std::to_string(wrong->number));
        }
    }
    noteMode(findings);
    return findings;
}

}  // namespace lanyardctl
