// How a program refuses: it throws TRefusal, and Arguments_Run prints the text as one line and exits with the status.
#pragma once

#include <cstdint>
#include <string>

constexpr int iExitFailed = 1;
constexpr int iExitUsage = 2;

struct TRefusal {
  int iExit;
  std::string sText;  // "": the reason has been printed
};

[[noreturn]] inline void Cli_RefuseUsage(const std::string& sText) {
  throw TRefusal{iExitUsage, sText};
}
[[noreturn]] inline void Cli_Fail(const std::string& sText) {
  throw TRefusal{iExitFailed, sText};
}

// Reads the whole text as a number between the bounds.  If it is none, refuses it by its name.
double Number_Parse(const std::string& sText, const std::string& sName, double dLeast, double dMost);
// The same for a whole number, in digits.
uint64_t Whole_Parse(const std::string& sText, const std::string& sName, uint64_t qwLeast, uint64_t qwMost);
