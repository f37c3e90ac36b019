// Opening and closing the device's database: the dictionary that it names, and the defaults.
#include <array>
#include <cstring>
#include <sys/stat.h>

#include <lanyard/radius/dict.h>

#include "tests/support/test.h"
#include "tests/unit/device/fixture.h"
#include "tests/unit/device/system_calls.h"

namespace lanyard::test::start_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

int32_t optionOf(uint32_t index) {
    const auto *value = static_cast<const int32_t *>(radConfGet(index));
    return value != nullptr ? *value : -1;
}

std::string dictionaryError(const std::string &text) {
    return "device error radiusDictionaryLoad> " + text;
}

class MgmtStart : public MgmtTest {
  protected:
    // Starts with the database as it is and expects that its dictionary is refused with these
    // lines.
    template <typename... Lines>
    void expectDictionaryRefused(Lines... lines) {
        EXPECT_EQ(-1, radiusMgmtInit(database.path(), "test"));
        EXPECT_THAT(told(),
                    ElementsAre(lines..., dictionaryError("radius dictionary loading failed")));
        EXPECT_FALSE(isSet(RAD_CONF_TIMEOUT));
        EXPECT_FALSE(isSet(RAD_CONF_RETRIES));
    }
};

TEST_F(MgmtStart, LoadsTheDictionaryThatTheDatabaseNames) {
    EXPECT_EQ(0, radiusMgmtInit(database.path(), "test"));
    EXPECT_THAT(told(), IsEmpty());
    const RadDictAttr *attribute = radDictGetAttr(250);
    ASSERT_NE(nullptr, attribute);
    EXPECT_STREQ("Test-Text", attribute->name);
    EXPECT_EQ(nullptr, radDictGetAttr(1)) << "it takes the place of the built-in one";
}

TEST_F(MgmtStart, SetsTheDefaults) {
    EXPECT_EQ(0, radiusMgmtInit(database.path(), "test"));
    EXPECT_EQ(10, optionOf(RAD_CONF_TIMEOUT));
    EXPECT_EQ(3, optionOf(RAD_CONF_RETRIES));
}

TEST_F(MgmtStart, EmptiesTheConfigurationAndLoadsNoServers) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    addAuthServers(2);
    ASSERT_EQ(0, radDictAddAttr("Own-Text 251 string"));
    EXPECT_EQ(0, radiusMgmtInit(database.path(), "test"));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(nullptr, radDictGetAttr(251));
}

TEST_F(MgmtStart, TellsThatTheDatabaseDoesNotOpenAndLeavesTheConfiguration) {
    addAuthServers(1);
    const std::string path = root.path("/none/device.db").string();
    EXPECT_EQ(-1, radiusMgmtInit(path.c_str(), "test"));
    EXPECT_LOG(log, "device error radiusMgmtInit> unable to open the DB file " + path);
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(MgmtStart, RefusesMissingArgumentsAndTouchesNothing) {
    addAuthServers(1);
    EXPECT_EQ(-1, radiusMgmtInit(nullptr, "test"));
    EXPECT_EQ(-1, radiusMgmtInit(database.path(), nullptr));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(MgmtStart, TellsThatTheQueryFails) {
    database.run("DROP TABLE environment");
    addAuthServers(1);
    expectDictionaryRefused(dictionaryError("sqlite3QueryResGet failed"));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH)) << "the configuration was emptied before";
    EXPECT_NE(nullptr, radDictGetAttr(1)) << "the built-in dictionary was loaded before";
}

TEST_F(MgmtStart, TellsThatTheFileIsNoDatabase) {
    root.write("/device.db", "This is the text of no database at all.\n");
    expectDictionaryRefused(dictionaryError("sqlite3QueryResGet failed"));
}

TEST_F(MgmtStart, TellsThatNoDictionaryIsNamed) {
    database.run("UPDATE environment SET name='radius_dictionary'");
    expectDictionaryRefused(dictionaryError("empty result. nRows=0 nCols=0"));
}

TEST_F(MgmtStart, RefusesADictionaryThatIsNull) {
    database.run("UPDATE environment SET value=NULL");
    expectDictionaryRefused();
}

// The result has the column's name as the table was made with it.
TEST_F(MgmtStart, FindsTheColumnByItsExactName) {
    database.run(
        "DROP TABLE environment; CREATE TABLE environment (name TEXT, VALUE TEXT);"
        "INSERT INTO environment VALUES ('RADIUS_DICTIONARY', '/nexa2.0/etc/radius.dict')");
    expectDictionaryRefused();
}

TEST_F(MgmtStart, RefusesADictionaryThatDoesNotLoad) {
    root.write(kDictionary, "ATTRIBUTE Test-Text\n");
    expectDictionaryRefused();
    EXPECT_LOGGED(log, 8, "radDictLoad",
                  "radDictLoad: Invalid Attribute on line 1 of dictionary "
                  "/nexa2.0/etc/radius.dict\n");
}

TEST_F(MgmtStart, TakesTheFirstOfSeveralDictionaries) {
    root.write("/second.dict", "ATTRIBUTE Other-Text 251 string\n");
    database.nameDictionary("/second.dict");
    EXPECT_EQ(0, radiusMgmtInit(database.path(), "test"));
    EXPECT_NE(nullptr, radDictGetAttr(250));
    EXPECT_EQ(nullptr, radDictGetAttr(251));
}

