#include "motor/reference.h"

#include <algorithm>
#include <cstdio>

namespace {

void SetAll(TVernierLensdInfo* pThis, const TAxis& tAxis, EReference eReference) {
  if (pThis->*tAxis.pbSupport == 0 || pThis->bSupportICS != 0) return;
  for (i32 i = 0; i < std::max(g_tVernierLensdConfigInfo.iMaxDevNum, 1); i++) {
    Word_Store(Axis_Box(pThis, tAxis).aeReference[i], eReference);
  }
}

u32 Get(const TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel) {
  return Word_Take((pThis->*tAxis.ptBox).aeReference[iChannel]);
}

}  // namespace

void Reference_LoseAll(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  SetAll(pThis, tAxis, REFERENCE_LOST);
}

void Reference_DoubtAll(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  SetAll(pThis, tAxis, REFERENCE_DOUBTED);
}

void Reference_Set(TVernierLensdInfo* pThis, const TAxis& tAxis, bool bFound) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  // Publish: a focus search that sees the reference found must also see the search words of the zoom's new target.
  Word_Publish(tBox.aeReference[tBox.iRunningChannel], bFound ? REFERENCE_KNOWN : REFERENCE_FAILED);
}

void Reference_Lose(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel) {
  Word_Store(Axis_Box(pThis, tAxis).aeReference[iChannel], REFERENCE_LOST);
}

void Reference_LoseByAnswer(TVernierLensdInfo* pThis, const TAxis& tAxis, const char* szRequest, i32 iAnswer) {
  const i32 iChannel = Axis_Box(pThis, tAxis).iRunningChannel;
  Reference_Lose(pThis, tAxis, iChannel);
  std::printf("[vernierlensd] : %s answered %d to %s: the position of channel %d is not known any more.\n",
              tAxis.szDevice, iAnswer, szRequest, iChannel);
}

bool Reference_IsLost(const TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel) {
  return Get(pThis, tAxis, iChannel) == REFERENCE_LOST;
}

bool Reference_IsToBeFound(const TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel) {
  return Reference_IsLost(pThis, tAxis, iChannel) || Get(pThis, tAxis, iChannel) == REFERENCE_DOUBTED;
}

i32 Reference_FirstLost(const TVernierLensdInfo* pThis, const TAxis& tAxis) {
  const i32 iRunning = (pThis->*tAxis.ptBox).iRunningChannel;
  if (Reference_IsLost(pThis, tAxis, iRunning)) return iRunning;
  for (i32 i = 0; i < iMaxChannels; i++) {
    if (Reference_IsLost(pThis, tAxis, i)) return i;
  }
  return -1;
}

bool Reference_NeedsNoLog(const TVernierLensdInfo* pThis, const TAxis& tAxis) {
  return std::ranges::none_of((pThis->*tAxis.ptBox).aeReference, [](const u32& eReference) {
    return Word_Load(eReference) == REFERENCE_LOST || Word_Load(eReference) == REFERENCE_FAILED;
  });
}
