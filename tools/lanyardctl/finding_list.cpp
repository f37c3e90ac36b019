#include "finding_list.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "style.h"
#include "table.h"

namespace lanyardctl {

namespace {

struct Grade {
    const char *word;
    Tone tone;
};

Grade gradeOf(const LineFinding &line) {
    if (line.isWrong) {
        return {"wrong", Tone::kBad};
    }
    return line.problems.empty() ? Grade{"ok", Tone::kGood} : Grade{"doubtful", Tone::kDoubtful};
}

Json documentOf(const FileFindings &findings, bool isRight) {
    Json list = Json::array();
    for (const LineFinding &line : findings.lines) {
        Json &json = list.emplace_back(Json::object());
        if (line.number != 0) {
            json["line"] = line.number;
        }
        json["grade"] = gradeOf(line).word;
        json["meanings"] = line.meanings;
        json["problems"] = line.problems;
    }
    return {{"ok", isRight},
            {"file", findings.file},
            {"accepted", findings.isAccepted},
            {"findings", list}};
}

std::string textOf(const FileFindings &findings, bool isRight) {
    std::vector<Line> lines = {{"LINE", "GRADE", "MEANING"}};
    for (const LineFinding &line : findings.lines) {
        const Grade grade = gradeOf(line);
        std::vector<std::string> words = line.meanings;
        std::copy(line.problems.begin(), line.problems.end(), std::back_inserter(words));
        std::string number = line.number == 0 ? "file" : std::to_string(line.number);
        std::string word = toned(grade.tone, grade.word);
        for (const std::string &text : words) {
            lines.push_back({number, word, shown(text)});
            number = word = "";
        }
    }
    const std::string verdict =
        isRight               ? toned(Tone::kGood, "right")
        : findings.isAccepted ? toned(Tone::kDoubtful, "the library reads it, perhaps not as meant")
                              : toned(Tone::kBad, "the library refuses it");
    return (lines.size() > 1 ? asTable(lines) + "\n" : "") + findings.file + ": " + verdict;
}

}  // namespace

ExitCode tell(const FileFindings &findings, const Report &report) {
    const bool isRight = findings.isAccepted &&
                         std::all_of(findings.lines.begin(), findings.lines.end(),
                                     [](const LineFinding &line) { return line.problems.empty(); });
    report.answer(documentOf(findings, isRight), textOf(findings, isRight));
    return isRight ? kDone : kNo;
}

}  // namespace lanyardctl
