// Talks to the daemon as the camera's web server does: over its socket, one request for each connection.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "cli/cli.h"

struct TReply {
  i32 iStatus;  // of HTTP
  std::string sBody;
};

// True if something accepts connections on the daemon's socket.
bool Client_IsHeard(const std::string& sRoot);

// Sends a query as a GET.  Returns nothing if the daemon is not there or gives no whole reply in time (of the host's
// clock).
std::optional<TReply> Client_Ask(const std::string& sRoot, const std::string& sQuery);

// The same in two halves: the connection on which the query has been sent (-1: the daemon is not there), and what the
// whole text of an answer says (nothing: it is no whole reply).
TScopedFd Client_Send(const std::string& sRoot, const std::string& sQuery);
std::optional<TReply> Client_ParseReply(const std::string& sText);

// A status reply's body, by key.
std::map<std::string, i64> Client_ParseStatus(const std::string& sBody);

// A motor turns; a working log shows that a motor is at work.  Neither disturbs the daemon, while a status request
// makes its channel the current one.
bool Client_IsMoving(const TOpenCamera& tCamera);
bool Client_HasWorkingLog(const TOpenCamera& tCamera);

// The status of a channel, by key; nothing if the daemon does not tell it.
std::optional<std::map<std::string, i64>> Client_Status(const std::string& sRoot, i32 iChannel);
