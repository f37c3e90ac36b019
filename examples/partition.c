/*
 * The library in memory that the program has set aside for it. It takes no other, and what does not fit fails like
 * anything else.
 *
 *     cc partition.c $(pkg-config --cflags --libs lanyard-radius) -o partition
 *     ./partition /var/radius.conf alice wonderland 64
 */
#include <stdio.h>
#include <stdlib.h>

#include <lanyard/radius.h>
#include <palcore.h>

static uint8_t memory[128 << 10];

int main(int argc, char *argv[]) {
    const size_t size = argc == 5 ? (size_t)atoi(argv[4]) << 10 : 0;
    if (size == 0 || size > sizeof(memory)) {
        fprintf(stderr, "Usage: %s FILE USER PASSWORD KIBIBYTES\n", argv[0]);
        return 2;
    }
    const PalMemPartId partition = palMemPartCreate("login", memory, (uint32_t)size);
    radiusPartIdInit(partition);
    if (partition == 0 || radLibInit(argv[1]) != 0) {
        return 2; /* the library has logged what it has no memory for */
    }
    const int result = radAuth(argv[2], argv[3]);
    radLibExit(); /* frees all that it has taken; the partition stays the program's */
    radiusPartIdInit(0);
    palMemPartDestroy(partition);
    return result == 0 ? 0 : 1;
}
