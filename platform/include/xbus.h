/**
 * @file
 * The device's management bus: named by numbers, modules of several processes send each other
 * commands.
 *
 * The EAP relay is module 8 on it. Whoever ports the library to a new device supplies these
 * functions, with C linkage and in a shared library. This project's port carries the bus over
 * Unix-domain sequenced-packet sockets in the folder /run/xbus (mode 0700, one socket a module;
 * the process at the other end must belong to the folder's owner or to root).
 *
 * A context is used by one thread at a time; different contexts may be used by different threads. A
 * process that registers a module and then forks, as daemon() does, may leave the module to its
 * child: nothing of the bus ends with the parent, as long as only one of the two uses the context.
 */
#ifndef LANYARD_PLATFORM_XBUS_H
#define LANYARD_PLATFORM_XBUS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** How a module is registered: with a handler for its messages. */
enum { XBUS_MODE_HANDLER = 2 };

/** Flags of xbusIoctl(): whether it waits for the handler's result. */
enum { XBUS_WAIT = 0, XBUS_NO_WAIT = 2 };

/** A module's place on the bus. */
typedef struct XbusCtx XbusCtx;

/**
 * Handles one message. Runs in the thread that called xbusListen(), inside of that call.
 *
 * It may send on the same context. It must not listen on it or release it.
 *
 * The buffers are the bus's own and end with the call. They come from another process: nothing in
 * them may be trusted.
 *
 * @param busArg1  the bus's own.
 * @param busArg2  the `arg` of xbusRegister().
 * @param cmd      the command.
 * @param buf      what the sender sent, `len` bytes; null when the sender's was.
 * @param len      bytes in `buf`.
 * @param out      what the sender's `out` held, `*outLen` bytes; null when the sender's was. What
 *                 the handler leaves in it travels back to a sender that waits.
 * @param outLen   bytes in `out`; the handler may lower it.
 * @return the result for a sender that waits.
 */
typedef int (*XbusHandler)(void *busArg1, void *busArg2, uint32_t cmd, void *buf, uint32_t len,
                           void *out, uint32_t *outLen);

/**
 * Connects the process to the bus. Called before anything else.
 * @return 0; any other value on failure.
 */
int xbusInit(void);

/**
 * Registers a module.
 *
 * @param module   the module's number. One context of one process at a time has it; a process that
 *                 ended without releasing it has it no more.
 * @param mode     XBUS_MODE_HANDLER.
 * @param handler  called for each message.
 * @param arg      handed to each call of the handler and left to it.
 * @return the module's context, which xbusUnRegister() releases; null with `errno` set, EADDRINUSE
 *         for a module that is there already.
 */
XbusCtx *xbusRegister(uint32_t module, uint32_t mode, XbusHandler handler, void *arg);

/**
 * Waits for one message and runs the handler for it in the calling thread.
 *
 * It handles one message a call, never more: what the caller does after each message must not wait
 * for the next. Senders take turns.
 *
 * @param timeoutMicroseconds  how long to wait at most; 0: looks once.
 * @return 1 when a message was handled; 0 when none came in time or a signal was handled; -1 on an
 *         error, and then the time-out has passed as well, so that a loop over it never spins.
 */
int xbusListen(XbusCtx *ctx, uint32_t timeoutMicroseconds);

/**
 * Returns a descriptor to wait for messages with, so that one poll() can wait for the bus, sockets
 * and timers. This project's port has it and a vendor's bus may not: a program that has to run with
 * both refers to it weakly (`#pragma weak xbusDescriptor`) and without it calls xbusListen() with a
 * time-out.
 *
 * It is readable (POLLIN) when xbusListen() with time-out 0 has something to do: handle a message,
 * which it returns 1 for, or see to senders that come and go, which it returns 0 for. That call
 * handles one message; the descriptor stays readable while more wait, so a caller may return to
 * poll() after each. Nothing else is to be done with the descriptor.
 *
 * @return the descriptor. It belongs to the context and is the same until xbusUnRegister(), also
 *         after daemon(). -1 with `errno` set to EINVAL for null.
 */
