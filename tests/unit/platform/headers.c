/* The platform headers are C: this file compiles with all of them. */
#include <stddef.h>

#include <ciph.h>
#include <dbaccess.h>
#include <palcore.h>
#include <palroot.h>
#include <xbus.h>

_Static_assert(sizeof(PalMemPartId) == 4, "a partition's handle has 32 bits");
_Static_assert(offsetof(PalList, first) == 0, "the first word of a list is its first entry");
_Static_assert(offsetof(PalListNode, next) == 0, "the first word of an entry is the next one");
_Static_assert(sizeof(((PalDaemonOpt *)0)->taskName) == 16, "a task name has 15 bytes");
_Static_assert(offsetof(PalDaemonOpt, setting1) < offsetof(PalDaemonOpt, setting2), "order");
_Static_assert(XBUS_MODE_HANDLER == 2, "the mode of a registration");
_Static_assert(XBUS_WAIT == 0 && XBUS_NO_WAIT == 2, "the flags of a message");
_Static_assert(offsetof(PalDaemonOpt, setting2) < offsetof(PalDaemonOpt, setting3), "order");
