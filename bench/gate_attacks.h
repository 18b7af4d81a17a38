// Attacks on a daemon's inputs.  Each runs in a process of its own until that is killed, and never returns.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>

struct TAttack {
  const char* pszName;
  double dRatioHeld;  // of another client's p99 to its quiet one: at most
  bool bBareToo;      // also made on the bare loop, which is else only measured beside it
  std::function<void(const std::string& szSocket)> fnAttack;
};
std::span<const TAttack> Attacks();

// Queries that the daemon answers with its bare 400.
constexpr std::string_view aszOddRequests[] = {
    "GET /?function=fly HTTP/1.1\r\n\r\n",
    "GET /?function=stop& HTTP/1.1\r\n\r\n",
    "GET /?channel=99999999999&function=getstatus HTTP/1.1\r\n\r\n",
    "GET /?function=resetfocus HTTP/1.1\r\n\r\n",
    "GET /?=&&&&====%00%ff HTTP/1.1\r\n\r\n",
    "POST / HTTP/1.1\r\nContent-length: 20\r\n\r\nfunction=fly+fly+fly",
};
