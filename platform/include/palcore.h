/**
 * @file
 * The device's OS layer: memory partitions, the module debug log, files, lists, random numbers,
 * tasks and programs.
 *
 * On a device these functions are the vendor's own library; for every other Linux machine this
 * project brings a port of them. Whoever ports the library to a new device supplies everything
 * that is declared here, with C linkage and in a shared library.
 *
 * For every function, unless it says otherwise:
 *  - strings are zero-terminated, lengths and sizes are bytes;
 *  - a pointer that is passed in stays the caller's and is not kept after the call;
 *  - it may be called from any thread at any time;
 *  - it reports a failure by its result and never ends the process.
 */
#ifndef LANYARD_PLATFORM_PALCORE_H
#define LANYARD_PLATFORM_PALCORE_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @name Memory partitions
 *
 * A partition is a bounded pool of memory. It keeps a client on a small device within the memory
 * that it was given: once the partition is used up, allocations fail, whatever the machine has
 * left.
 * @{
 */

/** Names a partition. 0 is the process heap, which always exists and is not bounded. */
typedef uint32_t PalMemPartId;

/**
 * Creates a partition.
 *
 * @param name    for diagnosis only, need not be unique; may be null.
 * @param memory  the pool's memory, `size` bytes of any alignment, which the caller leaves to the
 *                partition until it is destroyed; null: the OS layer takes the memory itself.
 * @param size    bytes in the pool. The pool's own bookkeeping comes out of them.
 * @return the partition's id, never 0 and never one that was in use before; 0 when `size` is too
 *         small for a pool or there is no memory for it.
 */
PalMemPartId palMemPartCreate(const char *name, void *memory, uint32_t size);

/**
 * Allocates a block.
 *
 * A partition never falls back to the heap. The block is aligned to 8 bytes, for pointers, 64-bit
 * numbers and double, and its content is not defined.
 *
 * @param part  a partition, or 0 for the process heap.
 * @param size  bytes wanted. 0 returns a block of its own that holds no byte and has to be freed
 *              like any other. A size with its top bit set (a negative length that was converted)
 *              always fails.
 * @return the block, which the caller frees with palMemPartFree(); null when the partition has no
 *         room for it or does not exist.
 */
void *palMemPartAlloc(PalMemPartId part, uint32_t size);

/**
 * Copies a string into a block of its own.
 *
 * @return the copy, which the caller frees with palMemPartFree(); null when `text` is null or
 *         palMemPartAlloc() fails.
 */
char *palMemPartStrDup(PalMemPartId part, const char *text);

/**
 * Frees a block.
 *
 * The block returns to the pool that it came from, whichever id is given: a block from the process
 * heap may be freed with the id of a partition that was created later, and the other way round.
 *
 * @param part   any id; it is not looked at beyond what is said above.
 * @param block  a block from palMemPartAlloc() or palMemPartStrDup(); null is ignored.
 * @return 0; -1 when `block` is no live block (freed before, foreign, or inside of a block), and
 *         then nothing was read or changed where the pointer leads.
 */
int palMemPartFree(PalMemPartId part, void *block);

/**
 * Destroys a partition and with it all its blocks at once.
 *
 * The memory returns to where it came from. No block of the partition may be used afterwards, and
 * its id stays unknown for the life of the process.
 *
 * @return 0; -1 for partition 0 or one that does not exist.
 */
int palMemPartDestroy(PalMemPartId part);

/** @} */

/**
 * @name Module debug log
 *
 * A level is a single bit:
 *
 * | level | shows                                                             |
 * |------:|-------------------------------------------------------------------|
 * |     4 | the device is out of memory                                       |
 * |     8 | errors and rejected input                                         |
 * |    16 | warnings                                                          |
 * |   128 | each step of an exchange, shared secrets and passwords included   |
 * |   256 | whole packets and keys                                            |
 *
 * 4, 8 and 16 are shown by default and nothing more. A call whose level is not shown costs one
 * test and formats nothing, so that calls may stay where speed matters.
 *
 * What is shown goes to standard error, and to syslog as well once the process has become a
 * daemon: the task name of ::palDaemonOpt is set and standard error is neither a terminal nor a
 * regular file. Both functions leave `errno` as they found it.
 * @{
 */

/**
 * Writes one line to the log.
 *
 * A line is written whole; lines of several threads do not mix. Bytes of the message that could
 * forge another line or drive a terminal are shown as `\xNN`.
 *
 * @param module    who reports: 7 is the RADIUS library, 8 its EAP relay.
 * @param level     one of the bits above.
 * @param function  name of the reporting function.
 * @param line      line in its source file.
 * @param format    as for printf; the message brings its own final "\n", which is added when it
 *                  is missing.
 */
void palModuleDebug(int module, int level, const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 5, 6)));

