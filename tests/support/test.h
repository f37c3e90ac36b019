// The one include of a test: GoogleTest and the tests' own tools. A test of the library that works on lists
// of pairs includes pair_list.h beside it.
//
//     #include "tests/support/test.h"
//
//     namespace lanyard::test::pap_test {  // the file's name
//     namespace {
//
//     TEST(Pap, AnswerOfTheServer_LogsIn) {
//         const ScriptedServer server("secret", {accept()});
//         const ConfiguredLibrary library({.authServers = {serverEntry(server)}});
//         const LogRecorder log;
//         EXPECT_EQ(0, radAuth("nemo", "arctangent"));
//         EXPECT_PROBLEMS(log);
//     }
//
//     }  // namespace
//     }  // namespace lanyard::test::pap_test
#ifndef LANYARD_TESTS_SUPPORT_TEST_H
#define LANYARD_TESTS_SUPPORT_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/configured_library.h"
#include "tests/support/failing_call.h"
#include "tests/support/failing_partition.h"
#include "tests/support/guard_page.h"
#include "tests/support/log_recorder.h"
#include "tests/support/radius_wire.h"
#include "tests/support/scripted_server.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/temporary_root.h"

#endif
