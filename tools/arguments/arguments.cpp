#include "arguments.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

// The command that the words have come to: the program itself or its command, or a command of that.
CLI::App* LastNamed(CLI::App& tApp) {
  CLI::App* ptLast = &tApp;
  while (!ptLast->get_subcommands().empty()) ptLast = ptLast->get_subcommands().front();
  return ptLast;
}

// "simcamera fault slip", for a hint to its help.
std::string PathOf(const CLI::App& tApp) {
  const CLI::App* ptParent = tApp.get_parent();
  return ptParent == nullptr ? tApp.get_name() : PathOf(*ptParent) + " " + tApp.get_name();
}

// "slip: ", or nothing for the program itself.
std::string BeginOf(const CLI::App& tApp) {
  return tApp.get_parent() == nullptr ? "" : tApp.get_name() + ": ";
}

std::string KnownOptions(CLI::App& tApp) {
  std::string sKnown;
  for (const CLI::Option* ptOption : tApp.get_options()) {
    if (ptOption->nonpositional()) sKnown += (sKnown.empty() ? "" : ", ") + ptOption->get_name();
  }
  return sKnown;
}

std::string KnownCommands(CLI::App& tApp) {
  std::string sKnown;
  for (const CLI::App* ptCommand : tApp.get_subcommands(nullptr)) {
    sKnown += (sKnown.empty() ? "" : ", ") + ptCommand->get_name();
  }
  return sKnown;
}

[[noreturn]] void RefuseWord(CLI::App& tApp, const std::string& sWord) {
  const std::string sBegin = BeginOf(tApp);
  if (sWord.size() > 1 && sWord[0] == '-') {
    Cli_RefuseUsage(sBegin + "there is no option " + sWord.substr(0, sWord.find('=')) + "; there are " +
                    KnownOptions(tApp));
  }
  if (!tApp.get_subcommands(nullptr).empty() && tApp.get_subcommands().empty()) {
    Cli_RefuseUsage(sBegin + "there is no \"" + sWord + "\"; there are " + KnownCommands(tApp));
  }
  Cli_RefuseUsage(sBegin + "\"" + sWord + "\" is one word too many; see " + PathOf(tApp) + " --help");
}

// A word that nobody knows is told before one that is missing: it may be what was meant.
void RefuseUnknown(CLI::App& tApp) {
  for (CLI::App* ptApp = &tApp;; ptApp = ptApp->get_subcommands().front()) {
    const std::vector<std::string> asWords = ptApp->remaining(false);
    if (!asWords.empty()) RefuseWord(*ptApp, asWords.front());
    if (ptApp->get_subcommands().empty()) return;
  }
}

[[noreturn]] void Refuse(CLI::App& tApp, const CLI::ParseError& tError) {
  RefuseUnknown(tApp);
  CLI::App& tLast = *LastNamed(tApp);
  const bool bMissing = dynamic_cast<const CLI::RequiredError*>(&tError) != nullptr;
  if (bMissing && tLast.get_require_subcommand_min() > 0) {
    Cli_RefuseUsage(BeginOf(tLast) + "a command is missing; there are " + KnownCommands(tLast));
  }
  std::string sWhat = tError.what();
  const size_t dwName = sWhat.find(": ");
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&tError) != nullptr && dwName != std::string::npos) {
    const bool bTwice = sWhat.find("At Most") != std::string::npos;
    sWhat = sWhat.substr(0, dwName) + (bTwice ? " is given twice" : " takes a value");
  }
  Cli_RefuseUsage(BeginOf(tLast) + sWhat + "; see " + PathOf(tLast) + " --help");
}

std::string Bounds(double dLeast, double dMost) {
  char szBounds[64];
  std::snprintf(szBounds, sizeof szBounds, "%.15g to %.15g", dLeast, dMost);
  return szBounds;
}

}  // namespace

double Number_Parse(const std::string& sText, const std::string& sName, double dLeast, double dMost) {
  char* pszEnd = nullptr;
  const double dValue = std::strtod(sText.c_str(), &pszEnd);
  if (sText.empty() || *pszEnd != 0 || !(dValue >= dLeast && dValue <= dMost)) {
    Cli_RefuseUsage(sName + " is a number from " + Bounds(dLeast, dMost) + ", not \"" + sText + "\"");
  }
  return dValue;
}

uint64_t Whole_Parse(const std::string& sText, const std::string& sName, uint64_t qwLeast, uint64_t qwMost) {
  const bool bDigits =
      !sText.empty() && std::all_of(sText.begin(), sText.end(), [](char c) { return c >= '0' && c <= '9'; });
  errno = 0;
  const unsigned long long qwValue = bDigits ? std::strtoull(sText.c_str(), nullptr, 10) : 0;
  if (!bDigits || errno != 0 || qwValue < qwLeast || qwValue > qwMost) {
    Cli_RefuseUsage(sName + " is a whole number from " + std::to_string(qwLeast) + " to " + std::to_string(qwMost) +
                    ", not \"" + sText + "\"");
  }
  return qwValue;
}

void Arguments_Prepare(CLI::App& tApp) {
  tApp.set_help_flag("-h,--help", "print this and do nothing");
  tApp.get_formatter()->column_width(24);
  tApp.get_formatter()->label("REQUIRED", "");
  tApp.get_formatter()->label("TEXT", "VALUE");
  tApp.get_formatter()->label("SUBCOMMAND", "COMMAND ...");
  tApp.get_formatter()->label("Positionals", "Arguments");
}

CLI::App& Arguments_AddCommand(CLI::App& tParent, const std::string& sName, const std::string& sHelp) {
  CLI::App* ptCommand = tParent.add_subcommand(sName, sHelp)->group("Commands");
  Arguments_Prepare(*ptCommand);
  return *ptCommand;
}

CLI::Option* Arguments_AddNumber(CLI::App& tApp, const std::string& sName, double& dValue, double dLeast, double dMost,
                                 const std::string& sHelp) {
  return tApp.add_option_function<std::string>(
      sName, [&dValue, sName, dLeast, dMost](const std::string& s) { dValue = Number_Parse(s, sName, dLeast, dMost); },
      sHelp + "; " + Bounds(dLeast, dMost));
}

CLI::Option* Arguments_AddWhole(CLI::App& tApp, const std::string& sName, uint64_t& qwValue, uint64_t qwLeast,
                                uint64_t qwMost, const std::string& sHelp) {
  return tApp.add_option_function<std::string>(
      sName,
      [&qwValue, sName, qwLeast, qwMost](const std::string& s) { qwValue = Whole_Parse(s, sName, qwLeast, qwMost); },
      sHelp + "; " + std::to_string(qwLeast) + " to " + std::to_string(qwMost));
}

void Arguments_Parse(CLI::App& tApp, std::vector<std::string> asWords) {
  std::reverse(asWords.begin(), asWords.end());
  try {
    tApp.parse(std::move(asWords));
  } catch (const CLI::CallForHelp&) {
    std::fputs(tApp.help().c_str(), stdout);
    throw TRefusal{0, ""};
  } catch (const CLI::ParseError& tError) {
    Refuse(tApp, tError);
  }
}

int Arguments_Run(const char* pszProgram, int iCount, char** apszArgs,
                  const std::function<int(const std::vector<std::string>& asWords)>& pfnRun) {
  try {
    return pfnRun(std::vector<std::string>(apszArgs + 1, apszArgs + iCount));
  } catch (const TRefusal& tRefusal) {
    if (!tRefusal.sText.empty()) std::fprintf(stderr, "%s: %s\n", pszProgram, tRefusal.sText.c_str());
    return tRefusal.iExit;
  }
}
