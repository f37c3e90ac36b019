// The library as the benchmarks need it: started, with a dictionary.
#ifndef LANYARD_BENCH_LIBRARY_H
#define LANYARD_BENCH_LIBRARY_H

// Starts the library with the built-in dictionary; stops it at the end.
class Library {
  public:
    Library();
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
    ~Library();
};

#endif