/**
 * Writes a title and a dump of bytes, in hexadecimal and in ASCII, to the log.
 *
 * @param module  as for palModuleDebug().
 * @param level   as for palModuleDebug().
 * @param title   what the bytes are.
 * @param data    the bytes; may be null when there are none.
 * @param length  how many; less than 1: the title alone is written.
 */
void palModuleDebugHex(int module, int level, const char *title, const void *data, int length);

/** @} */

/**
 * @name Files
 *
 * As their namesakes in the C library and in POSIX, `errno` on failure included. Every descriptor
 * is opened close-on-exec.
 *
 * The paths are those of the device, such as "/var/radius.conf". An OS layer may keep them
 * elsewhere: this project's port takes every absolute path, except those under "/dev/", under the
 * folder that the environment variable `PAL_ROOT` names.
 * @{
 */

/**
 * Opens a file, as fopen().
 *
 * @param path  the file's path.
 * @param mode  "r", "w" or "a" with any of the flags of fopen(); naming a character set is refused.
 * @return the file, which the caller closes with palFileClose(); null with `errno` set.
 */
FILE *palFileOpen(const char *path, const char *mode);

/**
 * Reads up to and including the next "\n", at most `size` - 1 bytes, as fgets().
 * @return `buffer`; null at the end of the file, on an error or for a `size` below 1.
 */
char *palFileGets(char *buffer, int size, FILE *file);

/**
 * Writes formatted text, as fprintf(). `file` may be `stdout` or `stderr`.
 * @return the number of bytes written, or a negative number.
 */
int palFilePrintf(FILE *file, const char *format, ...) __attribute__((format(printf, 2, 3)));

/**
 * Writes out what is buffered and closes the file, as fclose().
 * @return 0; -1 with `errno` set when data could not be written (the file is closed all the same)
 *         or `file` is null.
 */
int palFileClose(FILE *file);

/**
 * Removes a file, as unlink().
 * @return 0; -1 with `errno` set.
 */
int palUnlink(const char *path);

/**
 * Puts a file in the place of another, as rename(): whoever opens `to` gets the whole old file or
 * the whole new one. This project's port has it and a vendor's OS layer may not: a program that has
 * to run with both refers to it weakly (`#pragma weak palFileRename`), as the library does, and
 * without it writes the file in its place.
 * @return 0; -1 with `errno` set, and both files are as they were.
 */
int palFileRename(const char *from, const char *to);

/**
 * Opens a file, as open(). Interruptions by signals are not seen.
 *
 * @param flags  those of <fcntl.h>.
 * @param mode   permissions of a file that is created; else not looked at.
 * @return the descriptor, which the caller closes with palClose(); -1 with `errno` set.
 */
int palOpen(const char *path, int flags, int mode);

/**
 * Reads once, as read(). Interruptions by signals are not seen.
 * @return the number of bytes, which may be less than `length`; 0 at the end of the file; -1 with
 *         `errno` set.
 */
int palRead(int fd, void *buffer, uint32_t length);

/**
 * Closes a descriptor, as close().
 * @return 0; -1 with `errno` set.
 */
int palClose(int fd);

/** @} */

/**
 * @name Lists
 *
 * Doubly linked and intrusive: the node stands inside of the entry, mostly as its first member, and
 * the list owns nothing. A list is walked from `first` along `next` until null. Lists do not lock;
 * one list is used by one thread at a time.
 * @{
 */

/** The links of one entry. */
typedef struct PalListNode {
    struct PalListNode *next; /**< The following entry, null for the last. */
    struct PalListNode *prev; /**< The preceding entry, null for the first. */
} PalListNode;

