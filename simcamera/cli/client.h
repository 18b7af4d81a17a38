// The camera's web side in small: one request a connection over the daemon's socket.
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

// Sends a query as a GET.  Nothing if the daemon is not there or gave no whole reply within the time (of the host's
// clock).
std::optional<TReply> Client_Ask(const std::string& sRoot, const std::string& sQuery);

// The status of a channel, by key; nothing if it could not be had.
std::optional<std::map<std::string, i64>> Client_Status(const std::string& sRoot, i32 iChannel);
