// The scanner of the XML reader walks a text once and reports what it finds to a pass.
//
// A pass is a record with these overloads:
//   void Pass_Opening(TPass&, std::string_view sName);         "<name"
//   void Pass_AttributeName(TPass&, std::string_view sName);   comes before its value; the text may end in between
//   void Pass_AttributeValue(TPass&, std::string_view sValue);
//   void Pass_Text(TPass&, std::string_view sText);            before a "</" that follows its own opening tag
//   void Pass_SelfClosing(TPass&);                              "/>"
//   i32  Pass_Closing(TPass&, std::string_view sName);         "</name"; an error (not 0) ends the walk
//   size_t Pass_ExpectedName(const TPass&, const char* p);
// Pass_ExpectedName is called after "</", if at least one more byte follows.  It returns the length of the open
// element's name if that name and '>' stand at p; the tag is then reported as "</", which closes any element.  It
// returns 0 if they do not stand there, or if the pass wants each name reported.
// Views point into the text.  Everything is inlined into one loop for each pass, to keep the walk's state in registers.
// With calls instead, a walk takes twice as long.
#pragma once

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <array>
#include <bit>
#include <cstring>
#include <string_view>

#include "core/types.h"
#include "sxmlparser/sxml_records.h"

enum EXMLClass : u8 { CLASS_BLANK = 1, CLASS_LETTER = 2, CLASS_TAG_START = 4, CLASS_NAME = 8 };

// Indexed by unsigned byte.  Bytes from 0x80 up and line ends are in no class.
constexpr std::array<u8, 256> g_abXMLClass = [] {
  std::array<u8, 256> abClass{};
  for (const char c : std::string_view("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ")) {
    abClass[static_cast<u8>(c)] = CLASS_LETTER | CLASS_TAG_START | CLASS_NAME;
  }
  for (const char c : std::string_view("0123456789-.:")) abClass[static_cast<u8>(c)] = CLASS_NAME;
  abClass['_'] = CLASS_TAG_START | CLASS_NAME;
  abClass[' '] = abClass['\t'] = CLASS_BLANK;
  return abClass;
}();

inline bool Char_Is(char c, EXMLClass eClass) {
  return (g_abXMLClass[static_cast<u8>(c)] & eClass) != 0;
}

// Searches take 8 or 64 bytes at a time, because a search byte by byte costs a branch for each byte.

constexpr u64 g_qwHighBits = 0x8080808080808080;

constexpr u64 Bytes_All(char cValue) {
  return 0x0101010101010101 * u64{static_cast<u8>(cValue)};
}

inline u64 Bytes_Load(const char* p) {
  u64 qw;
  std::memcpy(&qw, p, sizeof(qw));
  return qw;
}

// Marks each byte that equals cValue: its high bit is set in the result, and no other bit is.
constexpr u64 Bytes_Equal(u64 qw, char cValue) {
  const u64 qwDiffer = qw ^ Bytes_All(cValue);
  return ~(((qwDiffer & ~g_qwHighBits) + ~g_qwHighBits) | qwDiffer) & g_qwHighBits;
}

// Returns the number of the first marked byte, in the order of the text.
inline u32 Bytes_First(u64 qwMarks) {
  static_assert(std::endian::native == std::endian::little);
  return static_cast<u32>(std::countr_zero(qwMarks)) / 8;
}

// Moves the eight marks into the low eight bits.
constexpr u64 Bytes_Gather(u64 qwMarks) {
  return ((qwMarks >> 7) * 0x0102040810204080) >> 56;
}

static_assert(Bytes_Gather(Bytes_Equal(0x3c803d003b3c3cff, '<')) == 0b10000110);

constexpr i32 g_iBlockLength = 64;

// Returns one bit for each of 64 bytes, set where the byte is '<'.
inline u64 Block_Tags(const char* p) {
  u64 qwTags = 0;
#ifdef __SSE2__
  for (u32 i = 0; i < g_iBlockLength; i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
    qwTags |= u64{static_cast<u32>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8('<'))))} << i;
  }
#else
  for (u32 i = 0; i < g_iBlockLength; i += 8) qwTags |= Bytes_Gather(Bytes_Equal(Bytes_Load(p + i), '<')) << i;
