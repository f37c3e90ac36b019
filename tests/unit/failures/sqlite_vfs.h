// SQLite's files under its own names: "sqlite open", "sqlite read", "sqlite write", "sqlite sync", "sqlite
// lock", "sqlite size", "sqlite truncate", "sqlite delete", "sqlite access". They fail on order (FailingCall)
// with a result of SQLite's in place of an error number. A read that fails with SQLITE_CORRUPT succeeds and
// brings other bytes.
#ifndef LANYARD_TESTS_UNIT_FAILURES_SQLITE_VFS_H
#define LANYARD_TESTS_UNIT_FAILURES_SQLITE_VFS_H

namespace lanyard::test {

// From now on every database of the process goes through them.
void useFailingVfs();

}  // namespace lanyard::test

#endif
