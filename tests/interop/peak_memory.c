// peak_memory PROGRAM [ARGUMENT...]: runs a program, and prints the most memory that it had resident, in
// KiB. Without a program it is one that does nothing, linked with what the library needs.
#include <openssl/crypto.h>
#include <spawn.h>
#include <sqlite3.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>

extern char **environ;

int main(int argc, char *argv[]) {
    if (argc < 2) {
        return OpenSSL_version_num() == 0 || sqlite3_libversion_number() == 0;
    }
    pid_t child;
    int status;
    struct rusage usage;
    if (posix_spawn(&child, argv[1], NULL, NULL, argv + 1, environ) != 0 ||
        wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) ||
        WEXITSTATUS(status) > 1) {
        return 2;
    }
    printf("%ld\n", usage.ru_maxrss);
    return 0;
}
