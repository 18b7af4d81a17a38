// Attacks on the daemon's inputs.  Each runs in its own process until it is killed, and never returns.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>

struct TAttack {
  const char* pszName;
  double dMaxRatio;  // another client's p99 under attack, divided by its p99 in quiet, is at most this
  bool bBareToo;     // attacks the bare loop too, which is otherwise only measured
  std::function<void(const std::string& sSocket)> fnAttack;
};
std::span<const TAttack> Attacks();

// Requests that the daemon answers with its bare 400.
constexpr std::string_view g_asOddRequests[] = {
    "GET /?function=fly HTTP/1.1\r\n\r\n",
    "GET /?function=stop& HTTP/1.1\r\n\r\n",
    "GET /?channel=99999999999&function=getstatus HTTP/1.1\r\n\r\n",
    "GET /?function=resetfocus HTTP/1.1\r\n\r\n",
    "GET /?=&&&&====%00%ff HTTP/1.1\r\n\r\n",
    "POST / HTTP/1.1\r\nContent-length: 20\r\n\r\nfunction=fly+fly+fly",
};
