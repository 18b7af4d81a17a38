#include "motor/reference.h"

#include <algorithm>

void Reference_LoseAll(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  if (pThis->*tAxis.pbSupport == 0 || pThis->bSupportICS != 0) return;
  for (i32 i = 0; i < std::max(g_tVernierLensdConfigInfo.iMaxDevNum, 1); i++) {
    Word_Store(Axis_Box(pThis, tAxis).aeReference[i], REFERENCE_LOST);
  }
}

void Reference_Set(TVernierLensdInfo* pThis, const TAxis& tAxis, bool bFound) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  Word_Store(tBox.aeReference[tBox.iRunningChannel], bFound ? REFERENCE_KNOWN : REFERENCE_FAILED);
}

bool Reference_IsLost(const TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel) {
  return Word_Load((pThis->*tAxis.ptBox).aeReference[iChannel]) == REFERENCE_LOST;
}

i32 Reference_FirstLost(const TVernierLensdInfo* pThis, const TAxis& tAxis) {
  for (i32 i = 0; i < iMaxChannels; i++) {
    if (Reference_IsLost(pThis, tAxis, i)) return i;
  }
  return -1;
}

bool Reference_IsKnownOnAll(const TVernierLensdInfo* pThis, const TAxis& tAxis) {
  return std::ranges::all_of((pThis->*tAxis.ptBox).aeReference,
                             [](const u32& eReference) { return Word_Load(eReference) == REFERENCE_KNOWN; });
}
