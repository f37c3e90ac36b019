// The library as the benchmarks need it: started, with a dictionary.
#ifndef LANYARD_BENCH_LIBRARY_H
#define LANYARD_BENCH_LIBRARY_H

#include <cstdint>
#include <string>

// Starts the library with the built-in dictionary; stops it at the end.
class Library {
  public:
    // `partition`: bytes of its memory; 0 for the library's own choice.
    explicit Library(uint32_t partition = 0);
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
    ~Library();

    // Has it ask one server. Throws std::runtime_error.
    void useServer(const std::string &host, uint16_t port, const std::string &secret) const;
};

#endif
