// What the daemon writes into the focus statistics blocks, judged as the image side reads it.
#include <sys/mman.h>

#include <csignal>

#include "autofocus/focus_block.h"
#include "hooks/hooks.h"
#include "short_lives.h"

namespace {

constexpr const char* szNote = "image side: ";
constexpr u64 qwLook_ms = 20;

// An image side that notes what has changed in channel 0's block since its last look, then does its own part.  V:
// values are wanted, O: the iris is to open, B: busy.  A small letter: no longer.
void LookAtBlock(TWorld* ptWorld) {
  static u32 bWanted = 0, bBusy = 0;
  u32* pdwBlock = Memory_Block(0);
  if (pdwBlock == nullptr) return;
  const auto NoteChange = [](u32& dwSeen, u32 dwNow, const char* szRises, const char* szFalls) {
    if (dwNow != dwSeen) Transcript_Note("%s%s", szNote, dwNow != 0 ? szRises : szFalls);
    dwSeen = dwNow;
  };
  NoteChange(bWanted, Word_Load(pdwBlock[BLOCK_FOCUS_VALUE_WANTED]), "V", "v");
  if (Word_Take(pdwBlock[BLOCK_IRIS_PENDING]) != 0) {
    Transcript_Note("%s%s", szNote, Word_Load(pdwBlock[BLOCK_IRIS_REQUEST]) != 0 ? "O" : "o");
  }
  NoteChange(bBusy, Word_Load(pdwBlock[BLOCK_AUTO_FOCUS_BUSY]), "B", "b");
  World_ImageFrame(ptWorld, 0, pdwBlock);
}

TEST(Image, ReadsWhatASearchDoes) {
  const struct {
    u32 bLeft;  // a killed life has left values wanted, and busy
    const char *szAsks, *szNoted;
  } atCases[] = {
      {0, "5000 auto&iris", "OBVvVvVvob"},
      {0, "5000 auto", "BVvVvVvb"},
      {0, "5000 scan&iris", "OBVvVvVvob"},
      {0, "5000 auto&iris, 14000 stop", "OBVvob"},
      {0, "3000 irisopen, 5000 auto, 60000 irisenable", "OOBVvVvVvbo"},
      {1, "5000 getstatus", ""},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera("zoom");
    const u32 adwLeft[BLOCK_WORDS] = {tCase.bLeft, 0, 0, 0, 0, tCase.bLeft};
    tCamera.Write("/shm/0", {reinterpret_cast<const char*>(adwLeft), sizeof adwLeft});
    TLifePlan tPlan{.sRoot = tCamera.sRoot, .qwSeed = FirstSeed(), .atEvents = Asks(tCase.szAsks), .bImageSide = false};
    tPlan.qwEnd_us = 90'000'000;
    for (u64 qw = 0; qw * 1000 < tPlan.qwEnd_us; qw += qwLook_ms) tPlan.atEvents.push_back(Call(qw, LookAtBlock));
    const TLifeResult tResult = Life_Run(tPlan);
    std::string sNoted;
    for (const auto& asNote : Matches(tResult.sTranscript, szNote + std::string("(.)"))) sNoted += asNote[1];
    EXPECT_EQ(sNoted, tCase.szNoted) << tCase.szAsks;
    EXPECT_EQ(Judge_Order(tResult), "") << Tale(tResult);
  }
}

// The image side looks at the pending word first, so the request must be written before it.  Here the page of the
// pending word is write-protected.  Its first write causes a fault, whose handler reads the request in the next page.
u32* g_pdwIris = nullptr;
long g_iPage = 0;
u32 g_dwRequestAtPending = 99;

void LookAtRequest(int) {
  g_dwRequestAtPending = g_pdwIris[BLOCK_IRIS_REQUEST];
  mprotect(reinterpret_cast<char*>(g_pdwIris + BLOCK_IRIS_REQUEST) - g_iPage, static_cast<size_t>(g_iPage),
           PROT_READ | PROT_WRITE);
}

TEST(Image, SeesTheRequestBeforeThePendingWord) {
  g_iPage = sysconf(_SC_PAGESIZE);
  const auto dwPage = static_cast<size_t>(g_iPage);
  void* pv = mmap(nullptr, 2 * dwPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(pv, MAP_FAILED);
  g_pdwIris = static_cast<u32*>(pv) + dwPage / sizeof(u32) - BLOCK_IRIS_REQUEST;
  g_pdwIris[BLOCK_IRIS_REQUEST] = 1;
  mprotect(pv, dwPage, PROT_READ);
  const auto pfnBefore = std::signal(SIGSEGV, LookAtRequest);
  static TVernierLensdInfo tInfo;
  tInfo.bSupportFocus = 1;
  tInfo.aptFocusBlock[0] = reinterpret_cast<TFocusBlock*>(g_pdwIris);
  VernierLensd_RequestIris(&tInfo, 0);
  std::signal(SIGSEGV, pfnBefore);
  EXPECT_EQ(g_dwRequestAtPending, 0U);
  EXPECT_EQ(g_pdwIris[BLOCK_IRIS_PENDING], 1U);
  tInfo.aptFocusBlock[0] = nullptr;
  munmap(pv, 2 * dwPage);
}

}  // namespace
