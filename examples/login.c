/*
 * The smallest login.
 *
 *     cc login.c $(pkg-config --cflags --libs lanyard-radius) -o login
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
    const int result = radAuth(argv[2], argv[3]); /* prints what the server sent */
    if (result != 0) {
        char reason[RAD_LAST_ERROR_TEXT_SIZE] = "";
        radLastErrorText(radLastError(), reason, sizeof(reason));
        fprintf(stderr, "%s\n", reason);
    }
    radLibExit();
    return result == 0 ? 0 : 1;
}
