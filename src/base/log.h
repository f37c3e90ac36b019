// The one way in which the library leaves a message. The platform adds nothing that these macros do
// not hand over: module, level, function and line.
#ifndef LANYARD_BASE_LOG_H
#define LANYARD_BASE_LOG_H

#include <palcore.h>

namespace lanyard {

enum LogModule { kModuleLibrary = 7, kModuleDevice = 8 };

// Levels are single bits; the platform shows the first three unless it is told otherwise.
enum LogLevel {
    kLogMemory = 4,    // out of memory
    kLogError = 8,     // errors and rejected input
    kLogWarning = 16,  // unknown attributes that are skipped
    kLogTrace = 128,   // progress; shows shared secrets
    kLogDump = 256     // values and whole packets
};

}  // namespace lanyard

// A message of the library.
#define radLog(level, ...) radLogAs(__func__, level, __VA_ARGS__)

// The same for helpers: `function` is the public function that they work for.
#define radLogAs(function, level, ...) \
    palModuleDebug(lanyard::kModuleLibrary, (level), (function), __LINE__, __VA_ARGS__)

// Their twins for the EAP relay and the database functions.
#define radDeviceLog(level, ...) radDeviceLogAs(__func__, level, __VA_ARGS__)
#define radDeviceLogAs(function, level, ...) \
    palModuleDebug(lanyard::kModuleDevice, (level), (function), __LINE__, __VA_ARGS__)

#endif
