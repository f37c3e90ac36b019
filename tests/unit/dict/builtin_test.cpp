// The built-in dictionary: all of it, and nothing else. What it has to hold is the first part of the
// dictionary file that is shipped.
#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/test.h"
#include "tests/unit/dict/dict_fixture.h"

namespace lanyard::test::builtin_test {
namespace {

struct Attribute {
    std::string name;
    int32_t number;
    int32_t type;
};

struct NamedValue {
    std::string attribute;
    std::string name;
    int32_t value;
};

struct Table {
    std::vector<Attribute> attributes;
    std::vector<NamedValue> values;
};

// Names of types in the file, by their numbers.
constexpr std::array<const char *, 4> kTypes = {"string", "integer", "ipaddr", "date"};
static_assert(RAD_TYPE_STRING == 0 && RAD_TYPE_INTEGER == 1 && RAD_TYPE_IPADDR == 2 &&
              RAD_TYPE_DATE == 3);

// The part of the shipped dictionary file between its headings "The built-in table" and "Further".
Table readTable() {
    Table table;
    std::ifstream file(LANYARD_DICTIONARY);
    std::string line;
    bool inTable = false;
    while (std::getline(file, line) && !line.starts_with("# Further")) {
        inTable = inTable || line == "# The built-in table.";
        if (!inTable || line.empty() || line.front() == '#') {
            continue;
        }
        std::istringstream fields(line);
        std::string keyword;
        std::string first;
        fields >> keyword >> first;
        if (keyword == "ATTRIBUTE") {
            int32_t number = 0;
            std::string type;
            EXPECT_TRUE(fields >> number >> type) << line;
            const auto *known = std::find(kTypes.begin(), kTypes.end(), type);
            EXPECT_NE(kTypes.end(), known) << line;
            table.attributes.push_back(
                {first, number, static_cast<int32_t>(known - kTypes.begin())});
        } else {
            int32_t value = 0;
            std::string name;
            EXPECT_EQ("VALUE", keyword) << line;
            EXPECT_TRUE(fields >> name >> value) << line;
            table.values.push_back({first, name, value});
        }
    }
    return table;
}

// A definition with one blank between its fields, however the table pads them.
std::string squeezed(const std::string &text) {
    std::istringstream words(text);
    std::string result;
    for (std::string word; words >> word;) {
        result += (result.empty() ? "" : " ") + word;
    }
    return result;
}

class BuiltinDictionary : public DictTest {
  protected:
    void SetUp() override {
        DictTest::SetUp();
        ASSERT_EQ(43U, attributes_.size());
        ASSERT_EQ(51U, values_.size());
        ASSERT_EQ(0, radDictLoad(nullptr));
    }

    [[nodiscard]] bool holdsAttribute(int32_t number) const {
        return std::any_of(attributes_.begin(), attributes_.end(),
                           [number](const Attribute &known) { return known.number == number; });
    }

    [[nodiscard]] bool holdsValue(int32_t value, const std::string &attribute) const {
        return std::any_of(values_.begin(), values_.end(), [&](const NamedValue &known) {
            return known.value == value && known.attribute == attribute;
        });
    }

    // How many entries are there, which are the first ones of the table.
    [[nodiscard]] size_t countLoaded() const {
        size_t count = 0;
        for (const Attribute &known : attributes_) {
            if (radDictGetAttr(known.number) != nullptr) {
                EXPECT_EQ(&known, &attributes_.at(count++));
            }
        }
        for (const NamedValue &known : values_) {
            if (radDictGetVal(known.value, known.attribute.c_str()) != nullptr) {
                EXPECT_EQ(&known, &values_.at(count++ - attributes_.size()));
            }
        }
        return count;
    }

  private:
    const Table table_ = readTable();

