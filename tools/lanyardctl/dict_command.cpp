// The group "dict": what the dictionary knows.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "check.h"
#include "command.h"
#include "configuration.h"
#include "table.h"

namespace lanyardctl {
namespace {

constexpr int kNumberMax = 255;   // of attributes
constexpr int kValueMax = 65535;  // of values that are looked for
constexpr std::array kTypes = {"string", "integer", "ipaddr", "date"};

struct Options {
    std::optional<std::string> dictionary = {};
    std::string name = {};
};

void load(const Options &options) {
    quietenLibrary();
    radLibInit(nullptr);
    if (radDictLoad(options.dictionary ? options.dictionary->c_str() : nullptr) != 0) {
        throw Failure("the dictionary " + *options.dictionary +
                      " cannot be loaded; 'lanyardctl dict check " + *options.dictionary +
                      "' says why");
    }
}

std::vector<const RadDictAttr *> allAttributes() {
    std::vector<const RadDictAttr *> attributes;
    for (int number = 0; number <= kNumberMax; ++number) {
        if (const RadDictAttr *attribute = radDictGetAttr(number)) {
            attributes.push_back(attribute);
        }
    }
    return attributes;
}

std::vector<const RadDictValue *> valuesOf(const RadDictAttr &attribute) {
    std::vector<const RadDictValue *> values;
    for (int number = 0; number <= kValueMax; ++number) {
        if (const RadDictValue *value = radDictGetVal(number, attribute.name)) {
            values.push_back(value);
        }
    }
    return values;
}

Json asJson(const RadDictAttr &attribute) {
    return {{"number", attribute.attrNum},
            {"name", attribute.name},
            {"type", kTypes.at(static_cast<size_t>(attribute.type))}};
}

ExitCode list(const Options &options, const Report &report) {
    load(options);
    Json document = Json::array();
    std::vector<Line> lines = {{"NUMBER", "NAME", "TYPE"}};
    for (const RadDictAttr *attribute : allAttributes()) {
        document.push_back(asJson(*attribute));
        lines.push_back({std::to_string(attribute->attrNum), shown(attribute->name),
                         kTypes.at(static_cast<size_t>(attribute->type))});
    }
    report.answer({{"ok", true}, {"attributes", document}}, asTable(lines));
    return kDone;
}

const RadDictAttr &find(const std::string &name) {
    const std::vector<const RadDictAttr *> all = allAttributes();
    const auto found = std::find_if(all.begin(), all.end(), [&name](const RadDictAttr *attribute) {
        return name == attribute->name || name == std::to_string(attribute->attrNum);
    });
    if (found == all.end()) {
        throw Failure("the dictionary has no attribute '" + name + "'", kNotFound);
    }
    const RadDictAttr *attribute = *found;
    return *attribute;
}

ExitCode show(const Options &options, const Report &report) {
    load(options);
    const RadDictAttr &attribute = find(options.name);
    Json document = asJson(attribute);
    Json &values = document["values"] = Json::array();
    std::vector<Line> lines = {{"VALUE", "NAME"}};
    for (const RadDictValue *value : valuesOf(attribute)) {
        values.push_back({{"value", value->value}, {"name", value->valueName}});
        lines.push_back({std::to_string(value->value), shown(value->valueName)});
    }
    report.answer({{"ok", true}, {"attribute", document}},
                  shown(attribute.name) + ", attribute " + std::to_string(attribute.attrNum) +
                      ", " + kTypes.at(static_cast<size_t>(attribute.type)) +
                      (lines.size() > 1 ? "\n" + asTable(lines) : ", without named values"));
    return kDone;
}

ExitCode check(const Options &options, const Report &report) {
    return tell(checkDictionary(options.name), report);
}

struct Command {
    const char *name;
    const char *help;
    ExitCode (*run)(const Options &options, const Report &report);
    const char *argument;  // its name, nullptr for none
    const char *argumentHelp;
};
constexpr std::array<Command, 3> kCommands = {
    {{"list", "Lists the attributes", list, nullptr, nullptr},
     {"show", "Shows an attribute and the names of its values", show, "ATTRIBUTE",
      "its name or number"},
     {"check", "Tells what is wrong with a dictionary file", check, "FILE", "dictionary file"}}};

}  // namespace

void addDictCommands(CLI::App &app, Task &task) {
    const auto options = std::make_shared<Options>();
    CLI::App &group = addGroup(app, "dict", "The dictionary of attributes");
    for (const Command &row : kCommands) {
        CLI::App &command =
            addCommand(group, row.name, row.help, task,
                       [options, &row](Report &report) { return row.run(*options, report); });
        if (row.argument) {
            addText(command, row.argument, options->name, "", row.argumentHelp).required();
        }
        if (row.run != check) {
            addText(command, "--dictionary", options->dictionary, "FILE",
                    "dictionary file; the built-in table without it");
        }
    }
}

}  // namespace lanyardctl
