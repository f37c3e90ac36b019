// A process that accounts is killed in front of every single step: no record is lost, none changes, and none comes
// before one that it has to follow.
#include <map>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/unit/tools/lanyardctl/acct_fixture.h"
#include "tests/unit/tools/lanyardctl/steps.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::acct_kill_test {
namespace {

using lanyardctl::AccountingQueue;
using lanyardctl::deliver;

const std::vector<std::string> kRecords = {"start", "interim", "stop"};

class AcctKill : public AccountingFixture {
  protected:
    // Does what the commands do, until it is killed. Tells of each record that is stored.
    void account(const std::string &session, int killAt, int told) const {
        const Steps steps(killAt);
        const AccountingQueue queue(file_);
        for (const std::string &command : kRecords) {
            const int64_t id = queue.store(record(command, session));
            (void)!write(told, "s", 1);
            const AccountingQueue::Turn turn(queue);
            deliver(queue, id);
        }
    }

    // How many records it has stored, and whether it came to its end.
    std::pair<size_t, bool> run(const std::string &session, int killAt) const {
        Pipe told;
        const pid_t child = fork();
        if (child == 0) {
            account(session, killAt, told.writeEnd.get());
            _exit(0);
        }
        told.writeEnd.reset();
        size_t stored = 0;
        for (char byte = 0; read(told.readEnd.get(), &byte, 1) == 1;) {
            ++stored;
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGKILL : status == 0) << status;
        return {stored, !WIFSIGNALED(status)};
    }

    // The first of each kind that the server got of a session. All of a kind say the same.
    [[nodiscard]] std::vector<std::string> firstOf(const std::string &session) const {
        std::vector<std::string> kinds;
        std::map<std::string, Bytes> times;
        const auto all = received();
        for (size_t i = 0; i < all.size(); ++i) {
            if (!all[i].ends_with(" " + session)) {
                continue;
            }
            const std::string kind = all[i].substr(0, all[i].find(' '));
            const Bytes time = attributeValue(server_.request(i), RAD_ATTR_EVENT_TIMESTAMP);
            const auto [seen, isNew] = times.emplace(kind, time);
            EXPECT_EQ(seen->second, time) << all[i];
            if (isNew) {
                kinds.push_back(kind);
            }
        }
        return kinds;
    }
};

TEST_F(AcctKill, InFrontOfEveryStep_LosesNothing) {
    int steps = 0;
    for (bool isOver = false; !isOver && !HasFailure();) {
        const std::string session = "s" + std::to_string(++steps);
        SCOPED_TRACE(session);
        const auto [stored, ended] = run(session, steps);
        isOver = ended;
        // What comes after it finds all that was stored, and perhaps one that nobody was told of.
        const AccountingQueue queue(file_);
        deliver(queue);
        EXPECT_EQ(0, queue.waiting());
        const auto kinds = firstOf(session);
        EXPECT_LE(stored, kinds.size());
        EXPECT_GE(stored + 1, kinds.size());
        EXPECT_EQ(std::vector(kRecords.begin(), kRecords.begin() + static_cast<long>(kinds.size())),
                  kinds);
    }
    // Three records, each written to journal and file, synced, sent, received and removed.
    EXPECT_LT(30, steps);
    RecordProperty("steps", steps);
}

}  // namespace
}  // namespace lanyard::test::acct_kill_test
