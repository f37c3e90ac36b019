// The library as the benchmarks need it: started, with a dictionary.
#ifndef LANYARD_BENCH_LIBRARY_H
#define LANYARD_BENCH_LIBRARY_H

#include <cstdint>
#include <string>

#include <lanyard/radius/frame.h>

// Starts the library with the built-in dictionary; stops it at the end.
class Library {
  public:
    // `partition`: bytes of its memory.
    explicit Library(uint32_t partition = RAD_PARTITION_SIZE);
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
    ~Library();

    // Has it ask one server. Throws std::runtime_error.
    void useServer(const std::string &host, uint16_t port, const std::string &secret) const;
};

#endif
