// Runs a fuzz target without libFuzzer: every file of the corpus, then mutations of them.
//
//     fuzz_reply [-seed=N] [-runs=N] [-max_total_time=SECONDS] [-dict=FILE] file-or-folder...
//
// The same seed over the same corpus makes the same inputs. Without runs a time means as many as it takes.
// The input that is being run stands in the file <program>.input of the working folder; it is removed at the
// end, so what is found there is what ended the program.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <span>
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

// The words of a dictionary: a line "text" each, with \xHH for any byte, and \\ and \" for those.
std::vector<Input> readDictionary(const std::filesystem::path &path) {
    std::vector<Input> words;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        Input word;
        const size_t end = line.rfind('"');
        for (size_t at = line.find('"') + 1; at > 0 && at < end; ++at) {
            if (line[at] == '\\' && line[++at] == 'x') {
                word.push_back(
                    static_cast<uint8_t>(std::stoi(line.substr(at + 1, 2), nullptr, 16)));
                at += 2;
            } else {
                word.push_back(static_cast<uint8_t>(line[at]));
            }
        }
        if (!word.empty()) {
            words.push_back(word);
        }
    }
    return words;
}

class Mutator {
  public:
    Mutator(const std::vector<Input> &corpus, const std::vector<Input> &words, uint64_t seed)
        : corpus_(corpus), words_(words), random_(seed) {}

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
        switch (below(words_.empty() ? 8 : 9)) {
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
            case 8: {
                const Input &word = pick(words_);
                input.insert(begin, word.begin(), word.end());
                break;
            }
            default: {
                const Input &other = pick(corpus_);
                const auto from = static_cast<std::ptrdiff_t>(below(other.size() + 1));
                input.insert(begin, other.begin() + from, other.end());
                break;
            }
        }
    }

    const std::vector<Input> &corpus_;
    const std::vector<Input> &words_;
    std::mt19937_64 random_;
};

bool takeNumber(std::string_view argument, std::string_view option, uint64_t &number) {
    if (!argument.starts_with(option)) {
        return false;
    }
    number = std::strtoull(argument.data() + option.size(), nullptr, 10);
    return true;
}

struct Options {
    uint64_t seed = 1;
    uint64_t runs = 0;
    uint64_t seconds = 0;
    std::vector<Input> words = {};
    std::vector<std::filesystem::path> files = {};
};

Options readOptions(std::span<char *> arguments) {
    constexpr std::string_view kDictionary = "-dict=";
    Options options;
    for (const std::string_view argument : arguments) {
        if (argument.starts_with(kDictionary)) {
            options.words = readDictionary(argument.substr(kDictionary.size()));
        } else if (!takeNumber(argument, "-seed=", options.seed) &&
                   !takeNumber(argument, "-runs=", options.runs) &&
                   !takeNumber(argument, "-max_total_time=", options.seconds)) {
            collect(argument, options.files);
        }
    }
    if (options.runs == 0 && options.seconds != 0) {
        options.runs = UINT64_MAX;
    }
    return options;
}

}  // namespace

int main(int argc, char **argv) {
    const std::string program = std::filesystem::path(argv[0]).filename();
    const Options options = readOptions(std::span(argv, static_cast<size_t>(argc)).subspan(1));
    if (options.files.empty()) {
        fail("usage: " + program +
             " [-seed=N] [-runs=N] [-max_total_time=SECONDS] [-dict=FILE] file-or-folder...");
    }
    const std::time_t start = std::time(nullptr);
    LLVMFuzzerInitialize(&argc, &argv);
    const Runner runner(std::filesystem::absolute(program + ".input"));
    std::vector<Input> corpus;
    for (const auto &file : options.files) {
        corpus.push_back(readFile(file));
        runner.run(corpus.back());
    }
    Mutator mutator(corpus, options.words, options.seed);
    const auto limit = static_cast<std::time_t>(options.seconds);
    uint64_t runs = 0;
    for (; runs < options.runs && (limit == 0 || std::time(nullptr) - start < limit); ++runs) {
        runner.run(mutator.next());
    }
    const std::time_t seconds = std::max<std::time_t>(std::time(nullptr) - start, 1);
    const uint64_t executions = runs + corpus.size();
    (void)std::fprintf(
        stderr, "%s: %llu executions, %llu a second, seed %llu\n", program.c_str(),
        static_cast<unsigned long long>(executions),
        static_cast<unsigned long long>(executions) / static_cast<unsigned long long>(seconds),
        static_cast<unsigned long long>(options.seed));
    return 0;
}
