// What all fuzz targets use: checks, the parts of the input, and camera files made of them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/types.h"

extern "C" int LLVMFuzzerTestOneInput(const u8* pbyInput, std::size_t dwInput);

// If the rule does not hold, ends the run with a line on stderr; the fuzzer then keeps the input.
void Check(bool bHolds, const char* szRule);

std::string_view Input_Text(const u8* pbyInput, std::size_t dwInput);

// Takes the first byte off and returns it as a number below dwChoices, or 0 if nothing is left.  '@' counts as 0, 'A'
// as 1 and so on, so that a seed can be a text.
u32 Input_Choose(std::string_view& sInput, u32 dwChoices);

// The fields between separators, including empty ones.
std::vector<std::string> Fields(std::string_view sText, char cSeparator);

// The words between white space, as the C library sees it.
std::vector<std::string> Words(std::string_view sText);

// Files below "/etc/conf.d/" and "/mnt/flash/" lie in memory.  Only files of Files_Put can be read, and what is written
// is lost.  Files_Put replaces a file of the same path; Files_Clear removes all.
void Files_Put(const std::string& sPath, std::string_view sText);
void Files_Clear();

// Sets the answer of ioctl to a request.  A request without an answer gets -1.
void Driver_Answer(u32 dwRequest, i32 iAnswer);
