// The handle of the XML reader, and the tree in its block.
#pragma once

#include <cstddef>
#include <string_view>

#include "core/types.h"
#include "sxmlparser/sxml_records.h"

// The block holds, in this order: the strings; iXMLElementCount + 1 element records; iXMLAttributeCount + 1 attribute
// records; the stack.  Slot 0 of both arrays takes no record: element n is pXMLElement[n].  The stack keeps its place,
// but nothing is pushed: the parent of each element is among the notes.
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
  i32 iBlockSize;          // bytes; never shrinks but to 0, when memory runs out
  i32 iXMLStackSize;       // deepest nesting of the document
  i32 iXMLStrSize;         // bytes of the strings, NULs included
  i32 iXMLElementCount;    // 0 without a tree: every lookup is bounded by the counts
  i32 iXMLAttributeCount;  // likewise
  char* pszXMLString;
  TXMLElement* pXMLElement;
  TXMLAttribute* pXMLAttribute;
  i32 iXMLStackDepth;   // elements now open
  i32 iElementIndex;    // number last given; after the parse, position of the walk
  i32 iAttributeIndex;  // number last given
  char* pszCurXMLStr;   // next free byte of the strings
  TXMLElement* pCurElement;
  TXMLElement** ppXMLStack;
  TXMLAttribute* pCurAttribute;
  void* pvNotes;   // what the walk over the text notes down; null before the first document
  i32 iNotesSize;  // bytes, as iBlockSize
};

// The records count in words of the 32-bit camera; elsewhere only order and meaning are the same.
static_assert(sizeof(void*) != 4 || (sizeof(TSXMLParser) == 104 && sizeof(TXMLElement) == 36 &&
                                     sizeof(TXMLAttribute) == 12 && sizeof(TSXMLOption) == 36));
static_assert(sizeof(void*) != 4 || (offsetof(TSXMLParser, pvBlock) == 32 && offsetof(TXMLElement, ptParent) == 32));
static_assert(offsetof(TSXMLParser, dwExtra2) < offsetof(TSXMLParser, pvBlock) &&
              offsetof(TSXMLParser, pvBlock) < offsetof(TSXMLParser, iXMLStackDepth) &&
              offsetof(TSXMLParser, iXMLStackDepth) < offsetof(TSXMLParser, pCurAttribute));

// Builds the tree of svText, behind which a NUL stands and in which none does, of at most 2^31 - 2 bytes.
// 0 or an ESXMLError, and then without a tree.
i32 Tree_Parse(TSXMLParser* pThis, std::string_view svText);

// Leaves the handle without a tree; the block stays for the next document.
void Tree_Drop(TSXMLParser* pThis);
