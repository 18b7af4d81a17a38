// The XML reader of the lens daemon's configuration documents: not validating, one block of memory per handle.
//
// Mode 1 turns a document into a tree of copies inside the handle's block; values are then fetched by a list of element
// names.  Beside the block a handle keeps notes from document to document, 24 bytes an element and 8 an attribute, from
// which the tree is built without reading the text again.  Mode 2 calls back per event and stores nothing.  Elements,
// attributes, text, comments and processing instructions are known; entity references stay as they stand, CDATA
// sections and DOCTYPE declarations are errors. Text is kept of an element without child elements only, and of that the
// stretch behind its last comment or instruction.
//
// A handle belongs to one thread at a time, nothing here locks.  Nothing here prints.  Pointers are borrowed for the
// call.  A null handle is refused: -1, null or 0, by the type of the result (SetOption: 0).
// What a lookup gives out lies in the block: it is void from the next mode 1 parse or the release on.
#pragma once

#include "sxmlparser/sxml_records.h"

// Makes a handle with callbacks that do nothing, to be given back by SXMLParser_Release.
// 0.  -1: no memory, the slot then holds null, or phParser is null.
i32 SXMLParser_Initial(HSXMLParser* phParser);

// Frees block, notes and handle and clears the slot; a slot that holds null is left so.  0.  -1: phParser is null.
i32 SXMLParser_Release(HSXMLParser* phParser);

// Takes what ptOption->dwFlags says.  0 always; a null record changes nothing.
i32 SXMLParser_SetOption(HSXMLParser hParser, const TSXMLOption* ptOption);

// Reads the file whole and parses it as SXMLParser_ProcessBuffer does; its first NUL byte ends the document.
// Blocks for as long as the file takes.  -1: it can't be opened, measured (a directory, a pipe) or read, is larger than
// 2^31 - 2 bytes, or there is no memory for its text.  A mode 1 call that fails in any way leaves no tree.
i32 SXMLParser_Process(HSXMLParser hParser, const char* pszPath, i32 iMode);

// Parses the NUL-terminated pszText.  The text is never written to, and a tree doesn't need it once it is built.
// Mode 1: the last tree is gone, whatever the result.  Mode 2: a tree stays, nesting isn't followed.
// Any other mode: 0 at once.  0 or an ESXMLError; -1: mode 2 without dwMode 1, a null text, or one of more than
// 2^31 - 2 bytes.  At most one allocation for the block and one for the notes; none, and the text walked once only,
// where those of the documents before are large enough.
i32 SXMLParser_ProcessBuffer(HSXMLParser hParser, const char* pszText, i32 iMode);

// Lookups by path: element names from the root element's on, then a null.  Of several siblings with one name only the
// first is seen.  A handle without a tree (nothing parsed yet, or the last parse failed) gives null or 0.

// Text of the element: null if there is no such path, "" if the element has no text.
[[gnu::sentinel]] const char* SXMLParser_GetElementText(HSXMLParser hParser, ...);
[[gnu::sentinel]] const TXMLElement* SXMLParser_GetElement(HSXMLParser hParser, ...);
// Its iIndex, or 0.
[[gnu::sentinel]] i32 SXMLParser_GetElementIndex(HSXMLParser hParser, ...);
// Value of the element's first attribute of that name; null if the name is null or nothing is found.
[[gnu::sentinel]] const char* SXMLParser_GetAttributeValue(HSXMLParser hParser, const char* pszAttribute, ...);
// Its iIndex, or 0.
[[gnu::sentinel]] i32 SXMLParser_GetAttributeIndex(HSXMLParser hParser, const char* pszAttribute, ...);

// The walk over all elements in order of opening tags; the position is the handle's.  Null past the last.
const TXMLElement* SXMLParser_GetFirstElement(HSXMLParser hParser);
const TXMLElement* SXMLParser_GetNextElement(HSXMLParser hParser);

// Lookups by number, from 1.  Null outside the document.
const TXMLElement* SXMLParser_GetElementByIndex(HSXMLParser hParser, i32 iIndex);
const char* SXMLParser_GetElementTextByIndex(HSXMLParser hParser, i32 iIndex);
const char* SXMLParser_GetAttributeValueByIndex(HSXMLParser hParser, i32 iIndex);
i32 SXMLParser_GetElementCount(HSXMLParser hParser);
i32 SXMLParser_GetAttributeCount(HSXMLParser hParser);
