// The handle of the XML reader, and the tree in its block.
#pragma once

#include <cstddef>
#include <string_view>

#include "core/types.h"
#include "sxmlparser/sxml_records.h"

// The block holds, in this order: the strings; iXMLElementCount + 1 element records; iXMLAttributeCount + 1 attribute
// records; the stack.  Slot 0 of both arrays is unused, so element n is pXMLElement[n].  The stack has its place in the
// block, but nothing is pushed onto it: the notes hold the parent of each element.
struct TSXMLParser {
  u32 dwMode;
  PFNSXMLElement pfnStartElement;  // the callbacks are never null
  PFNSXMLElement pfnEndElement;
  PFNSXMLAttribute pfnAttribute;
  PFNSXMLText pfnText;
  void* pvUserData;
  u32 dwExtra1;
  u32 dwExtra2;
  void* pvBlock;           // null before the first document
  i32 iBlockSize;          // bytes; shrinks only to 0, when memory runs out
  i32 iXMLStackSize;       // deepest nesting of the document
  i32 iXMLStrSize;         // bytes of the strings, NULs included
  i32 iXMLElementCount;    // 0 without a tree; every lookup is bounded by the two counts
  i32 iXMLAttributeCount;  // 0 without a tree
  char* pszXMLString;
  TXMLElement* pXMLElement;
  TXMLAttribute* pXMLAttribute;
  i32 iXMLStackDepth;   // elements now open
  i32 iElementIndex;    // number last given; after the parse, position of SXMLParser_GetNextElement
  i32 iAttributeIndex;  // number last given
  char* pszCurXMLStr;   // next free byte of the strings
  TXMLElement* pCurElement;
  TXMLElement** ppXMLStack;
  TXMLAttribute* pCurAttribute;
  void* pvNotes;   // the notes of sxml_notes.h; null before the first document
  i32 iNotesSize;  // bytes; shrinks only to 0, when memory runs out
};

// The exact layout matters on the 32-bit camera; elsewhere only the order and meaning of the fields are the same.
static_assert(sizeof(void*) != 4 || (sizeof(TSXMLParser) == 104 && sizeof(TXMLElement) == 36 &&
                                     sizeof(TXMLAttribute) == 12 && sizeof(TSXMLOption) == 36));
static_assert(sizeof(void*) != 4 || (offsetof(TSXMLParser, pvBlock) == 32 && offsetof(TXMLElement, ptParent) == 32));
static_assert(offsetof(TSXMLParser, dwExtra2) < offsetof(TSXMLParser, pvBlock) &&
              offsetof(TSXMLParser, pvBlock) < offsetof(TSXMLParser, iXMLStackDepth) &&
              offsetof(TSXMLParser, iXMLStackDepth) < offsetof(TSXMLParser, pCurAttribute));

// Builds the tree of sText, which has at most 2^31 - 2 bytes, holds no NUL and is followed by one.  Returns 0, or an
// ESXMLError, and then leaves no tree.
i32 Tree_Parse(TSXMLParser* pThis, std::string_view sText);

// Leaves the handle without a tree; the block stays for the next document.
void Tree_Drop(TSXMLParser* pThis);