int xbusDescriptor(XbusCtx *ctx);

/**
 * Sends a command to a module.
 *
 * Both buffers travel, and messages from one sender to one receiver arrive in order, whatever their
 * flags. Each buffer holds at most 64 KiB; a larger or malformed message is dropped with an error in
 * the log, and closes nothing but its sender's connection.
 *
 * @param ctx         the sender.
 * @param destModule  the receiver's number.
 * @param cmd         the command.
 * @param buf         bytes for the receiver; may be null when `len` is 0.
 * @param len         bytes in `buf`.
 * @param out         bytes for the receiver that it may change; may be null when `*outLen` is 0.
 * @param outLen      bytes in `out`; when the call waits, what came back in `out` afterwards.
 * @param flags       XBUS_WAIT or XBUS_NO_WAIT.
 * @param reserved1   0.
 * @param reserved2   0.
 * @return XBUS_WAIT: the handler's result, or -1 when there is no such module or it has not answered
 *         within 5 seconds; signals do not end the wait. XBUS_NO_WAIT: 0 once the message is handed over,
 *         -1 when there is no such module or its queue is full (EAGAIN). A sender never blocks for
 *         ever. Where the call itself fails `errno` is set and `out` and `*outLen` are as before.
 *         What was handed over is not lost while the receiver lives.
 */
int xbusIoctl(XbusCtx *ctx, uint32_t destModule, uint32_t cmd, const void *buf, uint32_t len,
              void *out, uint32_t *outLen, uint32_t flags, uint32_t reserved1, uint32_t reserved2);

/**
 * Connects to the process that has a module now. This project's port has it and a vendor's bus may
 * not, like xbusDescriptor(); the same is true of xbusSend() and xbusResult().
 *
 * What is sent over the connection reaches that process, or nobody: never one that has the module
 * after it. So a sender can wait for a receiver that is busy for as long as that lives:
 *
 *     int connection = xbusConnect(ctx, 8);
 *     xbusSend(connection, 4, notice, size, NULL, 0);
 *     // poll(): POLLIN for `connection`
 *     int result = 0;
 *     switch (xbusResult(connection, &result)) { ... }
 *     close(connection);
 *
 * @return a descriptor, the caller's. It is readable (POLLIN) when xbusResult() has something to
 *         tell. Nothing else is to be done with it but close(), which leaves what was sent in the
 *         receiver's queue. -1 with `errno` set when there is no such module.
 */
int xbusConnect(XbusCtx *ctx, uint32_t module);

/**
 * Sends a command over a connection of xbusConnect() and does not wait for the handler's result. It
 * is received as one of xbusIoctl() is; what the handler leaves in `out` does not come back.
 *
 * @return 0 once the message is handed over; -1 with `errno` set: EPIPE when the process has ended,
 *         EAGAIN when the queue is full, EMSGSIZE for more than 64 KiB in one buffer.
 */
int xbusSend(int connection, uint32_t cmd, const void *buf, uint32_t len, const void *out,
             uint32_t outLen);

/**
 * Takes the next result from a connection of xbusConnect(), without waiting. Results come in the
 * order of the messages.
 *
 * @return 1 with the handler's result in `*result`; 0 when there is none yet; -1 with `errno` set to
 *         ECONNRESET when the process has released the module or ended: there will be no more.
 */
int xbusResult(int connection, int *result);

/**
 * Takes a module off the bus and releases its context. Messages still in its queue are dropped.
 * @return 0; -1 for null.
 */
int xbusUnRegister(XbusCtx *ctx);

/**
 * Disconnects the process from the bus.
 * @return 0; any other value on failure.
 */
int xbusDeInit(void);

#ifdef __cplusplus
}
#endif

#endif
