// The XML reader of the lens daemon's configuration documents: not validating, one block of memory per handle.
//
// Mode 1 turns a document into a tree of copies inside the handle's block; values are then fetched by a list of element
// names.  The tree is built from notes, without reading the text again: 24 bytes for each element, 8 for each
// attribute.  The handle keeps their memory for the next document.  Mode 2 calls back for each event and stores
// nothing; the daemon itself does not use it.
//
// Elements, attributes, text, comments and processing instructions are known.  Entity references stay as they are;
// CDATA sections and DOCTYPE declarations are errors.  Text is kept only for elements without child elements, and only
// the part after the last comment or instruction.
//
// A handle belongs to one thread at a time; nothing here locks or prints.  Pointers are borrowed for the call.  A null
// handle is refused with -1, null or 0, by the type of the result (SetOption: 0).
// The result of a lookup lies in the block, so it is valid until the next parse in mode 1, or the release.
#pragma once

#include "sxmlparser/sxml_records.h"

// Makes a handle whose callbacks do nothing; SXMLParser_Release frees it.  Returns 0, or -1 if phParser is null, or if
// there is no memory, and the slot then holds null.
i32 SXMLParser_Initial(HSXMLParser* phParser);

// Frees block, notes and handle and clears the slot, which may hold null.  Returns 0, or -1 if phParser is null.
i32 SXMLParser_Release(HSXMLParser* phParser);

// Takes the values that ptOption->dwFlags names.  Always returns 0; a null record changes nothing.
i32 SXMLParser_SetOption(HSXMLParser hParser, const TSXMLOption* ptOption);

// Reads the whole file and parses it as SXMLParser_ProcessBuffer does; the first NUL byte ends the document.  Blocks
// while the file is read.  Also returns -1 if the file can't be opened, measured (a directory, a pipe) or read, is
// larger than 2^31 - 2 bytes, or if there is no memory for its text.  A call in mode 1 that fails leaves no tree.
i32 SXMLParser_Process(HSXMLParser hParser, const char* pszPath, i32 iMode);

// Parses the NUL-terminated pszText.  The text is never written to, and a tree doesn't need it once it is built.
// Mode 1 drops the last tree, whatever the result.  Mode 2 keeps a tree, and does not check the nesting.  Any other
// mode returns 0 at once.  Returns 0, an ESXMLError, or -1 for mode 2 without dwMode 1, for a null text, or for a text
// of more than 2^31 - 2 bytes.  Allocates at most once for the block and once for the notes.  If both are still large
// enough from earlier documents, it allocates nothing and walks the text only once.
i32 SXMLParser_ProcessBuffer(HSXMLParser hParser, const char* pszText, i32 iMode);

// Lookups.  The daemon itself calls only SXMLParser_GetElementText; the others serve other callers, such as tests.
//
// A path is given as the element names from the root element's on, then a null.  Of several siblings with the same name
// only the first is found.  A handle without a tree (nothing parsed yet, or the last parse failed) gives null or 0.

// Returns the element's text: null if there is no such path, "" if the element has no text.
[[gnu::sentinel]] const char* SXMLParser_GetElementText(HSXMLParser hParser, ...);
[[gnu::sentinel]] const TXMLElement* SXMLParser_GetElement(HSXMLParser hParser, ...);
// Returns the element's iIndex, or 0.
[[gnu::sentinel]] i32 SXMLParser_GetElementIndex(HSXMLParser hParser, ...);
// Returns the value of the element's first attribute of that name; null if the name is null or nothing is found.
[[gnu::sentinel]] const char* SXMLParser_GetAttributeValue(HSXMLParser hParser, const char* pszAttribute, ...);
// Returns that attribute's iIndex, or 0.
[[gnu::sentinel]] i32 SXMLParser_GetAttributeIndex(HSXMLParser hParser, const char* pszAttribute, ...);

// Walk over all elements in the order of opening tags.  The handle keeps the position.  Null past the last element.
const TXMLElement* SXMLParser_GetFirstElement(HSXMLParser hParser);
const TXMLElement* SXMLParser_GetNextElement(HSXMLParser hParser);

// Lookups by number, from 1.  A number that the document does not have gives null.
const TXMLElement* SXMLParser_GetElementByIndex(HSXMLParser hParser, i32 iIndex);
const char* SXMLParser_GetElementTextByIndex(HSXMLParser hParser, i32 iIndex);
const char* SXMLParser_GetAttributeValueByIndex(HSXMLParser hParser, i32 iIndex);
i32 SXMLParser_GetElementCount(HSXMLParser hParser);
i32 SXMLParser_GetAttributeCount(HSXMLParser hParser);
