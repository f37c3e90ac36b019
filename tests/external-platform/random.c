// Random numbers from the kernel, libcrypto or a source of the program's own.
#include <openssl/rand.h>
#include <stddef.h>
#include <sys/random.h>

#include <palcore.h>

// Set while the program starts, before it has threads.
static PalRandSource source = NULL;
static void *sourceContext = NULL;

int palRandLibInit(PalRandSource newSource, void *context) {
    source = newSource;
    sourceContext = context;
    return 0;
}

int palRandGen(uint8_t *out, uint32_t length) {
    if (length == 0) {
        return 0;
    }
    if (out == NULL) {
        return -1;
    }
    if (source != NULL) {
        return source(sourceContext, out, length) == 0 ? 0 : -1;
    }
    // Up to 256 bytes come whole.
    for (uint32_t done = 0; done < length;) {
        const uint32_t piece = length - done < 256 ? length - done : 256;
        if (getrandom(out + done, piece, 0) != (ssize_t)piece) {
            return -1;
        }
        done += piece;
    }
    return 0;
}

int palCiphPRNGInit(void *context, uint8_t *out, uint32_t length) {
    (void)context;
    return RAND_bytes(out, (int)length) == 1 ? 0 : -1;
}
