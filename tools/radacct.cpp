/**
 * @file
 * radacct: sends one accounting record and prints the outcome.
 */
#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>

#include "outcome.h"

int main(int argc, char *argv[]) {
    return exitStatus(radAcctSampleMain(argc, argv), RAD_CODE_ACCOUNTING_RESPONSE);
}
