// What the programs that load the gateway use: one client, many closed-loop clients, and a bare server to compare with.
// When a system call fails, Die ends the program.  Any thread; several calls may run at the same time.
#pragma once

#include <sys/types.h>
#include <sys/un.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

using TClock = std::chrono::steady_clock;
constexpr std::string_view sStatusRequest = "GET /?function=getstatus HTTP/1.1\r\nHost: localhost\r\n\r\n";

struct TServer {
  const char* pszName;
  std::string sPath;
  pid_t iProcess;  // 0: this program has not started it
};

struct TResult {  // of one round
  double dPerSecond, dMedian_us, dP99_us;
};

[[noreturn]] void Die(const char* pszWhat);
sockaddr_un AddressOf(const std::string& sPath);
void WriteAll(int fd, const std::string& sReply);
double Microseconds(TClock::duration tTime);

// The value below which dShare of the values lie, or 0 if there are none.  Changes their order.
double Quantile(std::vector<double>* padValues, double dShare);

// Like fork, but the child ends when its parent ends.
pid_t Fork();
void Kill(pid_t iProcess);

// Starts a process that serves one connection after the other: it accepts, reads once, writes sReply and closes.
TServer StartBare(const std::string& sFolder, const std::string& sReply);

// Connects and sends sRequest.  Returns the connection, or -1 if that failed.  The mode says how long it may wait.
enum EConnect { CONNECT_WAITS, CONNECT_PATIENTLY, CONNECT_AT_ONCE };  // without end, 20 s, not at all
int Connect(const sockaddr_un& tAddress, std::string_view sRequest, EConnect eConnect);

// Sends one request on a new connection and returns the whole answer, or "" if the answer does not end within 20 s.
std::string AskOnce(const std::string& sPath, std::string_view sRequest);

// Runs closed-loop clients in the calling thread.  Each client sends the next request of fnNext as soon as its last
// answer is complete, and stops when fnNext returns "".  fnAnswer gets every answer.  Returns when all have stopped.
struct TClients {
  std::string sPath;
  std::size_t dwClients;
  std::function<std::string_view()> fnNext;
  std::function<void(std::string_view sRequest, const std::string& sAnswer)> fnAnswer;
};
TResult Clients_Run(const TClients& tClients);
