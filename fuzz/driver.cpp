// Runs a fuzz target without libFuzzer: every file of the corpus, then mutations of them.
//
//     fuzz_reply [-seed=N] [-runs=N] file-or-folder...
//
// The same seed over the same corpus makes the same inputs. The input that is being run stands in
// the file <program>.input of the working folder; it is removed at the end, so what is found there
// is what ended the program.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "fuzz/environment.h"

namespace {

using Input = std::vector<uint8_t>;

constexpr size_t kInputMax = 8192;

[[noreturn]] void fail(const std::string &what) {
    (void)std::fprintf(stderr, "fuzz: %s\n", what.c_str());
    std::exit(2);
}

Input readFile(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        fail("cannot read " + path.string());
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

// Files in the order of their names, so that a seed means the same everywhere.
void collect(const std::filesystem::path &path, std::vector<std::filesystem::path> &files) {
    if (!std::filesystem::is_directory(path)) {
        files.push_back(path);
        return;
    }
    std::vector<std::filesystem::path> members;
    for (const auto &entry : std::filesystem::directory_iterator(path)) {
        members.push_back(entry.path());
    }
    std::sort(members.begin(), members.end());
    files.insert(files.end(), members.begin(), members.end());
}

// Keeps the input that is being run in a file.
class Runner {
  public:
    explicit Runner(std::string path)
        : path_(std::move(path)), fd_(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
        if (fd_ < 0) {
            fail("cannot write " + path_);
        }
    }
    Runner(const Runner &) = delete;
    Runner &operator=(const Runner &) = delete;
    ~Runner() {
        close(fd_);
        unlink(path_.c_str());
    }

    void run(const Input &input) const {
        const auto size = static_cast<ssize_t>(input.size());
        if (ftruncate(fd_, size) != 0 || pwrite(fd_, input.data(), input.size(), 0) != size) {
            fail("cannot write " + path_);
        }
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }

  private:
    std::string path_;
    int fd_;
};

class Mutator {
  public:
    Mutator(const std::vector<Input> &corpus, uint64_t seed) : corpus_(corpus), random_(seed) {}

    Input next() {
        Input input = pick(corpus_);
        for (size_t count = 1 + below(4); count > 0; --count) {
            mutate(input);
        }
        input.resize(std::min(input.size(), kInputMax));
        return input;
    }

  private:
    // Not a standard distribution: these differ between libraries.
    size_t below(size_t bound) { return static_cast<size_t>(random_() % bound); }

    template <typename T>
    const T &pick(const std::vector<T> &choices) {
        return choices[below(choices.size())];
    }

    uint8_t byte() {
        static const std::vector<uint8_t> edges = {0,   1,   2,   3,   4,    6,   16,  17,
                                                   18,  32,  127, 128, 253,  254, 255, '\n',
                                                   ' ', ':', ',', '#', '\t', '-', '9', '%'};
        return below(2) == 0 ? pick(edges) : static_cast<uint8_t>(below(256));
    }

    void mutate(Input &input) {
        if (input.empty()) {
            input.push_back(byte());
            return;
        }
        const size_t at = below(input.size());
        const size_t length = 1 + below(std::min<size_t>(input.size() - at, 32));
        const auto begin = input.begin() + static_cast<std::ptrdiff_t>(at);
        const auto end = begin + static_cast<std::ptrdiff_t>(length);
        switch (below(8)) {
            case 0:
                *begin ^= static_cast<uint8_t>(1U << below(8));
                break;
            case 1:
                *begin = byte();
                break;
            case 2:
                *begin = static_cast<uint8_t>(*begin + (below(2) == 0 ? 1 : 255));
                break;
            case 3:
                input.erase(begin, end);
                break;
            case 4: {
                const Input part(begin, end);
                input.insert(begin, part.begin(), part.end());
                break;
            }
            case 5:
                input.insert(begin, below(300), byte());
                break;
            case 6:
                input.resize(at);
                break;
            default: {
                const Input &other = pick(corpus_);
                const auto from = static_cast<std::ptrdiff_t>(below(other.size() + 1));
                input.insert(begin, other.begin() + from, other.end());
                break;
            }
        }
    }

    const std::vector<Input> &corpus_;
    std::mt19937_64 random_;
};

bool takeNumber(std::string_view argument, std::string_view option, uint64_t &number) {
    if (!argument.starts_with(option)) {
        return false;
    }
    number = std::strtoull(argument.data() + option.size(), nullptr, 10);
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    const std::string program = std::filesystem::path(argv[0]).filename();
    uint64_t seed = 1;
    uint64_t runs = 0;
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (!takeNumber(argument, "-seed=", seed) && !takeNumber(argument, "-runs=", runs)) {
            collect(argument, files);
        }
    }
    if (files.empty()) {
        fail("usage: " + program + " [-seed=N] [-runs=N] file-or-folder...");
    }
    (void)std::fprintf(stderr, "%s: %zu files, %llu mutations, seed %llu\n", program.c_str(),
                       files.size(), static_cast<unsigned long long>(runs),
                       static_cast<unsigned long long>(seed));

    LLVMFuzzerInitialize(&argc, &argv);
    const Runner runner(program + ".input");
    std::vector<Input> corpus;
    for (const auto &file : files) {
        corpus.push_back(readFile(file));
        runner.run(corpus.back());
    }
    Mutator mutator(corpus, seed);
    for (uint64_t i = 0; i < runs; ++i) {
        runner.run(mutator.next());
    }
    return 0;
}
