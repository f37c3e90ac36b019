/**
 * @file
 * Moves the fixed paths of the device for tests. This project's port alone has it; the library
 * does not use it and a device does not supply it.
 */
#ifndef LANYARD_PLATFORM_PALROOT_H
#define LANYARD_PLATFORM_PALROOT_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Takes every absolute path, except those under "/dev/", under a folder from now on, as the
 * environment variable `PAL_ROOT` does for a whole process.
 *
 * Not thread-safe: no other function of the OS layer may take a path meanwhile.
 *
 * @param folder  the folder; it is copied, and a relative one is taken from the current working
 *                folder. Null or "": paths are used as they are, whatever `PAL_ROOT` says.
 */
void palRootSet(const char *folder);

#ifdef __cplusplus
}
#endif

#endif
