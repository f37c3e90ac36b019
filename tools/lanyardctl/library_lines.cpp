#include "library_lines.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include <palcore.h>

namespace lanyardctl {

namespace {

// The library takes the last character of a line for its newline.
void checkEnd(LineFinding &finding, const std::string &piece, size_t bufferSize) {
    if (piece.ends_with("\r\n")) {
        finding.doubt(
            "ends with CR LF, as on Windows, and the CR belongs to the value: "
            "sed -i 's/\\r$//' puts it right");
    } else if (!piece.ends_with('\n') && piece.size() + 1 == bufferSize) {
        finding.doubt("longer than " + std::to_string(bufferSize - 2) +
                      " characters: the library loses the last of them and takes the rest for "
                      "another line");
    } else if (!piece.ends_with('\n')) {
        finding.doubt("has no newline at its end, so the library drops its last character");
    }
}

}  // namespace

void forEachLine(FileFindings &findings, int bufferSize,
                 const std::function<void(LineFinding &finding, const std::string &text)> &look) {
    const auto close = [](FILE *file) { palFileClose(file); };
    const std::unique_ptr<FILE, decltype(close)> file(palFileOpen(findings.file.c_str(), "r"),
                                                      close);
    if (!file) {
        throw Failure("cannot read " + findings.file + ": " + std::strerror(errno));
    }
    std::vector<char> buffer(static_cast<size_t>(bufferSize));
    bool isRest = false;
    for (int number = 1; palFileGets(buffer.data(), bufferSize, file.get()); ++number) {
        const std::string piece = buffer.data();
        const bool followsItself = std::exchange(isRest, !piece.ends_with('\n'));
        if (piece.empty() || piece[0] == '\n' || piece[0] == '#') {
            continue;
        }
        LineFinding finding{number, followsItself};
        checkEnd(finding, piece, buffer.size());
        look(finding, piece.substr(0, piece.size() - 1));
        if (!finding.meanings.empty() || !finding.problems.empty()) {
            findings.lines.push_back(finding);
        }
    }
    explicit_bzero(buffer.data(), buffer.size());
    if (ferror(file.get()) != 0) {
        throw Failure("cannot read " + findings.file + ": " + std::strerror(errno));
    }
}

}  // namespace lanyardctl
