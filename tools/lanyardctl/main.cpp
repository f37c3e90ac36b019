#include "cli.h"

int main(int argc, char **argv) {
    return lanyardctl::run(argc, argv);
}
