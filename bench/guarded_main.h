// The end of a benchmark: what it throws is told in words.
#ifndef LANYARD_BENCH_GUARDED_MAIN_H
#define LANYARD_BENCH_GUARDED_MAIN_H

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace lanyard::bench {

inline int guardedMain(int (*run)(int argc, char *argv[]), int argc, char *argv[]) {
    try {
        return run(argc, argv);
    } catch (const std::exception &reason) {
        (void)std::fprintf(stderr, "%s: %s\n", argv[0], reason.what());
        return EXIT_FAILURE;
    }
}

}  // namespace lanyard::bench

#endif
