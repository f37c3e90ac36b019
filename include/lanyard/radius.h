/**
 * @file
 * Lanyard RADIUS: a RADIUS client library (RFC 2865, RFC 2866, RFC 3579) for C11 and C++20.
 *
 * A program that logs a user in:
 *
 *     if (radLibInit("/var/radius.conf") != 0) {
 *         return 1;  // the log has the file, the line and the reason
 *     }
 *     if (radAuth("alice", "wonderland") == 0) {
 *         puts("come in");
 *     } else {
 *         char reason[RAD_LAST_ERROR_TEXT_SIZE] = "";
 *         radLastErrorText(radLastError(), reason, sizeof(reason));
 *         puts(reason);
 *     }
 *     radLibExit();
 *
 * Which header to read. This one includes all of them but eap.h; each can be included alone.
 *
 * | to                                                         | read      |
 * |------------------------------------------------------------|-----------|
 * | start and stop the library; its memory, hooks and options  | frame.h   |
 * | name the servers, in code or in a file                     | conf.h    |
 * | log a user in, or send an accounting record, in one call   | methods.h |
 * | keep many logins and requests in flight from one thread    | loop.h    |
 * | learn which servers answer, how fast and how often         | status.h  |
 * | learn why a request failed                                 | error.h   |
 * | write a command-line program for a login in one line       | sample.h  |
 * | make and read lists of attributes                          | attr.h    |
 * | look up names, numbers and types of attributes             | dict.h    |
 * | send a request of your own; digests; host names            | engine.h  |
 * | follow the servers in the device's database                | mgmt.h    |
 * | relay 802.1X logins from the management bus to a server    | relay.h   |
 * | look into the relay's queue, or run its loop yourself      | eap.h     |
 *
 * No header but eap.h needs anything of the device's OS layer. eap.h includes `palcore.h` and
 * `xbus.h`, because its records hold their types.
 *
 * Conventions. They hold for every function that does not say otherwise.
 *
 * Results
 * - 0 is success, -1 failure. Functions that return a record return NULL on failure. A request
 *   returns the code of the server's reply (2 Access-Accept, 3 Access-Reject, ...) or -1.
 * - NULL arguments: int functions return -1, pointer functions NULL, void functions return. Mostly
 *   nothing is logged.
 * - radLastError() (error.h) says why the last request of the calling thread failed.
 *
 * Memory and text
 * - All memory comes from the partition ::radMemPartId, which is 100 KiB unless the program brings
 *   its own. Out of memory is a failure like any other.
 * - Arguments stay the caller's; what has to outlive the call is copied.
 * - Text is NUL-terminated. Lengths and sizes are bytes.
 *
 * Log
 * - Messages go to the OS layer's log, with module 7, or 8 for the EAP relay and the database.
 * - Levels are 4 out of memory, 8 errors and rejected input, 16 warnings, 128 progress, 256 values
 *   and whole packets. 128 and 256 show shared secrets, passwords and keys.
 *
 * Threads and signals
 * - One thread configures the library. Afterwards any number of threads may send requests.
 * - Changing the configuration while requests are in flight is not allowed, but for the thread of a
 *   loop (loop.h).
 * - A signal handler that keeps interrupting a waiting thread keeps its request from ending;
 *   methods.h shows how to block such signals.
 */
#ifndef LANYARD_RADIUS_H
#define LANYARD_RADIUS_H

#include <lanyard/radius/attr.h>
#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/loop.h>
#include <lanyard/radius/methods.h>
#include <lanyard/radius/mgmt.h>
#include <lanyard/radius/relay.h>
#include <lanyard/radius/sample.h>
#include <lanyard/radius/status.h>

#endif
