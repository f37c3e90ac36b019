// Marks what the port offers to other programs. All else is built with hidden visibility.
//
// An exported function is called through the symbol table even within the port, so that a program
// may put its own definition in its place.
#ifndef LANYARD_PLATFORM_EXPORT_H
#define LANYARD_PLATFORM_EXPORT_H

#define PAL_EXPORT __attribute__((visibility("default")))

#endif