  protected:
    const std::vector<Attribute> &attributes_ = table_.attributes;
    const std::vector<NamedValue> &values_ = table_.values;
};

TEST_F(BuiltinDictionary, LoadsWithoutAMessageOfItsOwn) {
    EXPECT_LOG(log, "trace radDictUnload> Unloaded RADIUS Dictionary");
}

TEST_F(BuiltinDictionary, KnowsItsAttributes) {
    for (const Attribute &known : attributes_) {
        SCOPED_TRACE(known.name);
        const RadDictAttr *attribute = radDictGetAttr(known.number);
        ASSERT_NE(nullptr, attribute);
        EXPECT_EQ(known.name, attribute->name);
        EXPECT_EQ(known.number, attribute->attrNum);
        EXPECT_EQ(known.type, attribute->type);
    }
}

TEST_F(BuiltinDictionary, KnowsNoOtherAttribute) {
    for (int32_t number = -2; number < 600; ++number) {
        EXPECT_EQ(holdsAttribute(number), radDictGetAttr(number) != nullptr) << number;
    }
    EXPECT_EQ(nullptr, radDictGetAttr(INT32_MAX));
    EXPECT_EQ(nullptr, radDictGetAttr(INT32_MIN));
}

TEST_F(BuiltinDictionary, KnowsItsValues) {
    for (const NamedValue &known : values_) {
        SCOPED_TRACE(known.attribute + ' ' + known.name);
        const RadDictValue *value = radDictGetVal(known.value, known.attribute.c_str());
        ASSERT_NE(nullptr, value);
        EXPECT_EQ(known.attribute, value->attrName);
        EXPECT_EQ(known.name, value->valueName);
        EXPECT_EQ(known.value, value->value);
    }
}

TEST_F(BuiltinDictionary, KnowsNoOtherValue) {
    for (const Attribute &attribute : attributes_) {
        for (int32_t number = -1; number < 130; ++number) {
            EXPECT_EQ(holdsValue(number, attribute.name),
                      radDictGetVal(number, attribute.name.c_str()) != nullptr)
                << attribute.name << ' ' << number;
        }
    }
}

TEST_F(BuiltinDictionary, ComparesNamesExactly) {
    const RadDictValue *value = radDictGetVal(2, "Service-Type");
    ASSERT_NE(nullptr, value);
    EXPECT_STREQ("Framed-User", value->valueName);
    EXPECT_EQ(nullptr, radDictGetVal(2, nullptr));
    EXPECT_EQ(nullptr, radDictGetVal(2, ""));
    EXPECT_EQ(nullptr, radDictGetVal(2, "service-type"));
    EXPECT_EQ(nullptr, radDictGetVal(2, "Service-Typ"));
    EXPECT_EQ(nullptr, radDictGetVal(2, "Service-Type "));
    EXPECT_EQ(nullptr, radDictGetVal(2, "Service-Types"));
}

// The lists run from the newest entry to the oldest, so they show the table from its end.
TEST_F(BuiltinDictionary, HoldsItsTableInOrder) {
    const RadDictAttr *attribute = radDictGetAttr(attributes_.back().number);
    for (auto known = attributes_.rbegin(); known != attributes_.rend(); ++known) {
        ASSERT_NE(nullptr, attribute) << known->name;
        EXPECT_EQ(known->name, attribute->name);
        attribute = attribute->next;
    }
    EXPECT_EQ(nullptr, attribute);

    const RadDictValue *value =
        radDictGetVal(values_.back().value, values_.back().attribute.c_str());
    for (auto known = values_.rbegin(); known != values_.rend(); ++known) {
        ASSERT_NE(nullptr, value) << known->name;
        EXPECT_EQ(known->attribute, value->attrName);
        EXPECT_EQ(known->name, value->valueName);
        value = value->next;
    }
    EXPECT_EQ(nullptr, value);
}

TEST_F(BuiltinDictionary, IsThereOnceHoweverOftenItIsLoaded) {
    const size_t blocks = liveBlocks();
    EXPECT_NE(0U, blocks);
    EXPECT_EQ(0, radDictLoad(nullptr));
    EXPECT_EQ(blocks, liveBlocks());
}

TEST_F(BuiltinDictionary, IsGoneAfterUnloading) {
    log.clear();
    EXPECT_EQ(0, radDictUnload());
    EXPECT_LOG(log, "trace radDictUnload> Unloaded RADIUS Dictionary");
    EXPECT_EQ(0U, liveBlocks());
    for (const Attribute &known : attributes_) {
        EXPECT_EQ(nullptr, radDictGetAttr(known.number)) << known.name;
    }
    for (const NamedValue &known : values_) {
        EXPECT_EQ(nullptr, radDictGetVal(known.value, known.attribute.c_str())) << known.name;
    }
    EXPECT_EQ(0, radDictUnload());
}

// Many entries share a block. The first one of each block is where the table may end.
TEST_F(BuiltinDictionary, StopsAtTheEntryThatFindsNoMemory) {
    EXPECT_EQ(0, radDictUnload());
    size_t loadedBefore = 0;
    bool valuesFailed = false;
    const unsigned failures = forEachFailingAllocation([&] {
        log.clear();
        const int status = radDictLoad(nullptr);
        const std::vector<LogLine> problems = log.problems();
        if (!allocationFailed()) {
            EXPECT_EQ(0, status);
            EXPECT_EQ(0, radDictUnload());
            EXPECT_PROBLEMS(log);
            return;
        }
        EXPECT_EQ(-1, status);
        const size_t loaded = countLoaded();
        EXPECT_TRUE(loaded > loadedBefore || loadedBefore == 0) << "what came before stays loaded";
        loadedBefore = loaded;
        EXPECT_EQ(0, radDictUnload());

        const bool isAttribute = loaded < attributes_.size();
        valuesFailed |= !isAttribute;
        ASSERT_EQ(2U, problems.size());
        EXPECT_THAT(problems[0],
                    isAttribute
                        ? Logged(7, 4, "radDictAddAttr", "radDictAddAttr: out of memory\n")
                        : Logged(7, 4, "radDictAddValue", "radDictAddValue: out of memory\n"));
        const LogLine &last = problems.back();
        EXPECT_EQ(7, last.module);
        EXPECT_EQ(8, last.level);
        EXPECT_EQ("radDictLoad", last.function);
        std::ostringstream expected;
        if (isAttribute) {
            const Attribute &known = attributes_.at(loaded);
            expected << "radDictLoad: Invalid Attribute '" << known.name << ' ' << known.number
                     << ' ' << kTypes.at(static_cast<size_t>(known.type)) << '\'';
        } else {
            const NamedValue &known = values_.at(loaded - attributes_.size());
            expected << "radDictLoad: Invalid Attribute Translation Value '" << known.attribute
                     << ' ' << known.name << ' ' << known.value << '\'';
        }
        EXPECT_EQ(expected.str(), squeezed(last.text));
        EXPECT_EQ('\n', last.text.back());
    });
    EXPECT_TRUE(valuesFailed);
    EXPECT_GE(60U, failures);
}

}  // namespace
}  // namespace lanyard::test::builtin_test
