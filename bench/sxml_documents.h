// Documents for the benchmark of the XML reader: configuration files like a camera's, and large ones.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct TXMLDocument {
  std::string sName;
  std::string sText;
};

// The .xml files in pszDirectory and below it, in the order of their paths.  None if the directory cannot be read.
std::vector<TXMLDocument> Documents_Load(const char* pszDirectory);

// Two small ones: a lens profile and a capability list.
std::vector<TXMLDocument> Documents_Small();

// Four documents of about dwBytes each, the same on every run.  "wide": one root with very many children.  "deep":
// branches of 90 levels, as deep as every peer goes.  "wide and deep": branches of 40 levels with two leaves on each
// and 40 at their ends.  "mixed": groups of settings with attributes, comments and longer texts.
std::vector<TXMLDocument> Documents_Large(size_t dwBytes);