/** A list; both members are null when it is empty. */
typedef struct PalList {
    PalListNode *first;
    PalListNode *last;
} PalList;

/**
 * Makes a list empty. Entries that are in it are not touched.
 * @return 0; -1 for null.
 */
int palListInit(PalList *list);

/**
 * Puts a node at the end of a list. The node must be in no list; what it holds is not looked at.
 * @return 0; -1 when an argument is null.
 */
int palListNodeAppend(PalList *list, PalListNode *node);

/**
 * Takes a node out of a list and sets its links to null.
 * @return 0; -1 when an argument is null or the node, its links set, is not in this list.
 */
int palListNodeRemove(PalList *list, PalListNode *node);

/** @} */

/**
 * @name Random numbers
 *
 * Cryptographically strong, in every case: request authenticators, challenges and identifiers are
 * made of them.
 * @{
 */

/**
 * A source of random bytes. It is called from any thread, several at a time, and must be strong.
 *
 * @param context  as given to palRandLibInit().
 * @param out      where to put the bytes.
 * @param length   how many.
 * @return 0; any other value when it has none.
 */
typedef int (*PalRandSource)(void *context, uint8_t *out, uint32_t length);

/**
 * Sets the source from which palRandGen() draws from now on.
 *
 * @param source   the source; null: the kernel's generator, from which palRandGen() draws until
 *                 this function is called.
 * @param context  handed to each call of the source and left to it; may be null.
 * @return 0.
 */
int palRandLibInit(PalRandSource source, void *context);

/**
 * Draws random bytes.
 *
 * @return 0; -1 when the source failed or `out` is null while `length` is not 0. After a failure
 *         `out` must not be used.
 */
int palRandGen(uint8_t *out, uint32_t length);

/**
 * The crypto library's generator, as a source: `palRandLibInit(palCiphPRNGInit, 0)`.
 *
 * @param context  not looked at.
 * @return 0, or -1 when the generator failed.
 */
int palCiphPRNGInit(void *context, uint8_t *out, uint32_t length);

/** @} */

/**
 * @name Tasks and programs
 * @{
 */

/** What the OS layer knows of a process that becomes a daemon. */
typedef struct PalDaemonOpt {
    char taskName[16]; /**< The name by which palTaskNameToId() finds the process, terminated. */
    int setting1;      /**< Left to the device. */
    int setting2;      /**< Left to the device. */
    int setting3;      /**< Left to the device. */
} PalDaemonOpt;

/**
 * Filled by a process before it detaches with daemon(), by one thread and once; all zero before.
 * From then on the process is the task of that name.
 */
extern PalDaemonOpt palDaemonOpt;

/**
 * Lets the calling thread sleep. Signals that are handled meanwhile do not shorten the sleep.
 * Async-signal-safe; leaves `errno` as it found it.
 *
 * @param milliseconds  how long; less than 1 returns at once.
 * @return 0.
 */
int palTaskDelay(int milliseconds);

/**
 * Finds another task by its name.
 *
 * A task never finds itself, from none of its threads: a handler of SIGTERM that waits until the
 * last task of its own name is gone runs inside of such a task. A task that has ended is not found,
 * whether or not its parent has taken note of it. Async-signal-safe; leaves `errno` as it found it.
 *
 * @param name  the task's name; only its first 15 bytes count.
 * @return the task's id, larger than 0; -1 when there is none or `name` is null or empty.
 */
int palTaskNameToId(const char *name);

/**
 * Runs a program and waits for its end.
 *
 * The program is executed directly; no shell and no search path stand between. It gets standard
 * input, output and error and the environment of the caller, no other descriptor, no blocked signal
 * and the default action for each signal. The argument vector may hold passwords and is never
 * logged.
 *
 * @param argv       the program's path and its arguments, closed by a null pointer.
 * @param reserved1  0.
 * @param reserved2  0.
 * @return the program's exit status, 0 to 255; -1 when it could not be run, was ended by a signal,
 *         or its status was lost because the caller's process ignores SIGCHLD.
 */
int palCmdExecArgv(char *const argv[], int reserved1, int reserved2);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
