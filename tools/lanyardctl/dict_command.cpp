// The group "dict": what the dictionary knows.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

#include "check.h"
#include "command.h"
#include "configuration.h"
#include "dictionary.h"
#include "table.h"

namespace lanyardctl {
namespace {

constexpr std::array kTypes = {"string", "integer", "ipaddr", "date"};

struct DictionaryOptions {
    std::optional<std::string> dictionary = {};
    std::string name = {};
};

Json attributeAsJson(const RadDictAttr &attribute) {
    return {{"number", attribute.attrNum},
            {"name", attribute.name},
            {"type", kTypes.at(static_cast<size_t>(attribute.type))}};
}

ExitCode listAttributes(const DictionaryOptions &options, const Report &report) {
    const Dictionary dictionary(options.dictionary);
    Json document = Json::array();
    std::vector<Line> lines = {{"NUMBER", "NAME", "TYPE"}};
    for (const RadDictAttr *attribute : allAttributes()) {
        document.push_back(attributeAsJson(*attribute));
        lines.push_back({std::to_string(attribute->attrNum), shown(attribute->name),
                         kTypes.at(static_cast<size_t>(attribute->type))});
    }
    report.answer({{"ok", true}, {"attributes", document}}, asTable(lines));
    return kDone;
}

const RadDictValue *findVendor(const std::string &name) {
    const std::vector<const RadDictValue *> all = allVendors();
    const auto found = std::find_if(all.begin(), all.end(), [&name](const RadDictValue *vendor) {
        return name == vendor->valueName;
    });
    return found == all.end() ? nullptr : *found;
}

// Numbers and names below a heading.
void answer(const Report &report, const char *kind, Json document, const std::string &heading,
            const char *listed, const std::vector<const RadDictValue *> &values) {
    Json &list = document[listed] = Json::array();
    std::vector<Line> lines = {{"VALUE", "NAME"}};
    for (const RadDictValue *value : values) {
        list.push_back({{"value", value->value}, {"name", value->valueName}});
        lines.push_back({std::to_string(value->value), shown(value->valueName)});
    }
    report.answer({{"ok", true}, {kind, document}},
                  heading + (values.empty() ? std::string(", without named ") + listed
                                            : "\n" + asTable(lines)));
}

ExitCode show(const DictionaryOptions &options, const Report &report) {
    const Dictionary dictionary(options.dictionary);
    if (const RadDictAttr *attribute = findAttribute(options.name)) {
        answer(report, "attribute", attributeAsJson(*attribute),
               shown(attribute->name) + ", attribute " + std::to_string(attribute->attrNum) + ", " +
                   kTypes.at(static_cast<size_t>(attribute->type)),
               "values", valuesOf(attribute->name));
    } else if (const RadDictValue *vendor = findVendor(options.name)) {
        answer(report, "vendor", {{"number", vendor->value}, {"name", vendor->valueName}},
               shown(vendor->valueName) + ", vendor " + std::to_string(vendor->value), "attributes",
               valuesOf(vendor->valueName));
    } else {
        throw Failure("the dictionary has no attribute or vendor '" + options.name + "'",
                      kNotFound);
    }
    return kDone;
}

ExitCode check(const DictionaryOptions &options, const Report &report) {
    return tell(checkDictionary(options.name), report);
}

struct DictionaryCommand {
    const char *name;
    const char *help;
    ExitCode (*run)(const DictionaryOptions &options, const Report &report);
    const char *argument;  // its name, nullptr for none
    const char *argumentHelp;
};
constexpr std::array<DictionaryCommand, 3> kDictionaryCommands = {
    {{"list", "Lists the attributes", listAttributes, nullptr, nullptr},
     {"show", "Shows an attribute and the names of its values, or a vendor and its attributes",
      show, "NAME", "of an attribute or a vendor, or an attribute's number"},
     {"check", "Tells what is wrong with a dictionary file", check, "FILE", "dictionary file"}}};

}  // namespace

void addDictCommands(CLI::App &app, Task &task) {
    const auto options = std::make_shared<DictionaryOptions>();
    CLI::App &group = addGroup(app, "dict", "The dictionary of attributes");
    for (const DictionaryCommand &row : kDictionaryCommands) {
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
