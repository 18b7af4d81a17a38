// The scanner of the XML reader: walks a text once and tells what it meets to a pass.
//
// A pass is a record with these overloads:
//   void Pass_Opening(TPass&, std::string_view svName);         "<name"
//   void Pass_AttributeName(TPass&, std::string_view svName);   comes before its value; the text may end in between
//   void Pass_AttributeValue(TPass&, std::string_view svValue);
//   void Pass_Text(TPass&, std::string_view svText);            before "</" that follows its own opening tag
//   void Pass_SelfClosing(TPass&);                              "/>"
//   i32  Pass_Closing(TPass&, std::string_view svName);         "</name"; an error (not 0) ends the walk
//   size_t Pass_ExpectedName(const TPass&, const char* p);
// The last is asked behind "</", where at least a byte of text is left: the length of the open element's name if that
// and '>' stand at p.  The tag is then told as "</", which closes anything.  0 where it doesn't stand there or the pass
// wants to be told each name.
// Views point into the text.  All of it is inlined into one loop a pass, so that the walk's state lies in registers:
// as calls it takes twice as long.
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

// By unsigned byte.  No byte from 0x80 up is in a class, nor is a line end.
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

// Searches take eight or 64 bytes at a time, since a walk byte by byte pays for every byte with a branch.

constexpr u64 g_qwHighBits = 0x8080808080808080;

constexpr u64 Bytes_All(char cValue) {
  return 0x0101010101010101 * u64{static_cast<u8>(cValue)};
}

inline u64 Bytes_Load(const char* p) {
  u64 qw;
  std::memcpy(&qw, p, sizeof(qw));
  return qw;
}

// Marks the bytes equal to cValue by their high bits.
constexpr u64 Bytes_Equal(u64 qw, char cValue) {
  const u64 qwDiffer = qw ^ Bytes_All(cValue);
  return ~(((qwDiffer & ~g_qwHighBits) + ~g_qwHighBits) | qwDiffer) & g_qwHighBits;
}

// Number of the first marked byte in the order of the text.
inline u32 Bytes_First(u64 qwMarks) {
  static_assert(std::endian::native == std::endian::little);
  return static_cast<u32>(std::countr_zero(qwMarks)) / 8;
}

// The eight marks as the low eight bits.
constexpr u64 Bytes_Gather(u64 qwMarks) {
  return ((qwMarks >> 7) * 0x0102040810204080) >> 56;
}

static_assert(Bytes_Gather(Bytes_Equal(0x3c803d003b3c3cff, '<')) == 0b10000110);

constexpr i32 g_iBlockLength = 64;

// One bit for each '<' among 64 bytes.
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
  const char* pEnd;       // the NUL behind the text
  const char* pBlockEnd;  // behind the 64 bytes that qwTags tells of, may lie behind pEnd
  u64 qwTags;             // their '<' that haven't been passed
  bool bClosed;           // the last tag closed something
};

// The first cWanted from p on, or pEnd.
[[gnu::always_inline]] inline const char* Scan_Find(const char* p, const char* pEnd, char cWanted) {
  for (; pEnd - p >= 8; p += 8) {
    if (const u64 qwMarks = Bytes_Equal(Bytes_Load(p), cWanted); qwMarks != 0) return p + Bytes_First(qwMarks);
  }
  while (p != pEnd && *p != cWanted) ++p;
  return p;
}

// Moves behind a run of name characters and returns the run.  Names are short and alike: here a branch a byte, four to
// a round, is guessed rightly and beats any arithmetic.
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

// Looks for '<' in the next 64 bytes; false where the text has ended.
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

// Moves to the next '<'; false at the end of the text.  Where it stands is known from the block alone, not from where
// the last tag ended: so the processor need not wait for one tag to begin with the next.
template <typename TPass>
[[gnu::always_inline]] inline bool Scan_ToMarkup(TScan& t, TPass& tPass) {
  const char* pTag;
  do {
    while (t.qwTags == 0) {
      if (!Scan_NextBlock(t)) return false;
    }
    pTag = t.pBlockEnd - g_iBlockLength + std::countr_zero(t.qwTags);
    t.qwTags &= t.qwTags - 1;
  } while (pTag < t.p);  // inside a value, a comment or an instruction
  if (pTag[1] == '/' && !t.bClosed) Pass_Text(tPass, {t.p, pTag});
  t.p = pTag;
  return true;
}

// Behind "<!--" or "<?": moves behind svEnd.  The text may end at once, but neither inside nor directly behind.
[[gnu::always_inline]] inline i32 Scan_Past(TScan& t, std::string_view svEnd, ESXMLError eError) {
  if (t.p == t.pEnd) return 0;
  const char* const pFound = std::strstr(t.p, svEnd.data());
  if (pFound == nullptr || pFound + svEnd.size() == t.pEnd) return Scan_Error(eError);
  t.p = pFound + svEnd.size();
  return 0;
}

// Up to the value: "name = ".
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
    if (t.p == t.pEnd) return 0;  // a text that ends here simply ends: the nesting tells
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

// From a '<' to behind what it opens.
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

// Walks svText, behind which a NUL stands and in which none does.  0, or the first error.
template <typename TPass>
[[gnu::always_inline]] inline i32 Scan_Run(std::string_view svText, TPass& tPass) {
  TScan t{.p = svText.data(),
          .pEnd = svText.data() + svText.size(),
          .pBlockEnd = svText.data(),
          .qwTags = 0,
          .bClosed = false};
  while (Scan_ToMarkup(t, tPass)) {
    if (const i32 iError = Scan_Markup(t, tPass); iError != 0) return iError;
  }
  return 0;
}
