// What the fuzz targets share: checks, the input's parts, and camera files made of them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/types.h"

extern "C" int LLVMFuzzerTestOneInput(const u8* pbInput, std::size_t dwInput);

// Ends the run with a line on stderr where the rule does not hold; the fuzzer then keeps the input.
void Check(bool bHolds, const char* szRule);

std::string_view Input_Text(const u8* pbInput, std::size_t dwInput);

// Takes the first byte off as a number below dwChoices.  '@' counts as 0 and the letters on from there, so that a seed
// is a text.  0 where nothing is left.
u32 Input_Choose(std::string_view& sInput, u32 dwChoices);

// The fields between separators, empty ones too.
std::vector<std::string> Fields(std::string_view sText, char cSeparator);

// White-space separated words, as the C library sees them.
std::vector<std::string> Words(std::string_view sText);

// Paths below "/etc/conf.d/" and "/mnt/flash/" lie in memory: what was put there can be read, nothing else is there,
// and what is written is lost.  Put takes the place of the file before; Clear leaves none.
void Files_Put(const std::string& strPath, std::string_view sText);
void Files_Clear();

// Answers to ioctl by request; -1 for a request without one.
void Driver_Answer(u32 dwRequest, i32 iAnswer);
