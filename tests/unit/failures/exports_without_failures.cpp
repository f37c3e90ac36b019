// The rest of what the library exports: functions that cannot fail, and variables.
#include "tests/unit/failures/public_functions.h"

namespace lanyard::test {

const std::vector<std::string_view> &functionsThatCannotFail() {
    static const std::vector<std::string_view> names{"SHA1Final",
                                                     "SHA1Init",
                                                     "SHA1Transform",
                                                     "SHA1Update",
                                                     "radAcctSampleInit",
                                                     "radAuthSampleInit",
                                                     "radAuthServRowIdSet",
                                                     "radChapSampleInit",
                                                     "radConfAuthServList",
                                                     "radConfDelAcctServ",
                                                     "radConfDelAuthServ",
                                                     "radConfDelAuthServByRowId",
                                                     "radConfDelAuthServer",
                                                     "radConfDelDict",
                                                     "radConfDelRetries",
                                                     "radConfDelTimeout",
                                                     "radConfGet",
                                                     "radConfGetNumServers",
                                                     "radDeconfigure",
                                                     "radDictGetAttr",
                                                     "radDictGetVal",
                                                     "radDictUnload",
                                                     "radEapASRegister",
                                                     "radEapCtxClear",
                                                     "radEapDetachInstall",
                                                     "radEapMsgQueueCleanUp",
                                                     "radEapMsgQueueRelease",
                                                     "radFuncTblInstall",
                                                     "radFuncTblUninstall",
                                                     "radHmacMd5Calc",
                                                     "radLastError",
                                                     "radLastErrorAt",
                                                     "radLastErrorText",
                                                     "radLibDefConf",
                                                     "radLibExit",
                                                     "radLoopDescriptor",
                                                     "radMemCleanUp",
                                                     "radMschapSampleInit",
                                                     "radOptionGet",
                                                     "radOptionSet",
                                                     "radPairAssign",
                                                     "radPairDelete",
                                                     "radPairGet",
                                                     "radPairInsert",
                                                     "radPairListFree",
                                                     "radPairLocate",
                                                     "radPairNext",
                                                     "radPairRemove",
                                                     "radPairValue",
                                                     "radPairValueLen",
                                                     "radServerStatusAt",
                                                     "radVendorMessagePack",
                                                     "radiusMgmtDeInit",
                                                     "radiusPartIdInit",
                                                     "rc_md5_calc",
                                                     "venID"};
    return names;
}

const std::vector<std::string_view> &publicVariables() {
    static const std::vector<std::string_view> names{"handlers", "pRadEapXbusCtx", "pRadFuncTbl",
                                                     "radEapMsgQueue", "radMemPartId"};
    return names;
}

}  // namespace lanyard::test
