#include "clock/inside.h"

#include <errno.h>

#include "clock/clock.h"

constinit bool g_bClockRuns = false;
constinit bool g_bPaced = false;
constinit thread_local TSelf g_tSelf{};

extern "C" {
[[gnu::weak]] void AnnotateIgnoreReadsBegin(const char* pszFile, int iLine);
[[gnu::weak]] void AnnotateIgnoreReadsEnd(const char* pszFile, int iLine);
[[gnu::weak]] void AnnotateIgnoreWritesBegin(const char* pszFile, int iLine);
[[gnu::weak]] void AnnotateIgnoreWritesEnd(const char* pszFile, int iLine);
}

// Not before the start: a sanitizer that sets itself up is not ready for it.
static void IgnoreAccesses() {
  if (!g_bClockRuns) return;
  if (AnnotateIgnoreReadsBegin == nullptr || AnnotateIgnoreWritesBegin == nullptr) return;
  AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
  AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
}

static void HeedAccesses() {
  if (!g_bClockRuns) return;
  if (AnnotateIgnoreReadsEnd == nullptr || AnnotateIgnoreWritesEnd == nullptr) return;
  AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
  AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
}

TInside::TInside() : m_iErrno(errno) {
  if (g_tSelf.iInside++ == 0) IgnoreAccesses();
}

TInside::~TInside() {
  if (--g_tSelf.iInside == 0) HeedAccesses();
  errno = m_iErrno;
}

TOutside::TOutside() : m_iInside(g_tSelf.iInside) {
  g_tSelf.iInside = 0;
  if (m_iInside > 0) HeedAccesses();
}

TOutside::~TOutside() {
  g_tSelf.iInside = m_iInside;
  if (m_iInside > 0) IgnoreAccesses();
}
