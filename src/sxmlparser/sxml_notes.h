// The first walk over a text.  The tree is built from its notes alone.
//
// The walk copies each string to its final place at the start of the block, and notes that place, as long as block and
// notes have room.  Its counts are right even without room, so that the caller can make room and walk once more.
#pragma once

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "core/types.h"
#include "sxmlparser/sxml_scanner.h"

// Elements and attributes are numbered through the whole document, from 1.  A string is given as its distance from the
// start of the block, in bytes.  Note 0 stands for "no element".  It is written like any other note, which saves
// branches, but no part of the tree is built from it.
struct TElementNote {
  u32 dwName;
  u32 dwText;    // 0: none
  u32 dwParent;  // 0 at top level
  u32 dwNext;    // while the element is open: length of its name; later: number of its next sibling, or 0
  u32 dwChildren;
  u32 dwAttributes;
};

struct TAttributeNote {
  u32 dwName;
  u32 dwValue;
};

// No count overflows, because each counted byte of a string, and each note, corresponds to a byte of the text.
struct TNotePass {
  const char* pTextEnd;
  char* pszStrings;
  u32 dwStringsRoom;  // bytes that may be filled: at least g_iStringsSlack more belong to the block
  u32 dwStringsSize;  // bytes, NULs included
  TElementNote* atElements;
  TAttributeNote* pAttribute;  // the last note; attribute notes grow downwards, towards the elements
  u32 dwNotesRoom;             // bytes free between the two
  u32 dwElements;
  u32 dwAttributes;
  u32 dwDepth;
  u32 dwDeepest;
  u32 dwOpen;      // innermost open element, or 0
  u32 dwClosed;    // previous sibling of the element that would open next, or 0
  bool bSpilled;   // there was too little room: only the counts are valid
  bool bMismatch;  // a closing tag has named another element than the open one
};

// A short string is copied as a fixed number of bytes.  Nearly all names fit into the first number, nearly all values
// and texts into the second.
constexpr i32 g_iShortName = 16;
constexpr i32 g_iShortText = 32;
constexpr i32 g_iStringsSlack = g_iShortText;

// Copies a string, ends it with a NUL and returns its place.  A short string is copied as iShort bytes at once; the
// next string overwrites the bytes after it.
[[gnu::always_inline]] inline u32 Note_String(TNotePass& t, std::string_view sv, i32 iShort) {
  const u32 dwPlace = t.dwStringsSize;
  t.dwStringsSize += static_cast<u32>(sv.size()) + 1;
  if (t.dwStringsSize > t.dwStringsRoom) {
    t.bSpilled = true;
    return dwPlace;
  }
  char* const pszCopy = t.pszStrings + dwPlace;
  if (std::ssize(sv) <= iShort && t.pTextEnd - sv.data() >= iShort) {
    std::memcpy(pszCopy, sv.data(), static_cast<size_t>(iShort));
  } else {
    std::memcpy(pszCopy, sv.data(), sv.size());
  }
  pszCopy[sv.size()] = '\0';
  return dwPlace;
}

[[gnu::always_inline]] inline bool Note_TakeRoom(TNotePass& t, u32 dwBytes) {
  if (t.dwNotesRoom < dwBytes) t.bSpilled = true;
  if (t.bSpilled) return false;
  t.dwNotesRoom -= dwBytes;
  return true;
}

[[gnu::always_inline]] inline void Pass_Opening(TNotePass& t, std::string_view sName) {
  const u32 dwName = Note_String(t, sName, g_iShortName);
  ++t.dwElements;
  t.dwDeepest = std::max(t.dwDeepest, ++t.dwDepth);
  if (!Note_TakeRoom(t, sizeof(TElementNote))) {
    t.dwOpen = t.dwClosed = 0;
    return;
  }
  t.atElements[t.dwElements] = {.dwName = dwName,
                                .dwText = 0,
                                .dwParent = t.dwOpen,
                                .dwNext = static_cast<u32>(sName.size()),
                                .dwChildren = 0,
                                .dwAttributes = 0};
  ++t.atElements[t.dwOpen].dwChildren;
  t.atElements[t.dwClosed].dwNext = t.dwElements;
  t.dwOpen = t.dwElements;
  t.dwClosed = 0;
}

[[gnu::always_inline]] inline void Pass_AttributeName(TNotePass& t, std::string_view sName) {
  const u32 dwName = Note_String(t, sName, g_iShortName);
  ++t.dwAttributes;
  if (!Note_TakeRoom(t, sizeof(TAttributeNote))) return;
  *--t.pAttribute = {.dwName = dwName, .dwValue = 0};
  ++t.atElements[t.dwOpen].dwAttributes;
}

[[gnu::always_inline]] inline void Pass_AttributeValue(TNotePass& t, std::string_view sValue) {
  const u32 dwValue = Note_String(t, sValue, g_iShortText);
  if (!t.bSpilled) t.pAttribute->dwValue = dwValue;
}

// The text belongs to the open element, which is about to close.  If a closing tag comes first in the document, no
// element is open, and note 0 takes the text.
[[gnu::always_inline]] inline void Pass_Text(TNotePass& t, std::string_view sText) {
  t.atElements[t.dwOpen].dwText = Note_String(t, sText, g_iShortText);
}

// Elements at top level are not linked as siblings.
[[gnu::always_inline]] inline void Note_Close(TNotePass& t) {
  --t.dwDepth;
  const u32 dwParent = t.atElements[t.dwOpen].dwParent;
  t.atElements[t.dwOpen].dwNext = 0;
  t.dwClosed = dwParent == 0 ? 0 : t.dwOpen;
  t.dwOpen = dwParent;
}

[[gnu::always_inline]] inline void Pass_SelfClosing(TNotePass& t) {
  Pass_Text(t, {t.pTextEnd, size_t{0}});
  Note_Close(t);
}

// Nearly every closing tag is the open element's name and '>'.  For a name of up to eight bytes, one comparison of
// eight bytes finds that out.  Neither in the text nor in the block is anything read beyond eight bytes after a name.
[[gnu::always_inline]] inline size_t Pass_ExpectedName(const TNotePass& t, const char* p) {
  const size_t nLength = t.atElements[t.dwOpen].dwNext;
  if (t.dwOpen == 0 || static_cast<size_t>(t.pTextEnd - p) < nLength + 8) return 0;
  const char* const pszName = t.pszStrings + t.atElements[t.dwOpen].dwName;
  if (nLength > 8) {
    if (std::memcmp(pszName, p, nLength) != 0) return 0;
  } else if ((Bytes_Load(pszName) ^ Bytes_Load(p)) << (64 - 8 * nLength) != 0) {
    return 0;
  }
  return p[nLength] == '>' ? nLength : 0;
}

// Compares only as many bytes as the tag's name has: "</ab>" closes "abc", and "</>" closes any element.  A mismatch
// doesn't end the walk, because an error later in the text takes precedence.
[[gnu::always_inline]] inline i32 Pass_Closing(TNotePass& t, std::string_view sTag) {
  if (t.dwDepth == 0) return Scan_Error(SXML_ERROR_NESTING);
  const char* const pszName = t.pszStrings + t.atElements[t.dwOpen].dwName;
  if (t.dwOpen != 0 && std::strncmp(pszName, sTag.data(), sTag.size()) != 0) t.bMismatch = true;
  Note_Close(t);
  return 0;
}
