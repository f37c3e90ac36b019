// Messages to the OS layer's log: module, level, function, line and text.
#ifndef LANYARD_BASE_LOG_H
#define LANYARD_BASE_LOG_H

#include <palcore.h>

namespace lanyard {

enum LogModule { kModuleLibrary = 7, kModuleDevice = 8 };

// Levels are single bits. The OS layer shows the first three by default.
enum LogLevel {
    kLogMemory = 4,    // out of memory
    kLogError = 8,     // errors and rejected input
    kLogWarning = 16,  // unknown attributes that are skipped
    kLogTrace = 128,   // progress; shows shared secrets
    kLogDump = 256     // values and whole packets
};

}  // namespace lanyard

// Logs a message of the library.
#define radLog(level, ...) radLogAs(__func__, level, __VA_ARGS__)

// The same for a helper; `function` is the public function that it works for.
#define radLogAs(function, level, ...) \
    palModuleDebug(lanyard::kModuleLibrary, (level), (function), __LINE__, __VA_ARGS__)

// The same for the EAP relay and the database functions.
#define radDeviceLog(level, ...) radDeviceLogAs(__func__, level, __VA_ARGS__)
#define radDeviceLogAs(function, level, ...) \
    palModuleDebug(lanyard::kModuleDevice, (level), (function), __LINE__, __VA_ARGS__)

#endif
