// Dictionaries of any size: the same answers as from the list, and few allocations.
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/support/temporary_root.h"
#include "tests/support/test.h"
#include "tests/unit/dict/dict_fixture.h"

namespace lanyard::test::growth_test {
namespace {

constexpr const char *kPath = "/var/radius.dict";
constexpr uint32_t kPartitionSize = 8 * 1024 * 1024;

class DictionaryGrowth : public DictTest {
  protected:
    void SetUp() override { ASSERT_EQ(0, radMemInit(kPartitionSize)); }

    size_t allocationsToLoad(const char *path) {
        const size_t before = allocationCount();
        EXPECT_EQ(0, radDictLoad(path));
        return allocationCount() - before;
    }

    TemporaryRoot root;
};

// Values of 40 attributes, 500 numbers each: most are defined once or twice, some never.
TEST_F(DictionaryGrowth, Of20000Values_FindsTheNewestOfEachNumber) {
    constexpr int kCount = 20'000;
    std::minstd_rand random(11);  // NOLINT(cert-msc32-c, cert-msc51-cpp): the same in each run
    const auto attributeName = [](unsigned i) { return "Attribute-" + std::to_string(i); };
    std::map<std::pair<std::string, int32_t>, std::string> newest;
    std::vector<std::string> names;
    for (int i = 0; i < kCount; ++i) {
        const std::string attribute = attributeName(static_cast<unsigned>(random() % 40));
        const auto number = static_cast<int32_t>(random() % 500);
        names.push_back("Value-" + std::to_string(i));
        ASSERT_EQ(0, radDictAddValue(
                         (attribute + ' ' + names.back() + ' ' + std::to_string(number)).c_str()));
        newest[{attribute, number}] = names.back();
    }
    ASSERT_LT(newest.size(), static_cast<size_t>(kCount));
    size_t known = 0;
    const RadDictValue *last = nullptr;
    for (unsigned i = 0; i <= 40; ++i) {
        for (int32_t number = -1; number <= 500; ++number) {
            const auto expected = newest.find({attributeName(i), number});
            const RadDictValue *found = radDictGetVal(number, attributeName(i).c_str());
            ASSERT_EQ(expected != newest.end(), found != nullptr) << i << ' ' << number;
            if (found != nullptr) {
                ASSERT_EQ(expected->second, found->valueName);
                ++known;
                last = found->valueName == names.back() ? found : last;
            }
        }
    }
    EXPECT_EQ(newest.size(), known);
    // The list has all of them, the hidden ones too, newest first.
    for (auto name = names.rbegin(); name != names.rend(); ++name, last = last->next) {
        ASSERT_NE(nullptr, last);
        ASSERT_EQ(*name, last->valueName);
    }
    EXPECT_EQ(nullptr, last);
}

TEST_F(DictionaryGrowth, WithoutMemoryForALargerIndex_FindsAllTheSame) {
    std::string text;
    for (int i = 0; i < 300; ++i) {
        text += "VALUE Foo Bar-" + std::to_string(i) + ' ' + std::to_string(i) + '\n';
    }
    root.write(kPath, text);
    unsigned withSmallerIndex = 0;
    const unsigned failures = forEachFailingAllocation([&] {
        const int status = radDictLoad(kPath);
        if (status == 0) {
            withSmallerIndex += allocationFailed() ? 1 : 0;
            for (int32_t i = 0; i < 300; ++i) {
                const RadDictValue *found = radDictGetVal(i, "Foo");
                ASSERT_NE(nullptr, found) << i;
                EXPECT_EQ("Bar-" + std::to_string(i), found->valueName);
            }
        } else {
            EXPECT_TRUE(allocationFailed());
        }
        EXPECT_EQ(0, radDictUnload());
    });
    // Indexes for 128, 256 and 512 values. With pointers of 4 bytes a block of values has room for the first.
    EXPECT_EQ(sizeof(void *) == 4 ? 2U : 3U, withSmallerIndex);
    EXPECT_LT(withSmallerIndex, failures);
}

TEST_F(DictionaryGrowth, AfterUnloadingManyValues_FindsNone) {
    for (int i = 0; i < 300; ++i) {
        const std::string number = std::to_string(i);
        ASSERT_EQ(0, radDictAddValue(("Foo Bar-" + number + ' ' + number).c_str()));
    }
    EXPECT_EQ(0, radDictUnload());
    EXPECT_EQ(0U, liveBlocks());
    for (int32_t i = 0; i < 300; ++i) {
        EXPECT_EQ(nullptr, radDictGetVal(i, "Foo")) << i;
    }
    EXPECT_EQ(0, radDictAddValue("Foo Baz 7"));
    ASSERT_NE(nullptr, radDictGetVal(7, "Foo"));
    EXPECT_STREQ("Baz", radDictGetVal(7, "Foo")->valueName);
}

TEST_F(DictionaryGrowth, LoadsTheBuiltinTableInFewAllocations) {
    EXPECT_GE(20U, allocationsToLoad(nullptr));
}

TEST_F(DictionaryGrowth, LoadsTheShippedFileInFewAllocations) {
    std::ifstream file(LANYARD_DICTIONARY);
    root.write(kPath, std::string(std::istreambuf_iterator<char>(file), {}));
    EXPECT_GE(40U, allocationsToLoad(kPath));
    EXPECT_NE(nullptr, radDictGetAttr(1));
}

}  // namespace
}  // namespace lanyard::test::growth_test
