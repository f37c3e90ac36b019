// Namespaces of the tests' own: what runs in them sees no other network and no other process, and
// nothing of it is left when the tests end, whatever way that comes about.
#ifndef LANYARD_TESTS_E2E_NAMESPACES_H
#define LANYARD_TESTS_E2E_NAMESPACES_H

namespace lanyard::test {

// Has the rest of the program run as the first process of a new PID namespace, in new network and
// mount namespaces: it returns in that process alone, which is the parent of every daemon, and
// whose end is that of all the others. The process that called waits for it and ends as it does.
// Temporary files (TMPDIR) lie in memory that goes with the namespaces.
//
// To be called before there is any thread. Needs no privileges where the kernel lets any user make
// user namespaces.
//
// Throws std::system_error where the machine does not allow it.
void enterOwnNamespaces();

}  // namespace lanyard::test

#endif
