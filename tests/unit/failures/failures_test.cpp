// Every public function with the n-th allocation, or the n-th call of each function of the system that it
// calls, failing, until a run has no failing call.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <dlfcn.h>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sqlite3.h>
#include <sstream>
#include <sys/wait.h>

#include "tests/support/test.h"
#include "tests/unit/failures/public_functions.h"
#include "tests/unit/failures/sqlite_vfs.h"

namespace lanyard::test::failures_test {
namespace {

constexpr const char *kAllocation = "palMemPartAlloc";
constexpr const char *kCreation = "palMemPartCreate";
constexpr int kForGood = -1;  // all allocations after it fail too

struct Failure {
    std::string call;
    int error = 0;
};

// The errors of a function; EIO alone of those that are not listed.
const std::vector<int> &errorsOf(const std::string &call) {
    static const std::map<std::string, std::vector<int>> errors{
        {"accept4", {EMFILE}},
        {"bind", {EADDRINUSE}},
        {"calloc", {ENOMEM}},
        {"connect", {ENETUNREACH, EINTR}},
        {"epoll_create1", {EMFILE}},
        {"epoll_ctl", {ENOSPC}},
        {"epoll_wait", {EBADF, EINTR}},
        {"flock", {ENOLCK, EINTR}},
        {"getrandom", {ENOSYS, EINTR}},
        {"malloc", {ENOMEM}},
        {"mkdir", {EACCES}},
        {"mkdirat", {EACCES, ENOSPC}},
        {"open", {EACCES, EMFILE, EINTR}},
        {"openat", {EACCES, EMFILE, ENOENT}},
        {"operator new", {ENOMEM}},
        {kAllocation, {0, kForGood}},
        {kCreation, {0}},
        {"poll", {ENOMEM, EINTR}},
        {"posix_spawn", {EAGAIN, ENOENT}},
        {"ppoll", {ENOMEM, EINTR}},
        {"read", {EIO, EINTR}},
        {"realloc", {ENOMEM}},
        {"recv", {ECONNREFUSED, EAGAIN, EINTR}},
        {"recvfrom", {ECONNREFUSED, EAGAIN, EINTR}},
        {"rename", {EACCES}},
        {"send", {ENETUNREACH, EINTR}},
        {"sendto", {ENETUNREACH, EINTR}},
        {"socket", {EMFILE}},
        {"sqlite access", {SQLITE_IOERR}},
        {"sqlite delete", {SQLITE_IOERR}},
        {"sqlite lock", {SQLITE_BUSY, SQLITE_LOCKED, SQLITE_IOERR}},
        {"sqlite open", {SQLITE_CANTOPEN}},
        {"sqlite read", {SQLITE_IOERR, SQLITE_CORRUPT}},
        {"sqlite size", {SQLITE_IOERR}},
        {"sqlite sync", {SQLITE_IOERR}},
        {"sqlite truncate", {SQLITE_IOERR}},
        {"sqlite write", {SQLITE_FULL, SQLITE_IOERR}},
        {"unlink", {EACCES}},
        {"unlinkat", {EACCES}},
        {"waitpid", {EINTR}},  // another error would leave a child behind
        {"write", {ENOSPC, EINTR}}};
    static const std::vector<int> other{EIO};
    const auto entry = errors.find(call);
    return entry != errors.end() ? entry->second : other;
}

size_t openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

// One call in a world of its own.
struct Trial {
    int64_t result = 0;
    bool failed = false;  // the failure has come to pass
    std::string before;
    std::string after;
    std::set<std::string> called;
};

// Orders the n-th call of a function to fail.
class Order {
  public:
    Order(const Failure &failure, int n) {
        const auto count = static_cast<unsigned>(n);
        if (failure.call == kCreation) {
            isCreation_ = true;
            failCreation();
        } else if (failure.call != kAllocation) {
            call_ = std::make_unique<FailingCall>(failure.call.c_str(), failure.error, n);
        } else if (failure.error == kForGood) {
            failAllocationsFrom(count);
        } else {
            failAllocation(count);
        }
    }
    Order(const Order &) = delete;
    Order &operator=(const Order &) = delete;
    ~Order() { stopFailing(); }

    [[nodiscard]] bool happened() const {
        return call_ ? call_->happened() : !isCreation_ && allocationFailed();
    }

