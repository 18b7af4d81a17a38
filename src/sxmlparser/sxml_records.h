// The types that the XML reader and its callers share: the handle, the errors, the tree, the callbacks, the options.
// sxmlparser.h says how they are used.
#pragma once

#include "core/types.h"

struct TSXMLParser;
using HSXMLParser = TSXMLParser*;

// Why a document is refused: the first error in the text.  SXML_ERROR_CLOSING_NAME counts only without any other.
enum ESXMLError : u32 {
  SXML_ERROR_NO_MEMORY = 0x80000004,     // no memory for block or notes, or one would exceed 2^31 - 1 bytes
  SXML_ERROR_CLOSING_NAME = 0x80000005,  // a closing tag's name differs from the open element's
  SXML_ERROR_TAG_START = 0x80000006,     // after '<' comes neither a tag, nor a comment, nor an instruction
  SXML_ERROR_EQUALS = 0x80000009,        // an attribute's name isn't followed by '='
  SXML_ERROR_STACK_FULL = 0x8000000a,    // nested deeper than was measured; no document causes this
  SXML_ERROR_COMMENT = 0x8000000b,       // a comment isn't closed, or the document ends right after it
  SXML_ERROR_INSTRUCTION = 0x8000000c,   // a processing instruction isn't closed, or the document ends right after it
  SXML_ERROR_TAG_END = 0x8000000d,       // a tag isn't ended by '>' or "/>", or holds a stray character
  SXML_ERROR_VALUE = 0x8000000e,         // an attribute's value isn't quoted, or its closing quote is missing
  SXML_ERROR_NESTING = 0x80000010,       // a closing tag with nothing open, or elements open at the end
};

struct TXMLAttribute {
  i32 iIndex;  // number in the whole document, from 1
  const char* pszName;
  const char* pszValue;
};

struct TXMLElement {
  i32 iIndex;  // number in order of opening tags, from 1
  const char* pszName;
  const char* pszXMLText;  // never null
  i32 iChildCount;         // direct children
  i32 iAttributeCount;
  TXMLAttribute* ptFirstAttribute;  // iAttributeCount records in a row, null if there is none
  TXMLElement* ptFirstChild;
  TXMLElement* ptNextSibling;  // null at top level, even where another element follows
  TXMLElement* ptParent;       // null at top level
};

// Callbacks of mode 2.  Names, values and texts point into the caller's text and aren't NUL-terminated; their lengths
// are in bytes.  pszElement is the last opening tag's name, empty before the first.
using PFNSXMLElement = void (*)(void* pvUserData, const char* pszElement, i32 iElementLength);
using PFNSXMLAttribute = void (*)(void* pvUserData, const char* pszElement, i32 iElementLength, const char* pszName,
                                  i32 iNameLength, const char* pszValue, i32 iValueLength);
using PFNSXMLText = void (*)(void* pvUserData, const char* pszElement, i32 iElementLength, const char* pszText,
                             i32 iTextLength);  // "<a/>" gives a null text of length 0

enum ESXMLOption : u32 {
  SXML_OPTION_MODE = 1,       // takes dwMode
  SXML_OPTION_CALLBACKS = 2,  // takes the four callbacks and pvUserData; a null callback means "do nothing"
  SXML_OPTION_EXTRA = 4,      // takes dwExtra1 and dwExtra2
};

struct TSXMLOption {
  u32 dwFlags;  // ESXMLOption bits; a value whose bit is missing stays as it was
  u32 dwMode;   // 1 allows mode 2; mode 1 is always allowed
  PFNSXMLElement pfnStartElement;
  PFNSXMLElement pfnEndElement;
  PFNSXMLAttribute pfnAttribute;
  PFNSXMLText pfnText;
  void* pvUserData;  // first argument of every callback
  u32 dwExtra1;      // kept for the caller, never read
  u32 dwExtra2;
};

enum ESXMLMode : i32 { SXML_MODE_TREE = 1, SXML_MODE_EVENTS = 2 };
