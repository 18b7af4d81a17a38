// What the programs that load the gateway share: one client, many closed-loop clients, and a bare server to compare
// with.  Die ends the program where the machine fails it.  One thread at a time per call; calls may run side by side.
#pragma once

#include <sys/types.h>
#include <sys/un.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

using TClock = std::chrono::steady_clock;
constexpr std::string_view szStatusRequest = "GET /?function=getstatus HTTP/1.1\r\nHost: localhost\r\n\r\n";

struct TServer {
  const char* pszName;
  std::string szPath;
  pid_t iProcess;  // 0: not ours
};

struct TResult {  // of one round
  double dPerSecond, dMedian_us, dP99_us;
};

[[noreturn]] void Die(const char* pszWhat);
sockaddr_un AddressOf(const std::string& szPath);
void WriteAll(int fd, const std::string& szReply);
double Microseconds(TClock::duration tTime);

// The value below which dShare of the values lie; 0 of none.  Puts them into another order.
double At(std::vector<double>* padValues, double dShare);

// A child that ends with its parent.
pid_t Fork();
void Kill(pid_t iProcess);

// A process that accepts, reads once, writes szReply and closes, one connection after the other.
TServer StartBare(const std::string& szFolder, const std::string& szReply);

// A connection on which szRequest has been sent; -1: it was not to be had.
enum EConnect { CONNECT_WAITS, CONNECT_PATIENTLY, CONNECT_AT_ONCE };  // without end, 20 s, never
int Connect(const sockaddr_un& tAddress, std::string_view szRequest, EConnect eConnect);

// One request on a connection of its own, patiently: all that comes back; "" unless it comes to an end.
std::string AskOnce(const std::string& szPath, std::string_view szRequest);

// Closed-loop clients in the calling thread: each sends what fnNext gives it as soon as it has its last answer, and
// retires when that is empty; fnAnswer gets every answer as it came.  Returns when all have retired.
struct TClients {
  std::string szPath;
  std::size_t dwClients;
  std::function<std::string_view()> fnNext;
  std::function<void(std::string_view szRequest, const std::string& szAnswer)> fnAnswer;
};
TResult Clients_Run(const TClients& tClients);