class MgmtBusy : public MgmtTest {
  protected:
    // Another process that has the database for itself, until it lets go.
    void lock() { database.run("BEGIN EXCLUSIVE"); }
    void letGo() { database.run("ROLLBACK"); }

    // Starts against a lock that is let go at the first question, and returns the context with
    // which it was asked.
    Bytes contextFor(const std::string &caller) {
        Bytes context(32, 0xa5);
        lock();
        const BusyHandler handler([&](const void *asked, int count) {
            EXPECT_EQ(0, count);
            std::memcpy(context.data(), asked, context.size());
            letGo();
            return 1;
        });
        EXPECT_EQ(0, radiusMgmtInit(database.path(), caller.c_str()));
        return context;
    }
};

TEST_F(MgmtBusy, TheHandlerIsToldTheFirst31CharactersOfTheCaller) {
    const std::string name = "0123456789abcdef0123456789abcdefXYZ";
    EXPECT_BYTES_EQ(fromText(name.substr(0, 31) + '\0'), contextFor(name));
    Bytes shorter = fromText("radEap");
    shorter.resize(32);
    EXPECT_BYTES_EQ(shorter, contextFor("radEap")) << "the rest is zero, whatever was there";
}

TEST_F(MgmtBusy, TheHandlerDecidesWhenToGiveUp) {
    int asked = 0;
    const BusyHandler handler([&asked](const void * /*context*/, int count) {
        EXPECT_EQ(asked, count);
        return ++asked < 3 ? 1 : 0;
    });
    lock();
    EXPECT_EQ(-1, radiusMgmtInit(database.path(), "test"));
    letGo();
    EXPECT_EQ(3, asked);
    EXPECT_THAT(told(), ElementsAre(dictionaryError("sqlite3QueryResGet failed"),
                                    dictionaryError("radius dictionary loading failed")));
}

// The two numbers are the last things that a start allocates.
TEST_F(MgmtStart, GoesOnWithoutADefaultThatThereIsNoMemoryFor) {
    const auto start = [this] { return radiusMgmtInit(database.path(), "test"); };
    const size_t before = allocationCount();
    ASSERT_EQ(0, start());
    const auto all = static_cast<unsigned>(allocationCount() - before);
    log.clear();

    failAllocation(all - 1);
    EXPECT_EQ(0, start());
    EXPECT_THAT(told(),
                ElementsAre("device error radiusMgmtInit> Failed to set default timeout value"));
    EXPECT_FALSE(isSet(RAD_CONF_TIMEOUT));
    EXPECT_EQ(3, optionOf(RAD_CONF_RETRIES));
    log.clear();

    failAllocation(all);
    EXPECT_EQ(0, start());
    EXPECT_THAT(told(),
                ElementsAre("device error radiusMgmtInit> Failed to set default retries value"));
    EXPECT_EQ(10, optionOf(RAD_CONF_TIMEOUT));
    EXPECT_FALSE(isSet(RAD_CONF_RETRIES));
}

TEST_F(MgmtStart, EndsWhereTheDictionaryMeetsTheEndOfMemory) {
    const auto start = [this] { return radiusMgmtInit(database.path(), "test"); };
    const size_t before = allocationCount();
    ASSERT_EQ(0, start());
    const auto all = static_cast<unsigned>(allocationCount() - before);
    int endings = 0;
    for (unsigned index = 0; index < all; ++index) {
        log.clear();
        failAllocation(index);
        const int status = start();
        if (told() == std::vector{dictionaryError("radius dictionary loading failed")}) {
            EXPECT_EQ(-1, status) << index;
            ++endings;
        }
    }
    EXPECT_LE(1, endings);
}

TEST_F(MgmtStart, NeverMakesTheDatabase) {
    const std::string path = root.path("/missing.db").string();
    const mode_t before = umask(0);
    EXPECT_EQ(-1, radiusMgmtInit(path.c_str(), "test"));
    umask(before);
    EXPECT_FALSE(root.exists("/missing.db"));
    EXPECT_LOG(log, "device error radiusMgmtInit> unable to open the DB file " + path);
}

// A connection must not be carried through a fork().
TEST_F(MgmtStart, LeavesNoConnectionOpen) {
    const size_t before = openDescriptors();
    ASSERT_EQ(0, radiusMgmtInit(database.path(), "test"));
    EXPECT_EQ(before, openDescriptors());
    ASSERT_EQ(-1, radiusMgmtInit(root.path("/none/device.db").c_str(), "test"));
    EXPECT_EQ(before, openDescriptors());
    database.run("DROP TABLE environment");
    ASSERT_EQ(-1, radiusMgmtInit(database.path(), "test"));
    EXPECT_EQ(before, openDescriptors());
}

TEST_F(MgmtStart, CloseMayBeCalledAtAnyTime) {
    const size_t before = openDescriptors();
    EXPECT_EQ(0, radiusMgmtDeInit());
    open();
    EXPECT_EQ(0, radiusMgmtDeInit());
    EXPECT_EQ(before, openDescriptors());
    EXPECT_EQ(0, radiusMgmtDeInit());
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_EQ(10, optionOf(RAD_CONF_TIMEOUT)) << "the configuration stays";
}

}  // namespace
}  // namespace lanyard::test::start_test
