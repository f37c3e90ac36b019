// Standard output with readers of all kinds.
#include "tools/pnac_wired/output.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <optional>
#include <sys/socket.h>
#include <unistd.h>

#include "tools/file_descriptor.h"

namespace lanyard::test::output_test {
namespace {

using pnac::Output;

const std::string kLine = std::string(999, 'x') + '\n';
constexpr size_t kLinesPending = Output::kPendingMax / 1000;

// Both ends of a pipe, or of a stream socket.
struct Channel {
    explicit Channel(std::array<int, 2> ends)
        : reader(std::in_place, ends[0], "reader"), writer(ends[1], "writer") {}

    // What waits, without waiting for more.
    std::string read() const {
        fcntl(reader->get(), F_SETFL, O_NONBLOCK);
        std::string all;
        std::array<char, 65536> part = {};
        for (ssize_t size = 0; (size = ::read(reader->get(), part.data(), part.size())) > 0;) {
            all.append(part.data(), static_cast<size_t>(size));
        }
        return all;
    }

    std::optional<FileDescriptor> reader;
    FileDescriptor writer;
};

Channel makePipe() {
    std::array<int, 2> ends = {-1, -1};
    EXPECT_EQ(0, pipe(ends.data()));
    return Channel(ends);
}

Channel makeSocket() {
    std::array<int, 2> ends = {-1, -1};
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()));
    return Channel(ends);
}

class OutputTest : public testing::TestWithParam<Channel (*)()> {
  protected:
    OutputTest() { (void)std::signal(SIGPIPE, SIG_IGN); }
    ~OutputTest() override { (void)std::signal(SIGPIPE, SIG_DFL); }
};

TEST_P(OutputTest, HandsLinesOnAtOnce) {
    const Channel channel = GetParam()();
    Output output(channel.writer.get());
    output.say("one\n");
    output.say("two\n");
    EXPECT_EQ("one\ntwo\n", channel.read());
    EXPECT_TRUE(output.idle());
    EXPECT_EQ(-1, output.awaited());
}

TEST_P(OutputTest, KeepsWhatAReaderDoesNotTakeUpToALimit) {
    const Channel channel = GetParam()();
    Output output(channel.writer.get());
    size_t said = 0;
    for (; output.linesLost() == 0 && said < 10 * kLinesPending; ++said) {
        output.say(kLine);
    }
    EXPECT_GE(said, kLinesPending);
    EXPECT_EQ(1U, output.linesLost());
    EXPECT_NE(-1, output.awaited());

    std::string got;
    for (size_t i = 0; i < 10 * kLinesPending && !output.idle(); ++i) {
        got += channel.read();
        output.flush();
    }
    output.say("last\n");
    got += channel.read();
    EXPECT_TRUE(output.idle());
    EXPECT_EQ("last\n", got.substr((said - 1) * kLine.size())) << "all but the one that is counted";
    EXPECT_EQ(1U, output.linesLost());
}

TEST_P(OutputTest, LosesWhatAReaderThatIsGoneHasNotTaken) {
    Channel channel = GetParam()();
    Output output(channel.writer.get());
    for (int i = 0; i < 1000; ++i) {
        output.say(kLine);
    }
    EXPECT_FALSE(output.idle());
    channel.reader.reset();
    output.flush();
    EXPECT_TRUE(output.idle());
    const uint64_t lost = output.linesLost();
    EXPECT_GT(lost, 0U);
    output.say("late\n");
    EXPECT_EQ(lost + 1, output.linesLost());
}

INSTANTIATE_TEST_SUITE_P(Readers, OutputTest, testing::Values(&makePipe, &makeSocket));

TEST(Output, LeavesThePipeToItsOtherWritersAsItWas) {
    const Channel channel = makePipe();
    const Output output(channel.writer.get());
    EXPECT_EQ(0, fcntl(channel.writer.get(), F_GETFL) & O_NONBLOCK);
}

TEST(Output, GoesOnInAFileWhereOthersHaveWritten) {
    char name[] = "/tmp/pnac-output-XXXXXX";
    const FileDescriptor file(mkstemp(name), "mkstemp");
    EXPECT_EQ(0, unlink(name));
    EXPECT_EQ(6, write(file.get(), "first\n", 6));
    Output output(file.get());
    output.say("second\n");
    EXPECT_EQ(6, write(file.get(), "third\n", 6));
    std::array<char, 64> content = {};
    EXPECT_EQ(19, pread(file.get(), content.data(), content.size(), 0));
    EXPECT_STREQ("first\nsecond\nthird\n", content.data());
}

TEST(Output, MayBeClosed) {
    const int closed = dup(STDERR_FILENO);
    ASSERT_EQ(0, close(closed));
    Output output(closed);
    output.say("nobody hears\n");
    EXPECT_EQ(1U, output.linesLost());
    EXPECT_TRUE(output.idle());
}

}  // namespace
}  // namespace lanyard::test::output_test
