// One request to one server, for those who record what became of it.
#ifndef LANYARD_CLIENT_TRANSPORT_H
#define LANYARD_CLIENT_TRANSPORT_H

#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>

namespace lanyard {

// radSendtoServer() with its arguments there and nothing recorded. `outcome` begins as that of the
// server and ends as what became of the request.
int sendToServer(const RadRequestDesc &desc, const RadPair *pairs, RadPair **replyOut,
                 RadLastError &outcome);

}  // namespace lanyard

#endif