#endif
  return qwTags;
}

struct TScan {
  const char* p;
  const char* pEnd;       // the NUL that ends the text
  const char* pBlockEnd;  // end of the 64 bytes that qwTags describes; may lie beyond pEnd
  u64 qwTags;             // a bit for each '<' in these 64 bytes that hasn't been passed
  bool bClosed;           // the last tag closed something
};

// Returns the first cWanted from p on, or pEnd.
[[gnu::always_inline]] inline const char* Scan_Find(const char* p, const char* pEnd, char cWanted) {
  for (; pEnd - p >= 8; p += 8) {
    if (const u64 qwMarks = Bytes_Equal(Bytes_Load(p), cWanted); qwMarks != 0) return p + Bytes_First(qwMarks);
  }
  while (p != pEnd && *p != cWanted) ++p;
  return p;
}

// Moves past a run of name characters and returns the run.  Names are short and alike, so the processor predicts a
// branch for each byte well: four of them a round are faster than any arithmetic.
[[gnu::always_inline]] inline std::string_view Scan_Name(TScan& t) {
  const char* const pFrom = t.p;
  const char* p = pFrom;
  for (;; p += 4) {
    if (!Char_Is(p[0], CLASS_NAME)) return {pFrom, t.p = p};
    if (!Char_Is(p[1], CLASS_NAME)) return {pFrom, t.p = p + 1};
    if (!Char_Is(p[2], CLASS_NAME)) return {pFrom, t.p = p + 2};
    if (!Char_Is(p[3], CLASS_NAME)) return {pFrom, t.p = p + 3};
  }
}

[[gnu::always_inline]] inline void Scan_SkipBlanks(TScan& t) {
  while (Char_Is(*t.p, CLASS_BLANK)) ++t.p;
}

[[gnu::always_inline]] inline i32 Scan_Error(ESXMLError eError) {
  return static_cast<i32>(eError);
}

// Looks for '<' in the next 64 bytes.  Returns false if the text has ended.
[[gnu::always_inline]] inline bool Scan_NextBlock(TScan& t) {
  const i64 iLeft = t.pEnd - t.pBlockEnd;
  if (iLeft <= 0) return false;
  if (iLeft >= g_iBlockLength) {
    t.qwTags = Block_Tags(t.pBlockEnd);
  } else {
    char acRest[g_iBlockLength] = {};
    std::memcpy(acRest, t.pBlockEnd, static_cast<size_t>(iLeft));
    t.qwTags = Block_Tags(acRest);
  }
  t.pBlockEnd += g_iBlockLength;
  return true;
}

// Moves to the next '<'.  Returns false at the end of the text.  The place follows from qwTags alone, not from the end
// of the last tag, so the processor can begin with this tag before it has finished the last one.
template <typename TPass>
[[gnu::always_inline]] inline bool Scan_ToMarkup(TScan& t, TPass& tPass) {
  const char* pTag;
  do {
    while (t.qwTags == 0) {
      if (!Scan_NextBlock(t)) return false;
    }
    pTag = t.pBlockEnd - g_iBlockLength + std::countr_zero(t.qwTags);
    t.qwTags &= t.qwTags - 1;
  } while (pTag < t.p);  // skips each '<' inside a value, a comment or an instruction
  if (pTag[1] == '/' && !t.bClosed) Pass_Text(tPass, {t.p, pTag});
  t.p = pTag;
  return true;
}

// Called after "<!--" or "<?"; moves past sEnd.  The text may end right here, but not before sEnd or right after it.
[[gnu::always_inline]] inline i32 Scan_Past(TScan& t, std::string_view sEnd, ESXMLError eError) {
  if (t.p == t.pEnd) return 0;
  const char* const pFound = std::strstr(t.p, sEnd.data());
  if (pFound == nullptr || pFound + sEnd.size() == t.pEnd) return Scan_Error(eError);
  t.p = pFound + sEnd.size();
  return 0;
}