  private:
    std::unique_ptr<FailingCall> call_;
    bool isCreation_ = false;
};

// Without a failure it notes what is called.
Trial tryOnce(const Servers &servers, const PublicFunction &function,
              const Failure *failure = nullptr, int n = 0) {
    const size_t descriptors = openDescriptors();
    Trial trial;
    {
        World world(servers, function.needs);
        trial.before = world.state();
        if (failure != nullptr) {
            const Order order(*failure, n);
            trial.result = function.call(world);
            trial.failed = order.happened();
        } else {
            const CalledFunctions called;
            trial.result = function.call(world);
            trial.called = {called.names().begin(), called.names().end()};
        }
        trial.after = world.state();
    }
    EXPECT_EQ(descriptors, openDescriptors());
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
    return trial;
}

// Of the many allocations that SQLite and the dictionary make of one kind, not each is worth a database.
int next(const std::string &call, int n) {
    constexpr int kEach = 60;
    constexpr int kStep = 7;
    return n < kEach || call != "malloc" ? n + 1 : n + kStep;
}

class NthCall : public testing::TestWithParam<PublicFunction> {
  protected:
    static void SetUpTestSuite() { useFailingVfs(); }

    // A call with the n-th one failing. Whether one did.
    bool failNth(const Trial &whole, const Failure &failure, int n) {
        const Trial trial = tryOnce(servers_, GetParam(), &failure, n);
        EXPECT_THAT(results_, testing::Contains(trial.result));
        EXPECT_TRUE(trial.failed || trial.result == GetParam().done || failure.call == kCreation);
        if (GetParam().leaves == Leaves::kAllOrNothing) {
            EXPECT_EQ(trial.result == GetParam().done ? whole.after : trial.before, trial.after);
        }
        ++calls_;
        return trial.failed;
    }

    const Servers servers_;
    std::vector<int64_t> results_;
    int calls_ = 0;
};

TEST_P(NthCall, MayFail) {
    constexpr int kMost = 2000;
    results_ = GetParam().failed;
    results_.push_back(GetParam().done);
    const Trial whole = tryOnce(servers_, GetParam());
    ASSERT_EQ(GetParam().done, whole.result);
    std::set<std::string> calls = whole.called;
    calls.insert(kAllocation);
    if (GetParam().needs == kStopped) {
        calls.insert(kCreation);
    }
    for (const std::string &call : calls) {
        for (const int error : errorsOf(call)) {
            for (int n = 1; n <= kMost; n = next(call, n)) {
                const testing::ScopedTrace trace(
                    __FILE__, __LINE__,
                    call + " number " + std::to_string(n) + " fails with " + std::to_string(error));
                if (!failNth(whole, {call, error}, n)) {
                    break;
                }
                ASSERT_GT(kMost, next(call, n));
                if (HasFailure()) {
                    return;
                }
            }
        }
    }
    RecordProperty("calls", calls_);
}

std::string nameOfRow(const testing::TestParamInfo<PublicFunction> &info) {
    return std::string(info.param.name) + '_' + std::to_string(info.index);
}

INSTANTIATE_TEST_SUITE_P(Functions, NthCall, testing::ValuesIn(publicFunctions()), nameOfRow);

// The names that the library exports.
std::set<std::string> exportedNames() {
    std::set<std::string> names;
    const std::unique_ptr<FILE, int (*)(FILE *)> symbols(
        popen("nm -D --defined-only " LANYARD_LIBRARY, "r"), pclose);
    std::array<char, 512> line{};
    while (std::fgets(line.data(), line.size(), symbols.get()) != nullptr) {
        std::istringstream fields(line.data());
        std::string address;
        std::string kind;
        std::string name;
        fields >> address >> kind >> name;
        if (kind != "A") {
            names.insert(name.substr(0, name.find('@')));
        }
    }
    return names;
}

TEST(NthCallTable, HasEveryExportedNameOnce) {
    std::multiset<std::string> listed(publicVariables().begin(), publicVariables().end());
    listed.insert(functionsThatCannotFail().begin(), functionsThatCannotFail().end());
    std::set<std::string> called;
    for (const PublicFunction &function : publicFunctions()) {
        called.insert(function.name);
    }
    listed.insert(called.begin(), called.end());
    EXPECT_THAT(listed, testing::ElementsAreArray(exportedNames()));
}

}  // namespace
}  // namespace lanyard::test::failures_test
