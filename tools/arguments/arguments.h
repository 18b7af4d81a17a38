// The one manner in which simcamera, lensday and fifocmd take their arguments: --help explains, each refusal is one
// line on stderr, an unknown word is named and the known ones are listed, and --speed=50 is --speed 50.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <vector>

#include "refusal.h"

// Prepares a program for that manner.  Call this before its options and commands are added.
void Arguments_Prepare(CLI::App& tApp);
CLI::App& Arguments_AddCommand(CLI::App& tParent, const std::string& sName, const std::string& sHelp);

// An option or argument that is a number, or a whole number, between the bounds; its help tells them.
CLI::Option* Arguments_AddNumber(CLI::App& tApp, const std::string& sName, double& dValue, double dLeast, double dMost,
                                 const std::string& sHelp);
CLI::Option* Arguments_AddWhole(CLI::App& tApp, const std::string& sName, uint64_t& qwValue, uint64_t qwLeast,
                                uint64_t qwMost, const std::string& sHelp);

// Parses the words, without the program's name.  The callbacks of the commands named run within it.  Prints the help if
// it is asked for; throws TRefusal if an argument is wrong, missing or too much.
void Arguments_Parse(CLI::App& tApp, std::vector<std::string> asWords);

// For main: calls pfnRun with the words, prints what it refuses, and returns the exit status.
int Arguments_Run(const char* pszProgram, int iCount, char** apszArgs,
                  const std::function<int(const std::vector<std::string>& asWords)>& pfnRun);