// Reads "name = ", up to the value.
template <typename TPass>
[[gnu::always_inline]] inline i32 Scan_AttributeName(TScan& t, TPass& tPass) {
  Pass_AttributeName(tPass, Scan_Name(t));
  Scan_SkipBlanks(t);
  if (*t.p != '=') return Scan_Error(SXML_ERROR_EQUALS);
  ++t.p;
  Scan_SkipBlanks(t);
  return 0;
}

template <typename TPass>
[[gnu::always_inline]] inline i32 Scan_AttributeValue(TScan& t, TPass& tPass) {
  const char cQuote = *t.p;
  if (cQuote != '"' && cQuote != '\'') return Scan_Error(SXML_ERROR_VALUE);
  const char* const pFrom = t.p + 1;
  t.p = Scan_Find(pFrom, t.pEnd, cQuote);
  if (t.p == t.pEnd) return Scan_Error(SXML_ERROR_VALUE);
  Pass_AttributeValue(tPass, {pFrom, t.p});
  ++t.p;
  Scan_SkipBlanks(t);
  return 0;
}

template <typename TPass>
[[gnu::always_inline]] inline i32 Scan_OpeningTagEnd(TScan& t, TPass& tPass) {
  if (*t.p == '>') {
    ++t.p;
    return 0;
  }
  if (*t.p != '/' || t.p[1] != '>') return Scan_Error(SXML_ERROR_TAG_END);
  t.p += 2;
  t.bClosed = true;
  Pass_SelfClosing(tPass);
  return 0;
}

template <typename TPass>
[[gnu::always_inline]] inline i32 Scan_OpeningTag(TScan& t, TPass& tPass) {
  t.bClosed = false;
  Pass_Opening(tPass, Scan_Name(t));
  Scan_SkipBlanks(t);
  while (Char_Is(*t.p, CLASS_LETTER)) {
    if (const i32 iError = Scan_AttributeName(t, tPass); iError != 0) return iError;
    if (t.p == t.pEnd) return 0;  // the text ends here; mode 1 then reports the element as still open
    if (const i32 iError = Scan_AttributeValue(t, tPass); iError != 0) return iError;
  }
  return Scan_OpeningTagEnd(t, tPass);
}

template <typename TPass>
[[gnu::always_inline]] inline i32 Scan_ClosingTag(TScan& t, TPass& tPass) {
  t.bClosed = true;
  if (t.p == t.pEnd) return 0;
  if (const size_t nLength = Pass_ExpectedName(tPass, t.p); nLength != 0) {
    t.p += nLength + 1;
    return Pass_Closing(tPass, {t.p, size_t{0}});
  }
  if (const i32 iError = Pass_Closing(tPass, Scan_Name(t)); iError != 0) return iError;
  Scan_SkipBlanks(t);
  if (*t.p != '>') return Scan_Error(SXML_ERROR_TAG_END);
  ++t.p;
  return 0;
}

// Reads a tag, a comment or an instruction, from its '<' to its end.
template <typename TPass>
[[gnu::always_inline]] inline i32 Scan_Markup(TScan& t, TPass& tPass) {
  ++t.p;
  if (Char_Is(*t.p, CLASS_TAG_START)) return Scan_OpeningTag(t, tPass);
  switch (*t.p) {
    case '/':
      ++t.p;
      return Scan_ClosingTag(t, tPass);
    case '?':
      ++t.p;
      return Scan_Past(t, "?>", SXML_ERROR_INSTRUCTION);
    case '!':
      if (t.p[1] != '-' || t.p[2] != '-') return Scan_Error(SXML_ERROR_TAG_START);
      t.p += 3;
      return Scan_Past(t, "-->", SXML_ERROR_COMMENT);
    case '\0':
      return 0;
    default:
      return Scan_Error(SXML_ERROR_TAG_START);
  }
}

// Walks sText, which must hold no NUL and must be followed by one.  Returns 0, or the first error.
template <typename TPass>
[[gnu::always_inline]] inline i32 Scan_Run(std::string_view sText, TPass& tPass) {
  TScan t{
      .p = sText.data(), .pEnd = sText.data() + sText.size(), .pBlockEnd = sText.data(), .qwTags = 0, .bClosed = false};
  while (Scan_ToMarkup(t, tPass)) {
    if (const i32 iError = Scan_Markup(t, tPass); iError != 0) return iError;
  }
  return 0;
}
