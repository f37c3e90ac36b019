/*
 * Many logins at once, from one thread and an event loop of the program's own.
 *
 *     cc many_logins.c -llanyard-radius -llanyard-platform -o many_logins
 *     ./many_logins /var/radius.conf users
 *
 * The file has a user name and a password a line. A gateway would start a login whenever a user shows up;
 * its event loop waits for the loop's one descriptor beside its others.
 */
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

#include <lanyard/radius.h>

enum { USERS_MAX = 1000, MEMORY = 2 << 20 };

typedef struct User {
    char name[RAD_USER_NAME_MAX + 1];
    char password[RAD_PASSWORD_MAX + 1];
} User;

static User users[USERS_MAX];
static size_t waiting;
static size_t accepted;

static void done(void *context, RadRequest *request, const RadLogin *login) {
    const User *user = (const User *)context;
    (void)request;
    waiting--;
    if (login->result == 0) {
        accepted++;
        printf("%s may come in, for %u minutes (0: as long as they like)\n", user->name,
               login->sessionMinutes);
    } else {
        char reason[RAD_LAST_ERROR_TEXT_SIZE] = "";
        radLastErrorText(radLastError(), reason, sizeof(reason));
        printf("%s may not come in: %s\n", user->name, reason);
    }
}

static size_t readUsers(const char *path) {
    FILE *file = fopen(path, "r");
    size_t count = 0;
    if (file == NULL) {
        perror(path);
        return 0;
    }
    while (count < USERS_MAX &&
           fscanf(file, "%64s %48s", users[count].name, users[count].password) == 2) {
        count++;
    }
    fclose(file);
    return count;
}

/* The program's own event loop; it has but one descriptor here. Returns 0 when all logins have ended. */
static int serve(RadLoop *loop) {
    struct pollfd waited = {.fd = radLoopDescriptor(loop), .events = POLLIN};
    while (waiting > 0) {
        if (poll(&waited, 1, -1) < 0 && errno != EINTR) {
            perror("poll");
            return -1;
        }
        if (radLoopRun(loop, 0) < 0) {
            perror("radLoopRun");
            return -1;
        }
    }
    return 0;
}

static int logInAll(size_t count) {
    RadLoop *loop = radLoopCreate();
    if (loop == NULL) {
        perror("radLoopCreate");
        return -1;
    }
    for (size_t i = 0; i < count; i++) {
        if (radAuthStart(loop, users[i].name, users[i].password, done, &users[i]) != NULL) {
            waiting++;
        } else {
            printf("%s may not come in: out of memory\n", users[i].name);
        }
    }
    const int result = serve(loop);
    radLoopDestroy(loop);
    return result;
}

int main(int argc, char *argv[]) {
    if (argc != 3) {
        fprintf(stderr, "Usage: %s FILE USERS\n", argv[0]);
        return 2;
    }
    const size_t count = readUsers(argv[2]);
    /* More than the library takes by itself: a login in flight needs about a kilobyte. */
    if (count == 0 || radMemInit(MEMORY) != 0 || radLibInit(argv[1]) != 0) {
        return 2; /* the library has logged the file, the line and the reason */
    }
    const int result = logInAll(count);
    radLibExit();
    printf("%zu of %zu may come in\n", accepted, count);
    return result == 0 && accepted == count ? 0 : 1;
}
