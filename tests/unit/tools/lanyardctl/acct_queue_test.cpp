// The accounting queue and the order in which it is emptied.
#include <csignal>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/interop/wait_until.h"
#include "tests/unit/tools/lanyardctl/acct_fixture.h"
#include "tests/unit/tools/lanyardctl/steps.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::acct_queue_test {
namespace {

using lanyardctl::AccountingQueue;
using lanyardctl::deliver;
using lanyardctl::Delivery;
using lanyardctl::Record;
using State = AccountingQueue::State;
using testing::ElementsAre;

uint32_t numberIn(const Bytes &bytes) {
    uint32_t number = 0;
    for (const uint8_t byte : bytes) {
        number = number << 8U | byte;
    }
    return number;
}

bool waitsForALock(pid_t process) {
    std::ifstream locks("/proc/locks");
    const std::string wanted = " " + std::to_string(process) + " ";
    for (std::string line; std::getline(locks, line);) {
        if (line.find("-> FLOCK") != std::string::npos && line.find(wanted) != std::string::npos) {
            return true;
        }
    }
    return false;
}

class Queue : public AccountingFixture {
  protected:
    // Stores records such as "start s1"; returns the last one's id.
    int64_t store(const std::vector<std::string> &records) const {
        int64_t id = 0;
        for (const std::string &text : records) {
            const size_t blank = text.find(' ');
            id = queue_.store(record(text.substr(0, blank), text.substr(blank + 1)));
        }
        return id;
    }

    [[nodiscard]] std::vector<std::string> sessionsThatWait() const {
        std::vector<std::string> sessions;
        for (auto next = queue_.next(0); next; next = queue_.next(next->id)) {
            sessions.push_back(next->session);
        }
        return sessions;
    }

