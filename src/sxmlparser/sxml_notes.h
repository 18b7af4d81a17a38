// The first walk over a text: what it notes down is all that the tree is built from.
//
// The walk copies each string to where it will stay, the start of the block, and notes the place, as far as block and
// notes reach.  What it counts is right in any case, so that the caller can make room and walk once more.
#pragma once

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "core/types.h"
#include "sxmlparser/sxml_scanner.h"

// Elements and attributes are numbered through the whole document, from 1.  Strings: bytes from the start of the block.
// Note 0 stands for no element: it is written to like any other, which saves branches, and told to nobody.
struct TElementNote {
  u32 dwName;
  u32 dwText;    // 0: none
  u32 dwParent;  // 0 at top level
  u32 dwNext;    // while the element is open the length of its name, then its next sibling, or 0
  u32 dwChildren;
  u32 dwAttributes;
};

struct TAttributeNote {
  u32 dwName;
  u32 dwValue;
};

// No sum overflows: each byte counted for the strings, and each note, stands for a byte of the text.
struct TNotePass {
  const char* pTextEnd;
  char* pszStrings;
  u32 dwStringsRoom;  // bytes that may be filled: at least g_iStringsSlack more belong to the block
  u32 dwStringsSize;  // bytes, NULs included
  TElementNote* atElements;
  TAttributeNote* pAttribute;  // noted last: they grow downwards, towards the elements
  u32 dwNotesRoom;             // bytes between the two
  u32 dwElements;
  u32 dwAttributes;
  u32 dwDepth;
  u32 dwDeepest;
  u32 dwOpen;      // innermost open element, or 0
  u32 dwClosed;    // elder sibling of the element that would open next, or 0
  bool bSpilled;   // the room didn't reach: only the counts are good
  bool bMismatch;  // a closing tag names another element than the open one
};

// What a short string is copied as, in bytes: nearly all names, and nearly all values and texts, are no longer.
constexpr i32 g_iShortName = 16;
constexpr i32 g_iShortText = 32;
constexpr i32 g_iStringsSlack = g_iShortText;

// Copies and NUL-terminates a string and tells its place.  A short one goes as iShort bytes at once, of which the tail
// is soon overwritten.
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

[[gnu::always_inline]] inline void Pass_Opening(TNotePass& t, std::string_view svName) {
  const u32 dwName = Note_String(t, svName, g_iShortName);
  ++t.dwElements;
  t.dwDeepest = std::max(t.dwDeepest, ++t.dwDepth);
  if (!Note_TakeRoom(t, sizeof(TElementNote))) {
    t.dwOpen = t.dwClosed = 0;
    return;
  }
  t.atElements[t.dwElements] = {.dwName = dwName,
                                .dwText = 0,
                                .dwParent = t.dwOpen,
                                .dwNext = static_cast<u32>(svName.size()),
                                .dwChildren = 0,
                                .dwAttributes = 0};
  ++t.atElements[t.dwOpen].dwChildren;
  t.atElements[t.dwClosed].dwNext = t.dwElements;
  t.dwOpen = t.dwElements;
  t.dwClosed = 0;
}

[[gnu::always_inline]] inline void Pass_AttributeName(TNotePass& t, std::string_view svName) {
  const u32 dwName = Note_String(t, svName, g_iShortName);
  ++t.dwAttributes;
  if (!Note_TakeRoom(t, sizeof(TAttributeNote))) return;
  *--t.pAttribute = {.dwName = dwName, .dwValue = 0};
  ++t.atElements[t.dwOpen].dwAttributes;
}

[[gnu::always_inline]] inline void Pass_AttributeValue(TNotePass& t, std::string_view svValue) {
  const u32 dwValue = Note_String(t, svValue, g_iShortText);
  if (!t.bSpilled) t.pAttribute->dwValue = dwValue;
}

// A text event comes for the element that is about to close; in a text of nothing but "</" there is none.
[[gnu::always_inline]] inline void Pass_Text(TNotePass& t, std::string_view svText) {
  t.atElements[t.dwOpen].dwText = Note_String(t, svText, g_iShortText);
}

// An element at top level is nobody's elder sibling.
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

// Nearly every closing tag is the open element's name and '>': found out by a comparison of eight bytes.  Further than
// eight bytes behind a name, in text and block, nothing is read.
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

// Compares over the tag's length only: "</ab>" closes "abc", and "</>" anything.  A mismatch doesn't end the walk: what
// is wrong further on is told first.
[[gnu::always_inline]] inline i32 Pass_Closing(TNotePass& t, std::string_view svTag) {
  if (t.dwDepth == 0) return Scan_Error(SXML_ERROR_NESTING);
  const char* const pszName = t.pszStrings + t.atElements[t.dwOpen].dwName;
  if (t.dwOpen != 0 && std::strncmp(pszName, svTag.data(), svTag.size()) != 0) t.bMismatch = true;
  Note_Close(t);
  return 0;
}
