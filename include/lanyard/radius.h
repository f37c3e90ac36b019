/**
 * @file
 * Lanyard RADIUS: the whole public interface.
 *
 * Usable from C11 and from C++20. Conventions that hold everywhere unless a function says
 * otherwise:
 *
 * - Results are 0 for success and -1 for failure; functions that yield a record yield NULL on
 *   failure; a request yields the code of the server's reply or -1.
 * - A NULL argument is refused with -1 or NULL, mostly without a log. Where that leaves nothing to
 *   yield, it does nothing.
 * - Everything that the library allocates comes from the partition ::radMemPartId.
 * - Diagnostics go to `palModuleDebug` with module 7 (the library) or 8 (EAP relay and database).
 *   Levels: 4 out of memory, 8 errors and rejected input, 16 warnings, 128 progress (shows shared
 *   secrets), 256 values and whole packets.
 * - Why a request failed is in radLastError() (error.h), in the thread that made it.
 * - Configure from one thread; afterwards any number of threads may send requests.
 */
#ifndef LANYARD_RADIUS_H
#define LANYARD_RADIUS_H

#include <lanyard/radius/attr.h>
#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/eap.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>
#include <lanyard/radius/mgmt.h>

#endif
