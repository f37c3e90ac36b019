// The reply to a request.
#ifndef LANYARD_CLIENT_RECEIVE_H
#define LANYARD_CLIENT_RECEIVE_H

#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>

namespace lanyard {

// radRecvfromServer() with its arguments there. `outcome` ends as what became of the request.
int receiveReply(const RadRecvCtx &ctx, RadPacket &request, RadPair **replyOut,
                 RadLastError &outcome);

}  // namespace lanyard

#endif
