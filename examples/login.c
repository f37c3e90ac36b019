/*
 * The smallest login: starts the library from a configuration file and checks one user.
 *
 *     cc login.c -llanyard-radius -llanyard-platform -o login
 *     ./login /var/radius.conf alice wonderland
 */
#include <stdio.h>

#include <lanyard/radius.h>

int main(int argc, char *argv[]) {
    if (argc != 4) {
        fprintf(stderr, "Usage: %s FILE USER PASSWORD\n", argv[0]);
        return 2;
    }
    if (radLibInit(argv[1]) != 0) {
        return 2; /* the library has logged the file, the line and the reason */
    }
    uint32_t idleMinutes = 0;
    uint32_t sessionMinutes = 0;
    const int result = radAuthAndGetAttributes(argv[2], argv[3], &idleMinutes, &sessionMinutes);
    if (result == 0) {
        printf("%s may come in, for %u minutes (0: as long as they like)\n", argv[2],
               sessionMinutes);
    } else {
        printf("%s may not come in\n", argv[2]);
    }
    radLibExit();
    return result == 0 ? 0 : 1;
}