    const AccountingQueue queue_{file_};
};

TEST_F(Queue, RecordIsReadAsItWasStored) {
    const Record stored = record("start", "s1");
    const int64_t id = queue_.store(stored);
    const auto read = queue_.next(0);
    ASSERT_TRUE(read);
    EXPECT_EQ(id, read->id);
    EXPECT_EQ(stored.made, read->made);
    EXPECT_EQ("s1", read->session);
    EXPECT_EQ(stored.status, read->status);
    EXPECT_EQ(stored.packet, read->packet);
    EXPECT_EQ(1, queue_.waiting());
    EXPECT_FALSE(queue_.next(id));
}

TEST_F(Queue, IdOfTheLastRecordIsNotUsedAgain) {
    const int64_t first = store({"start s1"});
    queue_.remove(first);
    EXPECT_LT(first, store({"stop s1"}));
}

TEST_F(Queue, FilesAreTheirOwnersAlone) {
    const mode_t before = umask(0);
    {
        const AccountingQueue other(library_.root().path("/other.db").string());
        other.store(record("start", "s1"));
        const AccountingQueue::Turn turn(other);
        EXPECT_EQ(0600U, library_.root().mode("/other.db"));
        EXPECT_EQ(0600U, library_.root().mode("/other.db-turn"));
    }
    umask(before);
}

TEST_F(Queue, StoredRecordIsOnTheDisk) {
    for (const auto &write :
         {+[](const AccountingQueue &queue) { queue.store(record("start", "s")); },
          +[](const AccountingQueue &queue) { queue.remove(1); }}) {
        const Steps steps;
        write(queue_);
        // The end of the journal is what commits, and the folder is told of it.
        const auto &names = steps.names();
        ASSERT_LE(4U, names.size());
        const std::vector<std::string> last(names.end() - 4, names.end());
        EXPECT_THAT(last, ElementsAre("fdatasync", "unlink", "open64", "fdatasync"));
    }
}

TEST_F(Queue, FileThatCannotBeMade_IsAFailure) {
    EXPECT_THROW(AccountingQueue("/proc/none/accounting.db"), lanyardctl::Failure);
}

TEST_F(Queue, AnsweredRecordsGo_OldestFirst) {
    store({"start s1", "start s2", "interim s1", "stop s2", "stop s1"});
    const Delivery delivery = deliver(queue_);
    EXPECT_EQ(5, delivery.sent);
    EXPECT_EQ(0, delivery.unanswered);
    EXPECT_EQ(0, queue_.waiting());
    EXPECT_THAT(received(),
                ElementsAre("start s1", "start s2", "interim s1", "stop s2", "stop s1"));
}

TEST_F(Queue, DelayIsTheAgeOfTheRecord) {
    Record old = record("start", "s1");
    old.made -= 3600;
    queue_.store(old);
    Record future = record("start", "s2");
    future.made += 3600;
    queue_.store(future);
    deliver(queue_);
    ASSERT_EQ(2U, server_.requestCount());
    const auto delay = [this](size_t index) {
        return numberIn(attributeValue(server_.request(index), RAD_ATTR_ACCT_DELAY_TIME));
    };
    EXPECT_LE(3600U, delay(0));
    EXPECT_GT(3700U, delay(0));
    EXPECT_EQ(0U, delay(1)) << "the clock was set back";
}

TEST_F(Queue, RecordOfAnotherDictionary_IsSentWhole) {
    ASSERT_EQ(0, radDictAddAttr("Door 250 string"));
    queue_.store(makeRecord(status("start"), {"s1", {}, {"Door=west"}}));
    ASSERT_EQ(0, radDictLoad(nullptr));
    lanyardctl::completeDictionary();
    deliver(queue_);
    EXPECT_EQ("west", toText(attributeValue(server_.request(0), 250)));
}

TEST_F(Queue, SilenceAboutOneSession_HoldsThatSessionAlone) {
    silentAbout_ = {"s1"};
    store({"start s1", "start s2", "stop s1", "stop s2"});
    const Delivery delivery = deliver(queue_);
    EXPECT_EQ(2, delivery.sent);
    EXPECT_EQ(1, delivery.unanswered);
    EXPECT_EQ(1U, delivery.silent.size());
    EXPECT_THAT(received(), ElementsAre("start s1", "start s2", "stop s2"));
    EXPECT_THAT(sessionsThatWait(), ElementsAre("s1", "s1"));
}

TEST_F(Queue, SilenceAboutTwoSessionsInARow_LeavesTheRest) {
    silentAbout_ = {"s1", "s2"};
    const int64_t last = store({"start s1", "start s2", "start s3"});
    EXPECT_EQ(0, deliver(queue_).sent);
    EXPECT_THAT(received(), ElementsAre("start s1", "start s2"));
    EXPECT_EQ(3, queue_.waiting());
    EXPECT_EQ(State::kWaitsInVain, queue_.stateOf(last));
}

TEST_F(Queue, RecordOfTheDevice_OvertakesNobody_AndNobodyOvertakesIt) {
    silentAbout_ = {"s1"};
    store({"start s1", "on boot", "start s2"});
    EXPECT_EQ(0, deliver(queue_).sent);
    EXPECT_THAT(received(), ElementsAre("start s1"));
    EXPECT_THAT(sessionsThatWait(), ElementsAre("s1", "boot", "s2"));
}

TEST_F(Queue, SilenceAboutTheDevice_HoldsAll) {
    silentAbout_ = {"boot"};
    store({"on boot", "start s1"});
    EXPECT_EQ(0, deliver(queue_).sent);
    EXPECT_THAT(received(), ElementsAre("on boot"));
}

TEST_F(Queue, OneRecordWanted_TakesTheOlderOnesOfItsSessionAndOfTheDevice) {
    store({"start s1", "off boot", "start s2", "interim s2"});
    const int64_t wanted = store({"interim s1"});
    store({"stop s1"});
    EXPECT_EQ(3, deliver(queue_, wanted).sent);
    EXPECT_THAT(received(), ElementsAre("start s1", "off boot", "interim s1"));
    EXPECT_THAT(sessionsThatWait(), ElementsAre("s2", "s2", "s1"));
}

TEST_F(Queue, RecordOfTheDeviceWanted_TakesAllOlderOnes) {
    store({"start s1", "start s2"});
    const int64_t wanted = store({"off boot"});
    store({"on boot2"});
    deliver(queue_, wanted);
    EXPECT_THAT(received(), ElementsAre("start s1", "start s2", "off boot"));
}

TEST_F(Queue, SilenceConcernsWhatWaitedThen) {
    const int64_t first = store({"start s1"});
    EXPECT_EQ(State::kWaits, queue_.stateOf(first));
    queue_.noteSilence();
    const int64_t second = store({"start s2"});
    EXPECT_EQ(State::kWaitsInVain, queue_.stateOf(first));
    EXPECT_EQ(State::kWaits, queue_.stateOf(second));
    queue_.remove(first);
    EXPECT_EQ(State::kGone, queue_.stateOf(first));
}

// Takes the turn in another process, which ends when it is killed.
TEST_F(Queue, TurnIsOneProcesss_AndGoesWithIt) {
    const Pipe told;
    const pid_t other = fork();
    if (other == 0) {
        const AccountingQueue::Turn turn(queue_);
        (void)!write(told.writeEnd.get(), "t", 1);
        pause();
        _exit(0);
    }
    char byte = 0;
    ASSERT_EQ(1, read(told.readEnd.get(), &byte, 1));
    const pid_t waiter = fork();
    if (waiter == 0) {
        const AccountingQueue::Turn turn(queue_);
        _exit(7);
    }
    EXPECT_TRUE(waitUntil([waiter] { return waitsForALock(waiter); }));
    int status = 0;
    EXPECT_EQ(0, waitpid(waiter, &status, WNOHANG));
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
    waitpid(waiter, &status, 0);
    EXPECT_EQ(7, WEXITSTATUS(status));
}

}  // namespace
}  // namespace lanyard::test::acct_queue_test
