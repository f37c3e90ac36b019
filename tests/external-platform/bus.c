// A device without a management bus: nobody can be reached, and the EAP relay does not start.
#include <errno.h>

#include <palcore.h>
#include <xbus.h>

int xbusInit(void) {
    return -1;
}

XbusCtx *xbusRegister(uint32_t module, uint32_t mode, XbusHandler handler, void *arg) {
    (void)module, (void)mode, (void)handler, (void)arg;
    errno = ENOSYS;
    return NULL;
}

int xbusListen(XbusCtx *ctx, uint32_t timeoutMicroseconds) {
    (void)ctx;
    (void)palTaskDelay((int)(timeoutMicroseconds / 1000));
    return -1;
}

int xbusIoctl(XbusCtx *ctx, uint32_t destModule, uint32_t cmd, const void *buf, uint32_t len,
              void *out, uint32_t *outLen, uint32_t flags, uint32_t reserved1, uint32_t reserved2) {
    (void)ctx, (void)destModule, (void)cmd, (void)buf, (void)len;
    (void)out, (void)outLen, (void)flags, (void)reserved1, (void)reserved2;
    errno = ENOSYS;
    return -1;
}

int xbusUnRegister(XbusCtx *ctx) {
    (void)ctx;
    return -1;
}

int xbusDeInit(void) {
    return 0;
}
